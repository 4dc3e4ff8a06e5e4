#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qvcd::client {

/// What a setting takes, in words that follow "NAME takes" or "NAME may be": "0 to 100", "one of on, off",
/// "empty, or a password of 8 to 63 characters". From the lines of `introspect NAME`; empty when they do not
/// say it.
std::string allowed_values(const std::vector<std::string> &lines, const std::string &name);

/// "NAME takes 0 to 100"; empty when `allowed` is.
std::string sentence_on(std::string_view name, const std::string &allowed);

} // namespace qvcd::client
