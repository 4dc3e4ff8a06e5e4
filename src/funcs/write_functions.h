#pragma once

#include <string>

namespace qvcd {

// Write functions. They take paths of the appliance: the file that serves as the template, the file to write
// (the two may be one), the API's "attr", the value. 0: written.
//
// A destination in kScratchFolder is a working copy of a save (funcs/working_copies.h): it is not flushed to
// the disk, because the save commits it with a durable move.
inline constexpr char kScratchFolder[] = "/tmp/qvcd";

int undefined_wfunc(const std::string &src, const std::string &dst, const std::string &attr,
                    const std::string &value);
int no_wfunc(const std::string &src, const std::string &dst, const std::string &attr,
             const std::string &value);
/// Sets a key of a key/value file (base/kv_file.h); a missing source is created.
int kv_wfunc(const std::string &src, const std::string &dst, const std::string &attr,
             const std::string &value);
/// Writes the value as one line into an existing file, mostly of the kernel; a missing file is no error.
int io_wfunc(const std::string &src, const std::string &dst, const std::string &attr,
             const std::string &value);
/// kv_wfunc with the value in double quotes; always 0.
int quoted_wfunc(const std::string &src, const std::string &dst, const std::string &attr,
                 const std::string &value);
/// Sets the system clock and the hardware clock from a timecode; -1 without a value.
int syncclock_wfunc(const std::string &src, const std::string &dst, const std::string &attr,
                    const std::string &value);
/// Rewrites the NTP daemon's server line from the settings.
int ntp_wfunc(const std::string &src, const std::string &dst, const std::string &attr,
              const std::string &value);

} // namespace qvcd
