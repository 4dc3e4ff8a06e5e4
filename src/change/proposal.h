#pragma once

#include "base/args.h"
#include "base/request.h"
#include "change/actions.h"
#include "funcs/file_writes.h"
#include "store/flags.h"

#include <memory>
#include <string>
#include <vector>

namespace qvcd {

/// One API that a change is about.
struct Proposed {
    std::string api;
    std::string before; ///< what its file has or, where nothing is to be saved, what is in force
    std::string after;
    bool secret = false;  ///< no value is shown or kept
    bool hidden = false;  ///< the caller may not read it
    bool saves = false;   ///< it goes to a file or a device
    bool applies = false; ///< its actions run
    bool dynamic = false; ///< live: it has no flags

    // How the settings stood when it was proposed.
    std::string now;
    bool mod = false;
    bool noapp = false;
    Pending pending = {};
};

struct Refusal {
    std::string api;
    std::string error;
};

/// What a plan shows and a commit does: values, and what keeps the caller from giving them. Who asks for one
/// that is to be carried out holds the SaveLock (base/save_lock.h) from before on.
struct Proposal {
    std::vector<Proposed> values; ///< those that change something, each once
    std::vector<Refusal> refused; ///< not empty: nothing may be done

    /// The writes of its files and devices, in the order of the values that have some. Under the command
    /// lock.
    std::unique_ptr<FileWrites> writes() const;

    /// What is to run, in order. Under the command lock.
    Actions actions() const;
};

enum class Check {
    full,
    had_it, ///< values that the APIs had already: their types are not asked
};

/// Of "name=value" arguments; the last one of an API counts. Changes nothing. Under the command lock.
Proposal propose(const Request &request, const Args &assignments, Check check = Check::full);

/// Whose pending changes.
enum class Whose { own, everybodys };

/// Of the changes that wait to be saved or applied: those that the caller's session made last, or all that he
/// may write.
Proposal propose_pending(const Request &request, Whose whose);

/// Reads the live APIs among the arguments again, so that their values are those of the system. Before
/// propose(); lets go of the command lock.
void refresh_live_values(Request &request, const Args &assignments);

} // namespace qvcd
