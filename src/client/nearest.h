#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd::client {

/// Of the candidates those that may be meant by a misspelt word, at most `most`, the nearest first: those
/// that a few letters make of it (upper and lower case are alike), or, when there are none, those that begin
/// with it.
std::vector<std::string> nearest(std::string_view word, const std::vector<std::string> &candidates,
                                 std::size_t most);

/// nearest() for names of settings, of which only a part may be right: the whole name; the last parts of it
/// ("HTTP.port" for "Services.HTTP.port"). Candidates are APIs; their groups are found too.
std::vector<std::string> nearest_names(std::string_view name, const std::vector<std::string> &apis,
                                       std::size_t most);

/// " (did you mean A, B or C?)"; empty for no words.
std::string did_you_mean(const std::vector<std::string> &words);

} // namespace qvcd::client
