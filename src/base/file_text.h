#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

// Whole files. Paths are paths of this machine (platform/sysroot.h).

/// The file's bytes, at most `limit`; nothing when it cannot be opened. Never blocks on a FIFO; a folder
/// cannot be opened. Works for /proc and /sys files, whose size reads as 0.
std::optional<std::string> read_file(const std::string &path, std::size_t limit = std::size_t{64} << 20);

enum class Durable { no, yes };

/// Gives `path` the content `text` in one step: a sibling temporary file with the old file's mode and owner
/// (a new file gets `mode` less the umask) is renamed over it, through a symbolic link onto its target. A
/// target that is no regular file (device, /proc, /sys) is written in place. With Durable::yes the file and
/// its folder are flushed to the disk, so that after a crash the path holds the old or the new text. Returns
/// 0, or the errno of what failed; the old file is then as it was.
int replace_file(const std::string &path, std::string_view text, unsigned mode = 0666,
                 Durable durable = Durable::yes);

/// The same with exactly this mode, whatever the old file had.
int replace_secret_file(const std::string &path, std::string_view text, unsigned mode = 0600);

/// Writes a file in a folder that everybody may write to ("/tmp"): never through a symbolic link; a new file
/// gets mode 0600. The old content is replaced. Returns 0 or an errno.
int write_scratch_file(const std::string &path, std::string_view text);

bool file_exists(const std::string &path);

} // namespace qvcd
