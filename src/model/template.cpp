#include "model/template.h"

#include "base/limits.h"
#include "base/text.h"
#include "funcs/read_map.h"
#include "platform/log.h"
#include "store/database.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace qvcd {

namespace {

constexpr std::string_view kMark = "__";

Walk check_expansion(Node node)
{
    return node.name().find(kMark) == std::string_view::npos ? Walk::descend : Walk::visit;
}

struct Range {
    std::int64_t start = 0;
    std::string source;
    std::int64_t step = 1;
    bool good = true; // the numbers are what they should be
};

// None where words are missing, and where the first number cannot be a name.
std::optional<Range> parse_range(std::string_view text)
{
    const std::vector<std::string> words = split_words(text, " \t\r\n");
    if (words.size() < 2 || c_int64(words[0]) < 0)
        return std::nullopt;
    Range range{.start = c_int64(words[0]), .source = words[1]};
    const auto step = words.size() > 2 ? parse_int64(words[2]) : range.step;
    range.step = step.value_or(1);
    range.good = parse_int64(words[0]) && step && *step > 0;
    return range;
}

// The last number: the count source is a number or an API whose value is one.
std::int64_t last_number(Request &request, const std::string &source)
{
    if (metaDB.find(source)) {
        if (const auto value = rfuncmap_read(request, source))
            return c_int64(*value);
    }
    return c_int64(source);
}

// A step that does not come closer to the last number makes one copy.
std::uint64_t count_copies(const Range &range, std::int64_t last)
{
    if (last < range.start)
        return 0;
    return range.step > 0 ? static_cast<std::uint64_t>((last - range.start) / range.step) + 1 : 1;
}

// `path` is the name of the node, in one buffer for all of them.
void expand_values(Node node, std::string &path, const std::string &number)
{
    if (const auto value = node.value(); value && value->find(kMark) != std::string_view::npos) {
        std::string text(*value);
        for (std::size_t at = text.find(kMark); at != std::string::npos; at = text.find(kMark)) {
            // The mark and the one character behind it make way for the number.
            text = cut(text.replace(at, kMark.size() + 1, number), kMaxValueBytes);
            qv_log_print(kLogTrace, "Expanding value %s=%s\n", path.c_str(), text.c_str());
        }
        node.set("", text);
    }
    const std::size_t size = path.size();
    for (const Node child : node) {
        path.append(".").append(child.name());
        expand_values(child, path, number);
        path.resize(size);
    }
}

// One run over the tree. The copies that it makes are expanded where they are made; met again as siblings of
// their template they are passed over, else the placeholders of an inner template, which by then hold the
// outer number, would overwrite its copies.
class Expansion {
  public:
    explicit Expansion(Request &request) : request_(request) {}

    void run_below(const std::string &parent)
    {
        for (const std::string &name : hdfutils_names(metaDB.find(parent), parent, check_expansion)) {
            if (!is_copy(name))
                expand_template(name);
        }
    }

  private:
    void expand_template(const std::string &name)
    {
        const std::size_t dot = name.rfind('.');
        const std::string parent = dot == std::string::npos ? std::string() : name.substr(0, dot);
        const auto text = meta_get(name, "range");
        if (!text)
            return;
        const auto range = parse_range(*text);
        if (!range || !range->good)
            complain(kLogWarning, name, "has a mistake in its range: " + *text);
        if (!range)
            return;
        const std::int64_t last = last_number(request_, range->source);
        const std::uint64_t copies = count_copies(*range, last);
        if (too_many(name, copies))
            return;
        const bool is_nested = !hdfutils_names(metaDB.find(name), name, check_expansion).empty();
        for (std::uint64_t i = 0; i < copies; ++i) {
            const std::string number =
                std::to_string(range->start + static_cast<std::int64_t>(i) * range->step);
            std::string copy = join_name(parent, number);
            metaDB.root().merge(copy, metaDB.find(name));
            if (is_nested)
                run_below(copy);
            expand_values(metaDB.find(copy), copy, number);
            copies_.insert(std::move(copy));
        }
        qv_log_print(kLogDebug, "Expanding node %s for %s-%s\n", name.c_str(),
                     std::to_string(range->start).c_str(), std::to_string(last).c_str());
    }

    bool too_many(const std::string &name, std::uint64_t copies)
    {
        if (copies <= kMaxTemplateCopies && promised_ + copies <= kMaxCopiesOfOneRun) {
            promised_ += copies;
            return false;
        }
        complain(kLogError, name, "asks for " + std::to_string(copies) + " copies, which is too many");
        return true;
    }

    void complain(int priority, const std::string &name, const std::string &what)
    {
        if (complaints_++ < kMaxComplaints)
            qv_log_print(priority, "Template %s %s\n", name.c_str(), what.c_str());
    }

    bool is_copy(const std::string &name) const
    {
        for (std::size_t end = name.size(); end != std::string::npos && end > 0;
             end = name.rfind('.', end - 1)) {
            if (copies_.count(name.substr(0, end)))
                return true;
        }
        return false;
    }

    // A template within another is met again in each copy of the outer one.
    static constexpr int kMaxComplaints = 10;

    Request &request_;
    std::set<std::string> copies_;
    std::uint64_t promised_ = 0;
    int complaints_ = 0;
};

} // namespace

int dyngroup_expand_meta(Request &request)
{
    Expansion(request).run_below("");
    return 0;
}

} // namespace qvcd
