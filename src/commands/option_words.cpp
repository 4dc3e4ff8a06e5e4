#include "commands/option_words.h"

#include "base/text.h"

namespace qvcd {

OptionWords::OptionWords(Args &argv, std::string_view flags, std::string_view with_value)
{
    Args others;
    bool over = false;
    for (std::size_t i = 0; i < argv.size(); ++i) {
        const std::string &word = argv[i];
        const bool digit = word.size() > 1 && word[1] >= '0' && word[1] <= '9';
        if (over || word.size() < 2 || word[0] != '-' || digit) {
            others.push_back(word);
            continue;
        }
        over = word == "--";
        if (over)
            continue;
        const char letter = word.size() == 2 ? word[1] : '-';
        if (with_value.find(letter) != std::string_view::npos && i + 1 < argv.size())
            found_[letter] = argv[++i];
        else if (flags.find(letter) != std::string_view::npos)
            found_[letter];
        else
            good_ = false;
    }
    argv = std::move(others);
}

std::optional<std::string> OptionWords::value(char letter) const
{
    const auto found = found_.find(letter);
    return found == found_.end() ? std::nullopt : std::optional(found->second);
}

std::optional<std::chrono::seconds> confirm_time(const std::string &text)
{
    const auto seconds = parse_int64(text);
    if (!seconds || *seconds < 1 || *seconds > kMaxConfirmTime.count())
        return std::nullopt;
    return std::chrono::seconds(*seconds);
}

} // namespace qvcd
