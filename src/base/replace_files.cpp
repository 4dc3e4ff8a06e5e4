#include "base/replace_files.h"

#include "base/command_lock.h"
#include "base/file_text.h"
#include "base/replace_journal.h"
#include "base/replacement.h"
#include "platform/log.h"
#include "platform/sysroot.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <unistd.h>

namespace qvcd {

namespace {

constexpr std::size_t kFilesAtOnce = 64; // that are open; more gains nothing

using Replacements = std::deque<Replacement>;
using Errors = std::vector<int>;

// All are written before the first is waited for: the disk takes them together.
void prepare(Replacements &files, Errors &errors)
{
    for (std::size_t first = 0; first < files.size(); first += kFilesAtOnce) {
        const std::size_t end = std::min(first + kFilesAtOnce, files.size());
        for (std::size_t i = first; i < end; ++i)
            errors[i] = files[i].prepare();
        for (std::size_t i = first; i < end; ++i) {
            if (!errors[i])
                errors[i] = files[i].flush();
        }
    }
}

// What a crash must not leave half done: several renames, or writing in place.
std::vector<JournalEntry> journal_entries(const Replacements &files, const Errors &errors)
{
    std::vector<JournalEntry> entries;
    bool tears = false;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const Replacement &file = files[i];
        if (errors[i] || file.new_path().empty())
            continue;
        entries.push_back({file.new_path(), file.target(), file.text().size(), text_hash(file.text())});
        tears |= file.in_place();
    }
    if (entries.size() < 2 && !tears)
        entries.clear();
    return entries;
}

bool is_canceled(const FileChange &change, const Errors &errors)
{
    return std::ranges::any_of(change.after, [&](std::size_t before) { return errors[before] != 0; });
}

void cancel(const std::vector<FileChange> &changes, Errors &errors)
{
    for (std::size_t i = 0; i < changes.size(); ++i) {
        if (!errors[i] && is_canceled(changes[i], errors))
            errors[i] = ECANCELED;
    }
}

class Folders {
  public:
    int flush(const std::string &folder)
    {
        const auto [known, fresh] = flushed_.try_emplace(folder, 0);
        if (fresh)
            known->second = flush_folder(folder);
        return known->second;
    }

  private:
    std::map<std::string, int> flushed_; // and what failed
};

bool finish(const JournalEntry &entry, const FileText &text)
{
    if (folder_of(entry.new_path) == folder_of(entry.target) &&
        rename(entry.new_path.c_str(), entry.target.c_str()) == 0)
        return flush_folder(folder_of(entry.target)) == 0;
    return !text.error && write_in_place(entry.target, text.text) == 0;
}

bool recover(const JournalEntry &entry)
{
    const FileText text = read_whole_file(entry.new_path);
    if (text.missing())
        return false; // it has its place already
    const bool torn = !text.error && (text.text.size() != entry.size || text_hash(text.text) != entry.hash);
    const bool finished = !torn && (finish(entry, text) || finish(entry, text));
    unlink(entry.new_path.c_str());
    qv_log_print(finished ? kLogNotice : kLogError, "%s the replacement of %s that was cut off\n",
                 finished ? "Finished" : "Can not finish", qv_device_path(entry.target).c_str());
    return finished;
}

} // namespace

std::vector<int> FileSet::commit()
{
    const Unlocked unlocked;
    return commit_here();
}

std::vector<int> FileSet::commit_here()
{
    Replacements files(changes_.begin(), changes_.end());
    Errors errors(files.size(), 0);
    prepare(files, errors);
    cancel(changes_, errors);
    const std::vector<JournalEntry> entries = journal_entries(files, errors);
    Folders before;
    for (const JournalEntry &entry : entries) // what the journal names must be there after a power cut
        before.flush(folder_of(entry.new_path));
    const Journal journal(entries);
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (!errors[i])
            errors[i] = is_canceled(changes_[i], errors) ? ECANCELED : files[i].put();
    }
    Folders after;
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (!errors[i] && !files[i].in_place())
            errors[i] = after.flush(folder_of(files[i].target()));
    }
    if (!entries.empty() && std::ranges::any_of(errors, [](int error) { return error != 0; }))
        forget_journal(); // before what it names goes: a power cut must not bring it back
    return errors;
}

int recover_file_sets()
{
    const std::string path = qv_sysroot_path(kJournal);
    FileText text = read_whole_file(path);
    if (text.error && !text.missing())
        text = read_whole_file(path); // what was short may be there now
    if (text.error && !text.missing())
        qv_log_print(kLogError, "Can not read %s: %s. A save may be half done\n", kJournal,
                     std::strerror(text.error));
    if (text.error || text.text.empty())
        return 0;
    const auto entries = parse_journal(text.text);
    if (!entries)
        qv_log_print(kLogNotice, "%s is not whole: no file was replaced yet\n", kJournal);
    const auto finished =
        entries ? std::count_if(entries->begin(), entries->end(), recover) : std::ptrdiff_t{0};
    forget_journal();
    return static_cast<int>(finished);
}

} // namespace qvcd
