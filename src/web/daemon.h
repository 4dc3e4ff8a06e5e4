#pragma once

#include "qvclient/event_stream.h"
#include "qvclient/wire.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qvcd::web {

using Words = std::vector<std::string>;

/// In whose name the daemon is asked.
struct Who {
    int session = 0; ///< at the daemon: a credential, neither shown nor logged
    std::string user = "";
    std::string group = "";
    bool is_administrator = false;
    std::string address = ""; ///< of the browser
};

/// What it answered to one command, or to several.
struct Reply {
    std::vector<std::string> lines;
    int result = 0;

    /// The first line as it is; empty without one.
    std::string first() const { return lines.empty() ? "" : lines.front(); }
};

/// A value in a reply line, or why there is none.
struct NamedValue {
    std::string name, value;
    std::optional<std::string> error;
};
NamedValue named_value(const std::string &line);

/// The way to the daemon. Everything waits for its answer, and throws Problem when it is away (503), does not
/// answer in time (504), or does not know the session any more (401). For several threads.
class Daemon {
  public:
    /// `folder` of its sockets; empty: the appliance's.
    explicit Daemon(const std::string &folder);

    /// One command: its word, then its arguments (qvclient/escape.h).
    Reply run(const Who &who, const Words &words) const;

    /// The same with the document that the command takes.
    Reply run_with_document(const Who &who, const Words &words, std::string document) const;

    /// Several commands over one connection, answered in one reply.
    Reply run_all(const Who &who, const std::vector<Words> &commands) const;

    /// A session for the user, who comes from this address. A new password takes the place of the built-in
    /// one. Throws Problem: 401, 403 (a built-in password without a new one), 422 (not this new one), 429.
    Who log_in(const std::string &user, const std::string &password, const std::string &address,
               const std::optional<std::string> &new_password = std::nullopt) const;

    /// Ends it there. Throws nothing.
    void log_out(const Who &who) const noexcept;

    /// False when the daemon does not know the session.
    bool knows(const Who &who) const;

    /// Throws WireError and EventsRefused, as its constructor does.
    std::unique_ptr<client::EventStream> events(const Who &who) const;

  private:
    Reply exchange(const Who &who, const std::string &command, const std::string &lines,
                   std::optional<std::string> document) const;

    client::Endpoint endpoint_;
};

} // namespace qvcd::web
