#include "store/hdf_text.h"

#include "base/limits.h"
#include "base/text.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace qvcd {

namespace {

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v';
}

std::string_view trim(std::string_view text)
{
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

// What the text begins with that may be a name.
std::string_view name_at(std::string_view text)
{
    const auto *end =
        std::ranges::find_if_not(text, [](char c) { return is_ascii_alnum(c) || c == '_' || c == '.'; });
    return {text.data(), static_cast<std::size_t>(end - text.begin())};
}

int depth_of(std::string_view name)
{
    return 1 + static_cast<int>(std::count(name.begin(), name.end(), '.'));
}

// How far in a line begins; a tab goes on to the next multiple of 8.
int indentation(std::string_view whole)
{
    int column = 0;
    for (const char c : whole) {
        if (c != ' ' && c != '\t')
            break;
        column = c == '\t' ? (column / 8 + 1) * 8 : column + 1;
    }
    return column;
}

class Parser {
  public:
    Parser(std::string_view text, Node into, HdfListener *listener)
        : text_(text), group_(into), listener_(listener)
    {
    }

    std::string run()
    {
        constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
        if (text_.starts_with(kByteOrderMark)) {
            at_ = kByteOrderMark.size();
            if (const std::string end =
                    mistaken({1, "a byte order mark: save the file without one", "", false});
                !end.empty())
                return end;
        }
        while (at_ < text_.size()) {
            const char *error = line(next_line());
            if (!error)
                continue;
            if (const std::string end = mistaken({line_number_, error, "", false}); !end.empty())
                return end;
        }
        if (open_.empty())
            return "";
        const HdfMistake mistake = missing_brace();
        if (listener_)
            listener_->mistaken(mistake);
        return text_of(mistake);
    }

  private:
    struct Outer {
        Node group; // what is around the brace
        int depth;
        std::size_t name_bytes;
        std::size_t line; // of the brace, its name and how far in it stands
        std::string_view name;
        int column;
        int inside = -1; // how far in its first line stands
    };

    // What ends the reading; empty: the listener goes on.
    std::string mistaken(const HdfMistake &mistake)
    {
        return listener_ && listener_->mistaken(mistake) ? "" : text_of(mistake);
    }

    static std::string text_of(const HdfMistake &mistake)
    {
        return "line " + std::to_string(mistake.line) + ": " + mistake.what;
    }

    // Groups are found by how they are indented: what stands no farther in than the group's own line, as what
    // stands in the group does, was not meant to be in it.
    void look_for_missing_brace(bool closes)
    {
        Outer &group = open_.back();
        if (group.inside < 0 && !closes)
            group.inside = column_;
        const bool outside = closes ? column_ < group.column : column_ <= group.column;
        if (outside && group.inside > group.column) {
            unclosed_ = group;
            outside_line_ = line_number_;
        }
    }

    HdfMistake missing_brace() const
    {
        const Outer &group = unclosed_ ? *unclosed_ : open_.back();
        std::string what = "the group \"" + std::string(group.name) + "\" has no closing brace";
        if (unclosed_)
            what += "; line " + std::to_string(outside_line_) + " does not look like a part of it";
        return {group.line, what, std::string(group.name), true};
    }

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
        column_ = indentation(whole);
        if (!open_.empty() && !unclosed_)
            look_for_missing_brace(text == "}");
        if (text == "}")
            return close();
        const std::string_view name = name_at(text);
        if (name.empty())
            return "it does not begin with a name";
        const std::string_view rest = trim(text.substr(name.size()));
        if (const char *why = beyond_ ? "" : beyond_limits(name, rest))
            return pass_over(rest, why);
        return is_tree_name(name) ? statement(name, rest) : "bad name";
    }

    // Returns what is wrong, or null.
    const char *beyond_limits(std::string_view name, std::string_view rest) const
    {
        if (depth_ + depth_of(name) > kMaxTreeDepth)
            return "nested too deeply";
        // What has a value is no API, but below one.
        const std::size_t last = rest.starts_with("{") ? name.size() : name.rfind('.') + 1;
        return name_bytes_ + last > kMaxNameBytes ? "the name is too long" : nullptr;
    }

    // A group that cannot be, with what is in it, is one mistake.
    const char *pass_over(std::string_view rest, const char *why)
    {
        const bool is_first = beyond_ == 0;
        beyond_ += rest.starts_with("{") ? 1 : 0;
        return is_first ? why : nullptr;
    }

    const char *statement(std::string_view name, std::string_view rest)
    {
        if (rest.starts_with("=")) {
            give(name, trim(rest.substr(1)));
            return nullptr;
        }
        if (rest == "{") {
            open(name);
            return nullptr;
        }
        if (rest.starts_with("<<"))
            return block(name, trim(rest.substr(2)));
        if (rest.starts_with("{")) {
            if (listener_) // it may want to go on
                open(name);
            return "text behind a brace";
        }
        if (rest.starts_with(":") || rest.starts_with("["))
            return "links and attributes are not supported";
        return "neither a value nor a group";
    }

    const char *close()
    {
        if (beyond_) {
            --beyond_;
            return nullptr;
        }
        if (open_.empty())
            return "a closing brace too many";
        group_ = open_.back().group;
        depth_ = open_.back().depth;
        name_bytes_ = open_.back().name_bytes;
        open_.pop_back();
        return nullptr;
    }

    void open(std::string_view name)
    {
        open_.push_back({group_, depth_, name_bytes_, line_number_, name, column_});
        depth_ += depth_of(name);
        name_bytes_ += name.size() + 1;
        if (!group_)
            return;
        group_ = group_.make(name);
        if (listener_)
            listener_->opened(group_, line_number_);
    }

    void give(std::string_view name, std::string_view value)
    {
        if (!group_)
            return;
        const std::size_t line = line_number_;
        group_.set(name, value);
        if (listener_)
            listener_->given(group_.find(name), line);
    }

    // Other readers of the format may see the mark in the middle of a line: it must stand nowhere else.
    const char *block(std::string_view name, std::string_view mark)
    {
        if (mark.empty())
            return "a block without a mark";
        const std::size_t begin = at_;
        while (at_ < text_.size()) {
            const std::size_t end = at_;
            const std::string_view found = next_line();
            if (found == mark) {
                give(name, text_.substr(begin, end - begin));
                return nullptr;
            }
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
    int column_ = 0; // of the line
    std::vector<Outer> open_;
    std::optional<Outer> unclosed_; // the first group that seems to have no closing brace
    std::size_t outside_line_ = 0;  // what tells
    Node group_;                    // what names are relative to
    int depth_ = 0;
    std::size_t name_bytes_ = 0; // of the groups that are open, with their dots
    std::size_t beyond_ = 0;     // groups that are open and beyond the limits
    HdfListener *listener_;
};

void write_value(std::string_view value, std::string &text)
{
    if (value.find('\n') == std::string_view::npos) {
        text.append(" = ").append(value).append("\n");
        return;
    }
    const std::string mark = hdf_block_mark(value);
    text.append(" << ").append(mark).append("\n").append(value);
    text.append(value.ends_with('\n') ? "" : "\n").append(mark).append("\n");
}

void write_below(Node node, std::size_t level, std::string &text)
{
    for (const Node child : node) {
        if (const auto value = child.value()) {
            text.append(2 * level, ' ').append(child.name());
            write_value(*value, text);
        }
        const std::size_t begin = text.size();
        text.append(2 * level, ' ').append(child.name()).append(" {\n");
        const std::size_t inside = text.size();
        write_below(child, level + 1, text);
        if (text.size() == inside)
            text.resize(begin); // a group with nothing in it
        else
            text.append(2 * level, ' ').append("}\n");
    }
}

} // namespace

std::string hdf_parse(std::string_view text, Node into, HdfListener *listener)
{
    return Parser(text, into, listener).run();
}

std::string hdf_block_mark(std::string_view value)
{
    std::size_t longest = 0;
    for (std::size_t at = value.find("EO"); at != std::string_view::npos; at = value.find("EO", at + 2)) {
        const std::size_t end = std::min(value.find_first_not_of('M', at + 2), value.size());
        longest = std::max(longest, end - at - 2);
    }
    return "EO" + std::string(longest + 1, 'M');
}

std::string hdf_text(Node node)
{
    std::string text;
    write_below(node, 0, text);
    return text;
}

} // namespace qvcd
