#pragma once

#include "funcs/write_functions.h"

#include <span>
#include <string>
#include <string_view>

namespace qvcd {

/// How a write function takes values.
enum class WriteKind {
    none,   ///< it does not: an error
    text,   ///< into the text of a configuration file
    device, ///< as a line, a request, into a file that exists: a device or a file of the kernel
    call,   ///< as an argument
};

/// What an API's "write" attribute names. One of the two pointers is set for `text` and `call`.
struct WriteRow {
    std::string_view name;
    WriteKind kind;
    const TextWriter *text;
    int (*call)(const std::string &value);
};

/// The row of that name; of a missing or unknown one the row "undefined".
const WriteRow &write_row(std::string_view name);

std::span<const WriteRow> write_rows(); ///< all of them

int cmd_create_wfuncmap_hdf(); ///< logs the map's size; 0

/// Writes a value at once where the API's "write", "file", "shadow" and "attr" say (funcs/file_writes.h).
/// Returns 0, or 1 after logging why it is not there. Lets go of the command lock.
int wfuncmap_write(std::string_view api, std::string_view value);

} // namespace qvcd
