#include "model/template.h"

#include "base/limits.h"
#include "base/text.h"
#include "funcs/read_map.h"
#include "platform/log.h"
#include "store/database.h"

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
    int start = 0;
    std::string source;
    int step = 1;
};

std::optional<Range> parse_range(std::string_view text)
{
    const std::vector<std::string> words = split_words(text, " \t\r\n");
    if (words.size() < 2)
        return std::nullopt;
    return Range{c_int(words[0]), words[1], words.size() > 2 ? c_int(words[2]) : 1};
}

// The last number: the count source is a number or an API whose value is one.
int last_number(Request &request, const std::string &source)
{
    if (metaDB.find(source)) {
        if (const auto value = rfuncmap_read(request, source))
            return c_int(*value);
    }
    return c_int(source);
}

void expand_values(Node node, const std::string &name, const std::string &number)
{
    if (const auto value = node.value(); value && value->find(kMark) != std::string_view::npos) {
        std::string text(*value);
        for (std::size_t at = text.find(kMark); at != std::string::npos; at = text.find(kMark)) {
            // The mark and the one character behind it make way for the number.
            text = cut(text.replace(at, kMark.size() + 1, number), kMaxValueBytes);
            qv_log_print(kLogTrace, "Expanding value %s=%s\n", name.c_str(), text.c_str());
        }
        node.set("", text);
    }
    for (const Node child : node)
        expand_values(child, join_name(name, child.name()), number);
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
        const auto range = text ? parse_range(*text) : std::nullopt;
        if (!range)
            return;
        const int last = last_number(request_, range->source);
        if (too_many(name, *range, last))
            return;
        for (long i = range->start; i <= last; i += range->step) {
            add_template(name, parent, std::to_string(i));
            if (range->step <= 0)
                break; // it does not come closer to the last number
        }
        qv_log_print(kLogDebug, "Expanding node %s for %d-%d\n", name.c_str(), range->start, last);
    }

    bool too_many(const std::string &name, const Range &range, int last)
    {
        if (range.step <= 0 || last < range.start)
            return false;
        const long copies = (static_cast<long>(last) - range.start) / range.step + 1;
        if (copies <= kMaxTemplateCopies && promised_ + copies <= kMaxCopiesOfOneRun) {
            promised_ += copies;
            return false;
        }
        if (refused_++ < kMaxRefusalsLogged)
            qv_log_print(kLogError, "Template %s asks for %ld copies, which is too many\n", name.c_str(),
                         copies);
        return true;
    }

    void add_template(const std::string &name, const std::string &parent, const std::string &number)
    {
        const std::string copy = join_name(parent, number);
        metaDB.root().merge(copy, metaDB.find(name));
        run_below(copy);
        expand_values(metaDB.find(copy), copy, number);
        copies_.insert(copy);
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

    // Templates nested in each other multiply, and each copy costs some kilobytes.
    static constexpr long kMaxCopiesOfOneRun = 2L * kMaxTemplateCopies;

    // A template within another is refused again in each copy of the outer one.
    static constexpr int kMaxRefusalsLogged = 10;

    Request &request_;
    std::set<std::string> copies_;
    long promised_ = 0;
    int refused_ = 0;
};

} // namespace

int dyngroup_expand_meta(Request &request)
{
    Expansion(request).run_below("");
    return 0;
}

} // namespace qvcd
