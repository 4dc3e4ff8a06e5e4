#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

/// The word that was probably meant: the one with the fewest letters inserted, left out, changed or swapped,
/// or one that begins with `word`. Empty when none is near.
std::string_view nearest_word(std::string_view word, const std::vector<std::string_view> &words);

/// "; did you mean \"kv_rfunc\"?", or nothing.
std::string suggestion(std::string_view word, const std::vector<std::string_view> &words);

} // namespace qvcd
