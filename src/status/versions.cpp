#include "status/versions.h"

#include "base/kv_file.h"
#include "base/limits.h"
#include "platform/log.h"
#include "platform/small_file.h"
#include "platform/sysroot.h"

#include <algorithm>
#include <cstdlib>

namespace qvcd {

namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";
constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kKernelMark = "Linux version";

// Takes a decimal number with an optional sign off the front; false when there is none.
bool skip_number(std::string_view &text)
{
    std::string_view rest = text;
    if (rest.starts_with('-') || rest.starts_with('+'))
        rest.remove_prefix(1);
    const std::size_t digits = std::min(rest.find_first_not_of(kDigits), rest.size());
    if (digits == 0)
        return false;
    text = rest.substr(digits);
    return true;
}

std::string_view skip_blanks(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text;
}

// The word behind the build number.
std::string_view suffix_of(std::string_view build)
{
    build = skip_blanks(build);
    if (!skip_number(build))
        return {};
    build = skip_blanks(build);
    return build.substr(0, build.find_first_of(kBlanks));
}

std::string version_text(std::string_view release)
{
    const std::size_t mark = release.find('r');
    std::string head(release.substr(0, mark));
    if (mark == std::string_view::npos)
        return head;
    const std::string_view suffix = suffix_of(release.substr(mark + 1));
    if (suffix.empty())
        return head;
    if (suffix.starts_with("rc") || suffix.starts_with("RC")) {
        const std::string_view number = suffix.substr(2);
        if (std::string_view rest = number; skip_number(rest))
            return head + "rc" + std::to_string(std::strtoll(std::string(number).c_str(), nullptr, 10));
    }
    return head + "BETA";
}

std::optional<std::string> kernel_release(std::string_view text)
{
    const std::string_view line = text.substr(0, text.find('\n'));
    const std::size_t start = kKernelMark.size() + 1;
    if (line.size() <= start || line[start] == ' ')
        return std::nullopt;
    const std::string_view word = line.substr(start);
    return std::string(word.substr(0, word.find(' ')));
}

} // namespace

std::optional<std::string> version_rfunc(Request &, const char *file, const char *attr)
{
    const auto release = file ? kv_read(qv_sysroot_path(file), attr ? attr : "") : std::nullopt;
    return release ? std::optional(version_text(*release)) : std::nullopt;
}

std::optional<std::string> linux_version_rfunc(Request &, const char *file, const char *attr)
{
    const auto text = file ? read_small_file(file, kMaxFileLineBytes) : std::nullopt;
    if (!text)
        return std::nullopt;
    auto release = attr && attr == kKernelMark ? kernel_release(*text) : std::nullopt;
    if (!release)
        qv_log_print(kLogTrace, "Can't find %s in %s\n", attr ? attr : "(null)", file);
    return release;
}

} // namespace qvcd
