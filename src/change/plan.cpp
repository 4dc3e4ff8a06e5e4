#include "change/plan.h"

#include "base/command_lock.h"
#include "change/unified_diff.h"
#include "platform/sysroot.h"
#include "store/api.h"

#include <map>
#include <set>

namespace qvcd {

namespace {

// The keys whose values are not shown, of each file: by the name under which APIs know it.
class HiddenKeys {
  public:
    // Under the command lock.
    explicit HiddenKeys(const Request &request)
    {
        visit_apis("", [&](const Api &api) {
            if (!api.is_secret() && api.readable_by(request.mask))
                return;
            const MetaApi meta(api.name());
            for (const char *attribute : {"file", "shadow"}) {
                if (const auto file = meta.get(attribute))
                    keys_[std::string(*file)].insert(std::string(meta.get("attr").value_or("")));
            }
        });
    }
    // Of all files that are the same one.
    std::set<std::string> of(const std::string &file) const
    {
        std::set<std::string> keys;
        const std::string real = real_path(file);
        for (const auto &[name, its_keys] : keys_) {
            if (name == file || real_path(name) == real)
                keys.insert(its_keys.begin(), its_keys.end());
        }
        return keys;
    }

  private:
    static std::string real_path(const std::string &file)
    {
        std::string path;
        return real_file(qv_sysroot_path(file), path) == 0 ? path : qv_sysroot_path(file);
    }

    std::map<std::string, std::set<std::string>> keys_;
};

bool is_word(char c)
{
    return is_ascii_alnum(c) || c == '_' || c == '-' || c == '.';
}

// The line up to the key, wherever it stands as a word: in a comment it may have had the value once.
std::string without_value(std::string_view line, std::string_view key)
{
    if (key.empty())
        return kHiddenPassword;
    for (std::size_t at = line.find(key); at != std::string_view::npos; at = line.find(key, at + 1)) {
        const std::size_t end = at + key.size();
        const bool begins = at == 0 || !is_word(line[at - 1]);
        if (begins && end < line.size() && !is_word(line[end]))
            return std::string(line.substr(0, end)) + "=" + kHiddenPassword;
    }
    return std::string(line);
}

std::string diff_of(const FileWrites::Rewrite &rewrite, const std::set<std::string> &keys, bool show_context)
{
    const auto show = [&](char mark, std::string_view line) {
        std::string shown(mark == ' ' && !show_context ? std::string_view(kHiddenPassword) : line);
        for (const std::string &key : keys)
            shown = without_value(shown, key);
        return shown;
    };
    if (rewrite.is_device) // what it reads as is no text that the line replaces
        return unified_diff("", rewrite.after, show);
    return unified_diff(rewrite.before.value_or(""), rewrite.after, show);
}

std::vector<Report::File> files_of(FileWrites &writes, const HiddenKeys &hidden, bool show_context)
{
    const Unlocked unlocked;
    std::vector<Report::File> files;
    for (const FileWrites::Rewrite &rewrite : writes.rewrites())
        files.push_back({rewrite.file, diff_of(rewrite, hidden.of(rewrite.file), show_context)});
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
    const HiddenKeys hidden(request);
    writes->prepare();
    std::size_t number = 0;
    for (const Proposed &p : proposal.values) {
        if (p.saves && writes->result(number++) == FileWrites::Result::failed)
            report.errors.push_back({p.api, kSaveFailed});
    }
    report.files = files_of(*writes, hidden, (request.mask & kLevel1Bits) != 0);
    return report;
}

} // namespace qvcd
