#include "funcs/file_writes.h"

#include "base/command_lock.h"
#include "base/file_text.h"
#include "base/text.h"
#include "funcs/func_map.h"
#include "platform/counters.h"
#include "platform/sysroot.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <sys/stat.h>

namespace qvcd {

namespace {

constexpr unsigned kNewMode = 0666; // less the umask
constexpr unsigned kSecretMode = 0600;

// The permissions of a file; none when it does not exist.
std::optional<unsigned> mode_of(const std::string &path)
{
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? std::optional(st.st_mode & 0777U) : std::nullopt;
}

using ValuesByWriter = std::vector<std::pair<const TextWriter *, Values>>;

Values &values_of(ValuesByWriter &all, const TextWriter &writer)
{
    const auto known = std::ranges::find(all, &writer, &ValuesByWriter::value_type::first);
    return known != all.end() ? known->second : all.emplace_back(&writer, Values{}).second;
}

bool is_missing(int error)
{
    return error == ENOENT || error == ENOTDIR;
}

} // namespace

void FileWrites::refuse(Entry &entry, const char *why)
{
    entry.refused = true;
    failures_.push_back({entry.api, why});
}

void FileWrites::fail(const std::string &file, const std::vector<Entry *> &entries, int error,
                      const char *what)
{
    for (Entry *entry : entries)
        entry->result = Result::failed;
    failures_.push_back({file, std::string(what) + std::strerror(error)});
}

void FileWrites::add(const std::string &api, const std::string &value, When when)
{
    MetaApi meta(api);
    const auto text_of = [&](const char *attribute) { return own_copy(meta.get(attribute)).value_or(""); };
    add_entry({api,
               text_of("file"),
               text_of("shadow"),
               {text_of("attr"), value},
               &write_row(text_of("write")),
               when,
               meta.is_password()});
}

void FileWrites::add_to(const std::string &file, std::string_view write, const KeyValue &pair)
{
    add_entry({pair.key, file, {}, pair, &write_row(write), When::always, false});
}

void FileWrites::add_entry(Entry added)
{
    Entry &entry = entries_.emplace_back(std::move(added));
    const auto &[key, value] = entry.pair;
    qv_log_print(kLogTrace, "wfuncmap_write: %s %s(%s %s %s)\n", entry.api.c_str(), entry.row->name.data(),
                 entry.file.c_str(), key.c_str(), entry.secret ? kHiddenPassword : value.c_str());
    if (entry.row->kind == WriteKind::none) {
        entry.refused = true;
        if (entry.row->name == "undefined")
            qv_log_print(kLogError, "Undefined write function: src:%s dst:%s attr:%s\n", key.c_str(),
                         entry.file.c_str(), key.c_str());
        return;
    }
    if (entry.row->kind != WriteKind::text)
        return;
    if (entry.file.empty())
        refuse(entry, "it has no file");
    else if (const char *why = entry.row->text->refuses(key, value))
        refuse(entry, why);
    else if (entry.row->text->settings)
        settings_ = entry.row->text->settings();
}

// Two names of one file are one target: each value must find the others in the text.
std::vector<FileWrites::Target> FileWrites::targets()
{
    std::vector<Target> targets;
    std::map<std::string, std::size_t> by_name;
    std::map<std::string, std::size_t> by_real_file;
    for (Entry &entry : entries_) {
        if (entry.refused || entry.row->kind != WriteKind::text)
            continue;
        const auto [known, fresh] = by_name.try_emplace(entry.file, targets.size());
        if (fresh) {
            std::string path;
            real_file(qv_sysroot_path(entry.file), path);
            const auto [real, first] = by_real_file.try_emplace(path, targets.size());
            known->second = real->second;
            if (first)
                targets.push_back({entry.file, {}});
        }
        targets[known->second].entries.push_back(&entry);
    }
    return targets;
}

std::size_t FileWrites::add_part(Target part, FileChange change)
{
    for (Entry *entry : part.entries)
        entry->result = Result::written; // unless it fails
    parts_.push_back(std::move(part));
    return set_.add(std::move(change));
}

// Their numbers in the set.
std::vector<std::size_t> FileWrites::add_shadows(const std::vector<Entry *> &entries, const std::string &text,
                                                 unsigned mode)
{
    std::map<std::string, std::vector<Entry *>> shadows;
    for (Entry *entry : entries) {
        if (!entry->shadow.empty())
            shadows[entry->shadow].push_back(entry);
    }
    std::vector<std::size_t> numbers;
    for (auto &[file, its_entries] : shadows) {
        const std::string path = qv_sysroot_path(file);
        const FileText old = read_whole_file(path);
        if (old.error || old.text != text || !is_flushed(path))
            numbers.push_back(add_part({file, std::move(its_entries), old}, {path, text, mode}));
    }
    return numbers;
}

void FileWrites::add_text(const Target &target)
{
    const std::string path = qv_sysroot_path(target.file);
    const FileText old = read_whole_file(path);
    if (old.error && !old.missing())
        return fail(target.file, target.entries, old.error, "reading: ");
    std::vector<Entry *> entries;
    ValuesByWriter by_writer;
    std::set<std::string_view> given;
    bool secret = false;
    for (Entry *entry : target.entries) {
        const TextWriter &writer = *entry->row->text;
        const bool is_first = given.insert(entry->pair.key).second;
        if (entry->when == When::absent && (!is_first || writer.holds(old.text, entry->pair.key))) {
            const bool same = writer.rewrite(old.text, {{entry->pair}, {}}) == old.text;
            entry->result = same ? Result::written : Result::kept;
            continue;
        }
        entry->result = Result::written;
        entries.push_back(entry);
        values_of(by_writer, writer).given.push_back(entry->pair);
        secret |= entry->secret;
    }
    if (entries.empty())
        return;
    std::string text = old.text;
    for (auto &[writer, values] : by_writer) {
        values.otherwise = settings_;
        text = writer->rewrite(text, values);
    }
    const unsigned mode = secret ? kSecretMode : kNewMode;
    // Without its shadows a file is not written: they would not follow any more.
    std::vector<std::size_t> shadows =
        add_shadows(entries, text, secret ? mode : mode_of(path).value_or(mode));
    if (old.missing() || text != old.text || !is_flushed(path))
        add_part({target.file, std::move(entries), old},
                 {path, std::move(text), mode, FileChange::Kind::plain, std::move(shadows)});
}

// Not compared with what is there: a device's line is a request even when it reads the same.
void FileWrites::add_device(Entry &entry)
{
    const std::string line = entry.pair.value + "\n";
    entry.result = Result::written;
    add_shadows({&entry}, line, entry.secret ? kSecretMode : kNewMode);
    if (!entry.file.empty())
        add_part({entry.file, {&entry}},
                 {qv_sysroot_path(entry.file), line, kNewMode, FileChange::Kind::device});
}

void FileWrites::prepare()
{
    const Unlocked unlocked;
    is_prepared_ = true;
    for (const Target &target : targets())
        add_text(target);
    for (Entry &entry : entries_) {
        if (!entry.refused && entry.row->kind == WriteKind::device)
            add_device(entry);
        else if (!entry.refused && entry.row->kind == WriteKind::call)
            entry.result = Result::written; // unless it fails
    }
}

std::vector<FileWrites::Rewrite> FileWrites::rewrites() const
{
    std::vector<Rewrite> rewrites;
    for (std::size_t i = 0; i < parts_.size(); ++i) {
        const FileChange &change = set_.changes()[i];
        const FileText &before = parts_[i].before;
        rewrites.push_back({parts_[i].file, before.error ? std::nullopt : std::optional(before.text),
                            before.missing() ? 0 : before.error, change.text,
                            change.kind == FileChange::Kind::device});
    }
    return rewrites;
}

bool FileWrites::has_failed() const
{
    return std::ranges::any_of(entries_, [](const Entry &e) { return e.result == Result::failed; });
}

void FileWrites::write(Extent extent)
{
    const std::vector<FileResult> results = set_.commit_here(extent);
    for (std::size_t i = 0; i < results.size(); ++i) {
        const Target &part = parts_[i];
        const int error = results[i].error;
        const bool no_device = is_missing(error) && part.entries.front()->row->kind == WriteKind::device &&
                               part.file == part.entries.front()->file;
        if (error && !no_device)
            fail(part.file, part.entries, error, "");
    }
}

void FileWrites::commit(Extent extent)
{
    commit_entries(extent);
    for (const Entry &entry : entries_)
        ++(entry.result == Result::failed ? counters.failed_saves : counters.saves);
}

void FileWrites::commit_entries(Extent extent)
{
    const Unlocked unlocked;
    if (!is_prepared_)
        prepare();
    if (extent == Extent::all && has_failed())
        return;
    write(extent);
    if (extent == Extent::all && has_failed())
        return;
    for (Entry &entry : entries_) {
        if (!entry.refused && entry.row->kind == WriteKind::call)
            entry.result = entry.row->call(entry.pair.value) == 0 ? Result::written : Result::failed;
    }
}

void FileWrites::log_failures(const char *verb) const
{
    for (const Failure &failure : failures_)
        qv_log_print(kLogError, "Can not %s %s: %s\n", verb, failure.what.c_str(), failure.why.c_str());
}

} // namespace qvcd
