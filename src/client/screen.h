#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qvcd::client {

/// What a person on a terminal gets, and nobody else.
struct Screen {
    bool is_there = false; ///< standard output is a terminal
    bool has_colours = false;
    std::size_t rows = 0; ///< 0: not known
    std::size_t columns = 0;
};
Screen look_at_screen();

/// `text` in red on a screen with colours.
std::string in_red(const Screen &screen, std::string_view text);
std::string in_bold(const Screen &screen, std::string_view text);

/// Rows of two cells, the second one in a column of its own on a screen.
struct TableRow {
    std::string name;
    std::string value;
};

/// Lines as they stand on a screen: the first cells as wide as the widest of them, within limits.
std::vector<std::string> in_columns(const std::vector<TableRow> &rows);

/// Prints the lines; when there are more of them than a screen has rows, through $PAGER, or less.
void show_lines(const Screen &screen, const std::vector<std::string> &lines);

} // namespace qvcd::client
