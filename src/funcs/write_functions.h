#pragma once

#include "base/kv_file.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

/// The values that go into one file.
struct Values {
    std::vector<KeyValue> given;
    std::vector<KeyValue> otherwise; ///< what counts where neither `given` nor the file says anything
};

/// How values get into the text of a configuration file. Pure functions of the text, but `settings`.
struct TextWriter {
    /// A value stands under this key already.
    bool (*holds)(std::string_view text, std::string_view key);
    /// Why the value cannot stand in such a file under this key, so that the reader of such files gives it
    /// back; null when it can.
    const char *(*refuses)(std::string_view key, std::string_view value);
    /// The text with all values, none of which is refused.
    std::string (*rewrite)(std::string_view text, const Values &values);
    /// What goes into Values::otherwise, from the settings; null: nothing.
    std::vector<KeyValue> (*settings)();
};

extern const TextWriter kv_writer;     ///< "kv_wfunc", base/kv_file.h
extern const TextWriter quoted_writer; ///< "quotedkv_wfunc": the same with the value in double quotes
extern const TextWriter ntp_writer;    ///< "ntp_wfunc", funcs/ntp.h

/// "syncclock_wfunc": sets the system clock and the hardware clock from a timecode. 0; not 0 after a failure.
int syncclock_wfunc(const std::string &value);

} // namespace qvcd
