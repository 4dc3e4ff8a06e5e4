#pragma once

#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "client/command.h"
#include "client/options.h"

namespace qvcd::client {

/// One line of JSON that says a reply: {"command": ..., "result": ..., "values": {NAME: VALUE, ...},
/// "errors": [{"name": ..., "error": ...}], "text": [...]}. Values have the type that `introspect` says of
/// their names; "errors" and "text" (lines that name nothing) are there only when there are some. Nested
/// text, as that of `sessions`, is a "tree". A reply without a line has the likely reason among the errors.
std::string json_answer(const Options &options, const Words &words, const std::vector<std::string> &lines,
                        int result);

/// The types of settings, as `introspect` says them.
std::map<std::string, std::string> types_of(const Options &options, const std::vector<std::string> &names);

/// Puts into "errors" what these lines say that is wrong, and when the reply had no line at all why that may
/// be.
void add_errors(nlohmann::ordered_json &json, const Options &options, const Words &words,
                const std::vector<std::string> &lines, int result);

/// One line; bytes that are no UTF-8 are replaced.
std::string one_json_line(const nlohmann::ordered_json &json);

} // namespace qvcd::client
