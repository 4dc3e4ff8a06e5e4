#include "client/fleet/table.h"

#include <algorithm>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

#include "client/terminal_text.h"

namespace qvcd::client::fleet {

namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kWidest = 40; // of a column; longer texts push the others aside

// Bytes of UTF-8 that begin a character.
std::size_t width(const std::string &text)
{
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; }));
}

std::size_t screen_columns()
{
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

void print_cells(const std::vector<Row> &rows, const std::vector<std::size_t> &widths, std::size_t from,
                 std::size_t to)
{
    for (const Row &row : rows) {
        std::string line;
        const auto add = [&](std::size_t i) {
            const std::string cell = one_line(i < row.size() ? row[i] : "");
            line += cell + std::string(std::max(widths[i], width(cell)) - width(cell) + kGap, ' ');
        };
        add(0);
        for (std::size_t i = from; i < to; ++i)
            add(i);
        std::printf("%s\n", line.substr(0, line.find_last_not_of(' ') + 1).c_str());
    }
}

} // namespace

void print_table(const std::vector<Row> &rows)
{
    if (isatty(STDOUT_FILENO) == 0) {
        for (const Row &row : rows) {
            for (std::size_t i = 0; i < row.size(); ++i)
                std::printf("%s%s", i ? "\t" : "", one_line(row[i]).c_str());
            std::printf("\n");
        }
        return;
    }
    std::vector<std::size_t> widths;
    for (const Row &row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], std::min(width(row[i]), kWidest));
    }
    const std::size_t columns = screen_columns();
    for (std::size_t from = 1; from < std::max<std::size_t>(widths.size(), 2);) {
        std::size_t to = from;
        for (std::size_t used = widths[0] + kGap;
             to < widths.size() && (to == from || used + widths[to] <= columns); ++to)
            used += widths[to] + kGap;
        if (from > 1)
            std::printf("\n");
        print_cells(rows, widths, from, to);
        from = std::max(to, from + 1);
    }
}

} // namespace qvcd::client::fleet
