#include "change/plan.h"

#include "base/command_lock.h"
#include "change/unified_diff.h"
#include "platform/sysroot.h"
#include "store/api.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

namespace qvcd {

namespace {

// The keys of a file that APIs know.
struct Keys {
    std::set<std::string> hidden; // whose values are not shown
    std::set<std::string> shown;
};

// Those of each file: by the name under which APIs know it.
class KeysOfFiles {
  public:
    // Under the command lock.
    explicit KeysOfFiles(const Request &request)
    {
        visit_apis("", [&](const Api &api) {
            const bool is_shown = !api.is_secret() && api.visible_to(request.mask);
            const MetaApi meta(api.name());
            for (const char *attribute : {"file", "shadow"}) {
                if (const auto file = meta.get(attribute)) {
                    Keys &keys = keys_[std::string(*file)];
                    (is_shown ? keys.shown : keys.hidden).emplace(meta.get("attr").value_or(""));
                }
            }
        });
    }
    // Of all files that are the same one.
    Keys of(const std::string &file) const
    {
        Keys all;
        const std::string real = real_path(file);
        for (const auto &[name, keys] : keys_) {
            if (name != file && real_path(name) != real)
                continue;
            all.hidden.insert(keys.hidden.begin(), keys.hidden.end());
            all.shown.insert(keys.shown.begin(), keys.shown.end());
        }
        return all;
    }

  private:
    static std::string real_path(const std::string &file)
    {
        std::string path;
        return real_file(qv_sysroot_path(file), path) == 0 ? path : qv_sysroot_path(file);
    }

    std::map<std::string, Keys> keys_;
};

bool is_word(char c)
{
    return is_ascii_alnum(c) || c == '_' || c == '-' || c == '.';
}

// Where the key, as a word, ends in the line, wherever it stands: in a comment it may have had the value
// once. All values of a file without keys are of an empty one.
std::optional<std::size_t> end_of_key(std::string_view line, std::string_view key)
{
    if (key.empty())
        return 0;
    for (std::size_t at = line.find(key); at != std::string_view::npos; at = line.find(key, at + 1)) {
        const std::size_t end = at + key.size();
        const bool begins = at == 0 || !is_word(line[at - 1]);
        if (begins && end < line.size() && !is_word(line[end]))
            return end;
    }
    return std::nullopt;
}

std::string without_value(std::string_view line, std::string_view key)
{
    const auto end = end_of_key(line, key);
    if (!end)
        return std::string(line);
    return *end == 0 ? kHiddenPassword : std::string(line.substr(0, *end)) + "=" + kHiddenPassword;
}

// Also a line that changes may be of something else, which has only got a newline.
bool is_of_setting(std::string_view line, const Keys &keys)
{
    if (line.starts_with('#'))
        line.remove_prefix(1);
    return std::ranges::any_of(keys.shown,
                               [&](const std::string &key) { return end_of_key(line, key) == key.size(); });
}

std::string diff_of(const FileWrites::Rewrite &rewrite, const Keys &keys, bool show_all)
{
    const auto show = [&](char mark, std::string_view line) {
        const bool is_shown = show_all || (mark != ' ' && is_of_setting(line, keys));
        std::string shown(is_shown ? line : std::string_view(kHiddenPassword));
        for (const std::string &key : keys.hidden)
            shown = without_value(shown, key);
        return shown;
    };
    if (rewrite.is_device) // what it reads as is no text that the line replaces
        return unified_diff("", rewrite.after, show);
    return unified_diff(rewrite.before.value_or(""), rewrite.after, show);
}

std::vector<Report::File> files_of(FileWrites &writes, const KeysOfFiles &keys, bool show_all)
{
    const Unlocked unlocked;
    std::vector<Report::File> files;
    for (const FileWrites::Rewrite &rewrite : writes.rewrites())
        files.push_back({rewrite.file, diff_of(rewrite, keys.of(rewrite.file), show_all)});
    return files;
}

} // namespace

Report plan(const Request &request, const Proposal &proposal)
{
    Report report;
    report.errors = proposal.refused;
    if (!report.errors.empty())
        return report;
    for (const Proposed &p : proposal.values)
        report.values.push_back(shown_change(p));
    const Actions actions = proposal.actions();
    for (const Actions::Action &action : actions.all())
        report.actions.push_back({action.call, 0});
    const std::unique_ptr<FileWrites> writes = proposal.writes();
    const KeysOfFiles keys(request);
    writes->prepare();
    std::size_t number = 0;
    for (const Proposed &p : proposal.values) {
        if (p.saves && writes->result(number++) == FileWrites::Result::failed)
            report.errors.push_back({p.api, kSaveFailed});
    }
    report.files = files_of(*writes, keys, (request.mask & kLevel1Bits) != 0);
    return report;
}

} // namespace qvcd
