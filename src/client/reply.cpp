#include "client/reply.h"

#include <algorithm>
#include <cstdio>
#include <set>

#include "client/terminal_text.h"
#include "qvclient/errors.h"

namespace qvcd::client {

namespace {

constexpr std::size_t kMostKeptBytes = std::size_t{64} << 20;
constexpr std::size_t kBytesOfLine = 64; // what a line takes beside its text, at the least
constexpr char kStars[] = "*******";

std::set<std::string, std::less<>> hidden_names;

// Where in the line a value begins that was typed unseen; the end of the line where none is.
std::size_t start_of_secret(std::string_view line)
{
    const std::size_t equals = line.find('=');
    if (hidden_names.empty() || equals == std::string_view::npos ||
        !hidden_names.contains(line.substr(0, equals)))
        return line.size();
    if (!line.substr(equals + 1).starts_with("##"))
        return equals + 1;
    constexpr std::string_view kBehindError = "#: ";
    const std::size_t end = line.find(kBehindError, equals + 3);
    return end == std::string_view::npos ? line.size() : end + kBehindError.size();
}

} // namespace

void print_line(std::string_view line)
{
    const std::string shown = for_output(shown_line(line));
    std::fwrite(shown.data(), 1, shown.size(), stdout);
    std::fputc('\n', stdout);
}

LineSink within_limit(LineSink sink)
{
    return [sink = std::move(sink), bytes = std::size_t{0}](std::string_view line) mutable {
        if ((bytes += line.size() + kBytesOfLine) > kMostKeptBytes)
            throw WireError("the reply is too long to be kept");
        sink(line);
    };
}

std::string shown_line(std::string_view line)
{
    const std::size_t secret = start_of_secret(line);
    return std::string(line.substr(0, secret)) + (secret < line.size() ? kStars : "");
}

void hide_value_of(const std::string &name)
{
    hidden_names.insert(name);
}

} // namespace qvcd::client
