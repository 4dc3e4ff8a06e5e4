#include "store/hdf_scan.h"

#include "store/tree.h"

#include <algorithm>
#include <vector>

namespace qvcd {

namespace {

constexpr std::string_view kBlanks = " \t\r\f\v";

std::string_view trim(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool is_of_name(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '.';
}

int depth_of(std::string_view name)
{
    return 1 + static_cast<int>(std::count(name.begin(), name.end(), '.'));
}

class Scanner {
  public:
    explicit Scanner(std::string_view text) : text_(text) {}

    HdfScan run()
    {
        HdfScan scan;
        while (at_ < text_.size()) {
            const char *error = line(next_line());
            if (error) {
                scan.error = "line " + std::to_string(line_number_) + ": " + error;
                return scan;
            }
            scan.good_bytes = at_;
        }
        if (!open_.empty())
            scan.error = "line " + std::to_string(line_number_) + ": " + std::to_string(open_.size()) +
                         " open brace(s) at the end";
        return scan;
    }

  private:
    std::string_view next_line()
    {
        const std::size_t end = std::min(text_.find('\n', at_), text_.size());
        const std::string_view found = text_.substr(at_, end - at_);
        at_ = std::min(end + 1, text_.size());
        ++line_number_;
        return found;
    }

    // Returns what is wrong with the line, or null.
    const char *line(std::string_view whole)
    {
        if (whole.find('\0') != std::string_view::npos)
            return "a NUL byte";
        const std::string_view text = trim(whole);
        if (text.empty())
            return nullptr;
        if (text.front() == '#')
            return text.starts_with("#include ") ? "files cannot include others" : nullptr;
        if (text == "}")
            return close();
        const auto end = static_cast<std::size_t>(std::ranges::find_if_not(text, is_of_name) - text.begin());
        const std::string_view name = text.substr(0, end);
        if (!is_tree_name(name))
            return name.empty() ? "no name" : "bad name";
        return statement(name, trim(text.substr(end)));
    }

    const char *statement(std::string_view name, std::string_view rest)
    {
        if (depth_ + depth_of(name) > kMaxTreeDepth)
            return "nested too deeply";
        if (rest.starts_with("="))
            return nullptr;
        if (rest == "{") {
            open_.push_back(depth_of(name));
            depth_ += depth_of(name);
            return nullptr;
        }
        if (rest.starts_with("<<"))
            return block(trim(rest.substr(2)));
        if (rest.starts_with("{"))
            return "text behind a brace";
        if (rest.starts_with(":") || rest.starts_with("["))
            return "links and attributes are not supported";
        return "neither a value nor a group";
    }

    const char *close()
    {
        if (open_.empty())
            return "a closing brace too many";
        depth_ -= open_.back();
        open_.pop_back();
        return nullptr;
    }

    // The library ends a block at a line that starts with the mark and a white space, and may see one in the
    // middle of a line: the mark must stand nowhere else.
    const char *block(std::string_view mark)
    {
        if (mark.empty())
            return "a block without a mark";
        while (at_ < text_.size()) {
            const std::string_view found = next_line();
            if (found == mark)
                return nullptr;
            if (found.find(mark) != std::string_view::npos)
                return "the block's mark stands inside the block";
            if (found.find('\0') != std::string_view::npos)
                return "a NUL byte";
        }
        return "a block without an end";
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::size_t line_number_ = 0;
    std::vector<int> open_; // levels that each open brace added
    int depth_ = 0;
};

} // namespace

HdfScan hdf_scan(std::string_view text)
{
    return Scanner(text).run();
}

} // namespace qvcd
