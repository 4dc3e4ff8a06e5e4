#pragma once

#include "base/args.h"

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

/// The options among the arguments of a command, "-x" and "-x VALUE", wherever they stand up to "--"; a word
/// like "-1" is none, nor is "-".
class OptionWords {
  public:
    /// Takes them off `argv`. The letters of those without and with a value.
    OptionWords(Args &argv, std::string_view flags, std::string_view with_value);

    /// Not good: an unknown option, or one without its value.
    bool good() const { return good_; }

    bool has(char letter) const { return found_.contains(letter); }
    std::optional<std::string> value(char letter) const; ///< as it came, escaped

  private:
    std::map<char, std::string> found_;
    bool good_ = true;
};

inline constexpr std::chrono::seconds kMaxConfirmTime{24 * 60 * 60};

/// A time to confirm a commit within, from one second to a day; nothing for another text.
std::optional<std::chrono::seconds> confirm_time(const std::string &text);

} // namespace qvcd
