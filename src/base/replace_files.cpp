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
#include <fcntl.h>
#include <map>
#include <mutex>
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

void cancel(const std::vector<FileChange> &changes, FileSet::Extent extent, Errors &errors)
{
    const bool all = extent == FileSet::Extent::all;
    if (all && std::ranges::any_of(errors, [](int error) { return error != 0; }))
        std::ranges::replace(errors, 0, ECANCELED);
    for (std::size_t i = 0; i < changes.size(); ++i) {
        if (!errors[i] && is_canceled(changes[i], errors))
            errors[i] = ECANCELED;
    }
}

// The folders of a set. They are opened before their names change: what keeps one from being flushed is
// better known then.
class Folders {
  public:
    int open(const std::string &folder)
    {
        const auto [known, fresh] = folders_.try_emplace(folder);
        if (!fresh)
            return known->second.error;
        known->second.fd.reset(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        known->second.error = known->second.fd ? 0 : errno;
        if (folders_.size() > kFilesAtOnce)
            known->second.fd.reset();
        return known->second.error;
    }
    /// Each once, after what changed in it.
    int flush(const std::string &folder)
    {
        Folder &known = folders_[folder];
        if (!known.flushed && !known.error)
            known.error = known.fd ? flush_folder(folder, known.fd.get()) : flush_folder(folder);
        known.flushed = true;
        return known.error;
    }
    void changed()
    {
        for (auto &[path, folder] : folders_)
            folder.flushed = false;
    }

  private:
    struct Folder {
        Fd fd;
        int error = 0;
        bool flushed = false;
    };
    std::map<std::string, Folder> folders_;
};

void flush(Folders &folders, const Replacements &files, Errors &errors)
{
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (!errors[i] && !files[i].in_place())
            errors[i] = folders.flush(folder_of(files[i].target()));
    }
}

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

// Entries of a journal that could not be emptied, whose new texts could not be removed: a start would finish
// them, even over what came later. So they count as done and are finished before that.
class Standing {
  public:
    void add(const JournalEntry &entry)
    {
        const std::scoped_lock lock(mutex_);
        entries_.push_back(entry);
    }
    void settle()
    {
        const std::scoped_lock lock(mutex_);
        std::erase_if(entries_, [](const JournalEntry &entry) {
            const FileText text = read_whole_file(entry.new_path);
            return text.missing() || (!text.error && finish(entry, text) &&
                                      (unlink(entry.new_path.c_str()) == 0 || errno == ENOENT));
        });
    }
    bool is_empty()
    {
        const std::scoped_lock lock(mutex_);
        return entries_.empty();
    }
    bool holds(const std::string &target)
    {
        const std::scoped_lock lock(mutex_);
        return std::ranges::find(entries_, target, &JournalEntry::target) != entries_.end();
    }

  private:
    std::mutex mutex_;
    std::vector<JournalEntry> entries_;
};

Standing &standing()
{
    static auto *const entries = new Standing; // threads may be left behind at the exit
    return *entries;
}

// Before new texts go that the journal names: a power cut must not bring it back with them.
void forget(Journal &journal, const std::vector<JournalEntry> &entries, Replacements &files,
            std::vector<FileResult> &results)
{
    const int error = journal.forget();
    if (!error)
        return;
    for (const JournalEntry &entry : entries) {
        const auto file = std::ranges::find(files, entry.new_path, &Replacement::new_path);
        if (file == files.end())
            continue;
        FileResult &result = results[static_cast<std::size_t>(file - files.begin())];
        if (!result.error)
            result.error = error;
        if (file->drop() != 0) {
            standing().add(entry);
            result.changed = true;
        }
    }
}

} // namespace

std::vector<FileResult> FileSet::commit(Extent extent)
{
    const Unlocked unlocked;
    return commit_here(extent);
}

std::vector<FileResult> FileSet::commit_here(Extent extent)
{
    standing().settle();
    Replacements files(changes_.begin(), changes_.end());
    Errors errors(files.size(), 0);
    Folders folders;
    prepare(files, errors);
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (!errors[i] && standing().holds(files[i].target()))
            errors[i] = EIO;
        if (!errors[i] && !files[i].in_place())
            errors[i] = folders.open(folder_of(files[i].target()));
    }
    cancel(changes_, extent, errors);
    std::vector<JournalEntry> entries = journal_entries(files, errors);
    if (!entries.empty()) { // what the journal names must be there after a power cut
        flush(folders, files, errors);
        for (const Replacement &file : files) {
            if (file.in_place() && !file.new_path().empty())
                folders.flush(folder_of(file.new_path()));
        }
        folders.changed();
        cancel(changes_, extent, errors);
        entries = journal_entries(files, errors);
    }
    Journal journal(entries);
    std::vector<FileResult> results(files.size());
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (!errors[i])
            errors[i] = is_canceled(changes_[i], errors) ? ECANCELED : files[i].put();
        results[i].changed = errors[i] == 0;
    }
    flush(folders, files, errors);
    for (std::size_t i = 0; i < files.size(); ++i)
        results[i].error = errors[i];
    const bool failed = std::ranges::any_of(errors, [](int error) { return error != 0; });
    if (!entries.empty() &&
        (failed || !std::ranges::all_of(files, &std::string::empty, &Replacement::new_path)))
        forget(journal, entries, files, results);
    return results;
}

void settle_file_sets()
{
    standing().settle();
}

bool is_flushed(const std::string &path)
{
    if (all_folders_flushed() && standing().is_empty())
        return true;
    std::string real;
    return real_file(path, real) == 0 && is_folder_flushed(folder_of(real)) && !standing().holds(real);
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
