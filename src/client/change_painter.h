#pragma once

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

namespace qvcd::client {

enum class Colours { no, yes };

/// What a terminal is to be sent, by the variables NO_COLOR and TERM (null: not set).
Colours colours_for(const char *no_color, const char *term);

/// Makes the reply to one command of changes readable for a person: what was red, what will be green, file
/// names bold, actions yellow, errors red; the entries of the history aligned, with local time and age.
/// Whatever it does not know stays as it is.
class ChangePainter {
  public:
    /// `now`: for the ages.
    ChangePainter(Colours colours, std::time_t now) : colours_(colours == Colours::yes), now_(now) {}

    /// One reply line, without its newline. To be called for all of them in their order.
    std::string paint(std::string_view line);

  private:
    std::string colour(const char *code, std::string_view text) const;
    std::string hunk_line(std::string_view line);
    std::string statement(std::string_view line) const;
    std::string action(std::string_view line) const;
    std::string entry_header(std::string_view number, std::time_t time, std::string_view rest);

    bool colours_;
    std::time_t now_;
    unsigned old_lines_left_ = 0; // of the hunk that is being read
    unsigned new_lines_left_ = 0;
    std::size_t number_width_ = 0; // of the first entry, which has the highest number
};

} // namespace qvcd::client
