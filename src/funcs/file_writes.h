#pragma once

#include "base/replace_files.h"
#include "funcs/write_map.h"

#include <string>
#include <vector>

namespace qvcd {

/// What a value that did not reach its file gets in the reply.
inline constexpr char kSaveFailed[] = "##Save failed#";

/// Values on their way into the files of their APIs: gathered under the command lock, written without it. All
/// values of one file go into its text together, and what fails keeps no other value from its file.
///
/// Take the SaveLock (base/save_lock.h) before prepare(), if there will be a commit(). Paths are paths of the
/// appliance.
class FileWrites {
  public:
    using Extent = FileSet::Extent;

    /// Whether a value is written over one that is there.
    enum class When { always, absent };

    enum class Result {
        failed,
        kept,    ///< When::absent, and another one is there
        written, ///< the files hold the value; so it is with a device that does not exist
    };

    /// Takes a value for an API, whose attributes are looked up here. Its number is how many were added
    /// before.
    void add(const std::string &api, const std::string &value, When when = When::always);

    /// Takes a value for a key of a file that the caller knows, as the write function of that name writes it.
    void add_to(const std::string &file, std::string_view write, const KeyValue &pair);

    /// Reads the files and makes their new texts. What cannot be written for what is known now has failed.
    /// Once; lets go of the command lock.
    void prepare();

    /// A file whose text changes.
    struct Rewrite {
        std::string file;
        std::optional<std::string> before; ///< none: there is no such file, or it could not be read
        int error;                         ///< the errno of that; 0: none
        const std::string &after;          ///< good as long as the FileWrites
        bool is_device;                    ///< `after` is a line that a device or the kernel gets
    };
    std::vector<Rewrite> rewrites() const; ///< after prepare()

    /// Prepares what is not prepared yet, gives the files their new texts (base/replace_files.h), writes to
    /// devices. A file whose text does not change is not written. Once; lets go of the command lock.
    void commit(Extent extent = Extent::each);

    Result result(std::size_t number) const { return entries_[number].result; }
    bool has_failed() const; ///< one of them

    /// Logs what failed and why: "Can not <verb> <file or API>: ...".
    void log_failures(const char *verb) const;

  private:
    struct Entry {
        std::string api; // or the key, for the log
        std::string file;
        std::string shadow;
        KeyValue pair;
        const WriteRow *row;
        When when;
        bool secret; // a password
        bool refused = false;
        Result result = Result::failed;
    };
    // A file and the values that go into it.
    struct Target {
        std::string file;
        std::vector<Entry *> entries;
        FileText before = {ENOENT, {}};
    };
    struct Failure {
        std::string what; // a file or an API
        std::string why;
    };

    void add_entry(Entry entry);
    void refuse(Entry &entry, const char *why);
    void fail(const std::string &file, const std::vector<Entry *> &entries, int error, const char *what);
    std::vector<Target> targets();
    void add_text(const Target &target);
    void add_device(Entry &entry);
    std::vector<std::size_t> add_shadows(const std::vector<Entry *> &entries, const std::string &text,
                                         unsigned mode);
    std::size_t add_part(Target part, FileChange change);
    void commit_entries(Extent extent);
    void write(Extent extent);

    std::vector<Entry> entries_;
    std::vector<KeyValue> settings_; // Values::otherwise
    FileSet set_;
    std::vector<Target> parts_; // of the set
    std::vector<Failure> failures_;
    bool is_prepared_ = false;
};

} // namespace qvcd
