#include "change/unified_diff.h"

#include "base/text.h"

#include <dtl/dtl.hpp>
#include <vector>

namespace qvcd {

namespace {

constexpr std::size_t kMaxBytes = std::size_t{4} << 20;
constexpr std::string_view kNoNewline = "\\ No newline at end of file\n";

using Lines = std::vector<std::string_view>;
using Diff = dtl::Diff<std::string_view, Lines>;

// Each with its newline, so that one without differs from one with it.
Lines lines_of(std::string_view text)
{
    Lines lines;
    while (!text.empty()) {
        const std::size_t size = std::min(text.find('\n'), text.size() - 1) + 1;
        lines.push_back(text.substr(0, size));
        text.remove_prefix(size);
    }
    return lines;
}

class Hunks {
  public:
    explicit Hunks(const LineView &show) : show_(show) {}

    // A side without lines is told as standing behind line 0.
    void begin(long long before, long long before_lines, long long after, long long after_lines)
    {
        text_ += "@@ -" + range(before, before_lines) + " +" + range(after, after_lines) + " @@\n";
    }
    void line(char mark, std::string_view line)
    {
        const bool ends = line.ends_with('\n');
        text_ += mark + one_line(show_(mark, line.substr(0, line.size() - (ends ? 1 : 0)))) + "\n";
        if (!ends)
            text_ += kNoNewline;
    }
    std::string text() && { return std::move(text_); }

  private:
    static std::string range(long long first, long long lines)
    {
        return std::to_string(lines == 0 ? 0 : first) + "," + std::to_string(lines);
    }

    const LineView &show_;
    std::string text_;
};

char mark_of(dtl::edit_t type)
{
    return type == dtl::SES_ADD ? '+' : type == dtl::SES_DELETE ? '-' : ' ';
}

} // namespace

std::string unified_diff(std::string_view before, std::string_view after, const LineView &show)
{
    if (before == after)
        return {};
    if (before.size() + after.size() > kMaxBytes)
        return "@@ too long to be compared: " + std::to_string(before.size()) + " and " +
               std::to_string(after.size()) + " bytes @@\n";
    Diff diff(lines_of(before), lines_of(after));
    diff.compose();
    diff.composeUnifiedHunks();
    Hunks hunks(show);
    for (const auto &hunk : diff.getUniHunks()) {
        hunks.begin(hunk.a, hunk.b, hunk.c, hunk.d);
        for (const auto *part : {&hunk.common[0], &hunk.change, &hunk.common[1]}) {
            for (const auto &[line, info] : *part)
                hunks.line(mark_of(info.type), line);
        }
    }
    return std::move(hunks).text();
}

} // namespace qvcd
