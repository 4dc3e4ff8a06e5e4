#include "auth/session_list.h"

#include "base/file_text.h"
#include "platform/sysroot.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

namespace {

constexpr std::size_t kMaxLinePiece = 127; // a longer line counts as several

std::string list_path()
{
    return qv_sysroot_path("/tmp/current_sessions");
}

std::vector<std::string> lines_of(std::string_view text)
{
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t newline = text.find('\n');
        const std::size_t length = newline == std::string_view::npos ? text.size() : newline + 1;
        lines.emplace_back(text.substr(0, std::min(length, kMaxLinePiece)));
        text.remove_prefix(lines.back().size());
    }
    return lines;
}

std::optional<int> number_in(const std::string &line)
{
    int n = 0;
    if (std::sscanf(line.c_str(), "%i", &n) != 1)
        return std::nullopt;
    return n;
}

bool holds(const std::vector<std::string> &lines, int n)
{
    return std::ranges::any_of(lines, [n](const std::string &line) { return number_in(line) == n; });
}

} // namespace

void session_add_to_list(int n)
{
    std::string text = read_file(list_path()).value_or("");
    if (holds(lines_of(text), n))
        return;
    if (!text.empty() && text.back() != '\n')
        text += '\n';
    write_scratch_file(list_path(), text + std::to_string(n) + "\n");
}

void session_remove_from_list(int n)
{
    const std::vector<std::string> lines = lines_of(read_file(list_path()).value_or(""));
    if (!holds(lines, n))
        return;
    std::string kept;
    for (const std::string &line : lines) {
        const std::optional<int> number = number_in(line);
        if (number && *number != n)
            kept += line;
    }
    write_scratch_file(list_path(), kept);
}

void session_clear_list()
{
    write_scratch_file(list_path(), "");
}

} // namespace qvcd
