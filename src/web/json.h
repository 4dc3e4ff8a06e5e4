#pragma once

#include "web/message.h"

#include <nlohmann/json.hpp>
#include <string>

namespace qvcd::web {

using Json = nlohmann::ordered_json;

/// One line; bytes that are no UTF-8 are replaced.
std::string text_of(const Json &json);

Answer answer_of(const Json &json, int status = 200);

/// The body, which has to be an object, or empty for an empty one. Throws Problem.
Json object_in(const Request &request);

/// The member as a text, a truth, a number; what is missing, or null, is nothing, what is of another type a
/// Problem.
std::optional<std::string> text_in(const Json &object, const char *key);
std::optional<bool> truth_in(const Json &object, const char *key);
std::optional<long long> number_in(const Json &object, const char *key);

/// A text that has to be there.
std::string wanted_text(const Json &object, const char *key);

/// The names in an array of texts; nothing where there is none.
std::vector<std::string> names_in(const Json &object, const char *key);

} // namespace qvcd::web
