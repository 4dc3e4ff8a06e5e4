#pragma once

#include "platform/fd.h"

#include <string>
#include <string_view>

namespace qvcd {

/// A new file for a name in a folder that others may write to ("/tmp"): made beside the name, of mode 0600
/// and our own, and renamed over whatever bears the name then, be it a link or somebody else's file, neither
/// of which is written through. In a sticky folder only root may replace what others made. Not flushed to the
/// disk.
class FreshFile {
  public:
    explicit FreshFile(const std::string &target);
    ~FreshFile(); ///< removes the file if it did not get the name
    FreshFile(const FreshFile &) = delete;
    FreshFile &operator=(const FreshFile &) = delete;

    /// Where the file is until it has the name; empty when it could not be made.
    const std::string &path() const { return path_; }
    int error() const { return error_; } ///< why it could not be made, an errno; or 0

    /// Writes the whole text, with the mode and group of the target when that is a plain file of our own.
    /// 0, or an errno.
    int write(std::string_view text);

    /// 0, or an errno: what bears the name is left then. A folder or a device is not replaced.
    int take_name();

  private:
    std::string target_;
    std::string path_;
    int error_ = 0;
    Fd fd_;
};

} // namespace qvcd
