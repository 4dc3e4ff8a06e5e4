#pragma once

#include "base/request.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace qvcd {

/// A read function gets the request, which keeps what was read for it already, and the API's "file" and
/// "attr" attributes (null when absent). Nothing: there is no value.
using ReadFunction = std::optional<std::string> (*)(Request &request, const char *file, const char *attr);

/// What a read function takes from "file" and from "attr".
enum class ReadFile { unused, path, server, group };
enum class ReadAttr {
    unused,
    text,         ///< any
    api,          ///< the name of an API
    words,        ///< one of `words`
    device_words, ///< an interface, which may be missing, and one of `words`
};

struct ReadRow {
    std::string_view name;
    ReadFunction function;
    ReadFile file = ReadFile::unused;
    ReadAttr attr = ReadAttr::unused;
    std::string_view words = {}; ///< with blanks between
};
std::span<const ReadRow> read_rows(); ///< all of them; the first one stands for those that are missing

int cmd_create_rfuncmap_hdf(); ///< logs the map's size; 0

/// Reads the live value of an API through the function that its "read" attribute names: at most
/// kMaxValueBytes, with a blank in place of each control character. May let go of the command lock.
std::optional<std::string> rfuncmap_read(Request &request, std::string_view api);

/// The same, from another place than the API's "file" and "attr" say.
std::optional<std::string> rfuncmap_read_from(Request &request, std::string_view api, const std::string &file,
                                              const std::string &attr);

/// Fills the row "profile_rfunc": the profile commands lie above this map.
void rfuncmap_set_profile_reader(ReadFunction reader);

} // namespace qvcd
