#include "client/command_pages.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace qvcd::client {

namespace {

constexpr std::size_t kWidth = 72;
constexpr char kIndent[] = "\t";

// Whole words in lines of kWidth, as the pages of the daemon look.
void add_wrapped(const std::string &text, std::vector<std::string> &lines)
{
    std::istringstream words(text);
    std::string line;
    for (std::string word; words >> word;) {
        if (!line.empty() && line.size() + 1 + word.size() > kWidth) {
            lines.push_back(kIndent + line);
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    lines.push_back(kIndent + line);
}

std::string upper(std::string text)
{
    std::ranges::transform(text, text.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

// True for the first line of the command's page: "= name (arguments)".
bool begins_page(const std::string &line, std::string_view command)
{
    constexpr std::string_view kMark = "= ";
    const std::string_view synopsis = std::string_view(line).substr(std::min(kMark.size(), line.size()));
    return line.starts_with(kMark) && synopsis.starts_with(command) &&
           (synopsis.size() == command.size() ||
            synopsis.find_first_of(" .[", command.size()) == command.size());
}

// The parts of one page, each on one line, "Rights: ...".
std::vector<std::string> parts_of(std::string_view command)
{
    std::istringstream text(kCommandPages);
    std::vector<std::string> parts;
    bool is_wanted = false;
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with("= "))
            is_wanted = begins_page(line, command);
        else if (is_wanted && line.starts_with(' '))
            parts.back() += line;
        else if (is_wanted && !line.empty() && !line.starts_with('#'))
            parts.push_back(line);
    }
    return parts;
}

} // namespace

std::vector<std::string> command_page(std::string_view command)
{
    std::vector<std::string> lines;
    for (const std::string &part : parts_of(command)) {
        const std::size_t colon = part.find(": ");
        lines.insert(lines.end(), {"", upper(part.substr(0, colon))});
        const std::string text = part.substr(colon + 2);
        if (part.starts_with("Example"))
            lines.push_back(kIndent + text);
        else
            add_wrapped(text, lines);
    }
    return lines;
}

std::string command_synopsis(std::string_view command)
{
    std::istringstream text(kCommandPages);
    for (std::string line; std::getline(text, line);) {
        if (begins_page(line, command))
            return line.substr(2);
    }
    return {};
}

} // namespace qvcd::client
