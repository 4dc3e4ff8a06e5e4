#pragma once

#include <map>
#include <string>

namespace qvcd {

/// The texts of the working copies of one save. A writer goes through its files by name, so saving a thousand
/// APIs of one file would rewrite the file's copy a thousand times; the copies that are open here are kept in
/// memory instead and reach their files once. One object at a time lives, under the save lock. Paths are
/// paths of the appliance.
class WorkingCopies {
  public:
    WorkingCopies() { current_ = this; }
    ~WorkingCopies() { current_ = nullptr; }
    WorkingCopies(const WorkingCopies &) = delete;
    WorkingCopies &operator=(const WorkingCopies &) = delete;

    void open(const std::string &path, std::string text) { texts_[path] = std::move(text); }

    /// Writes the text into the copy's own file, not flushed to the disk. 0 or an errno.
    int store(const std::string &path) const;

    /// The text to read and to change; null when this path is no open copy.
    static std::string *find(const std::string &path);

  private:
    static WorkingCopies *current_;
    std::map<std::string, std::string> texts_;
};

/// Makes the folder of the working copies, and removes what a daemon that was killed left there over a minute
/// ago.
void tidy_working_copies();

} // namespace qvcd
