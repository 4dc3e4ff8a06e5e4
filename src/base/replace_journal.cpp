#include "base/replace_journal.h"

#include "base/replacement.h"
#include "platform/log.h"
#include "platform/sysroot.h"

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <unistd.h>

namespace qvcd {

namespace {

constexpr std::string_view kMark = "qvcd journal 1";
constexpr std::size_t kFieldsOfEntry = 4;

std::mutex &one_journal()
{
    static std::mutex *const mutex = new std::mutex; // threads may be left behind at the exit
    return *mutex;
}

std::vector<std::string_view> split_fields(std::string_view text)
{
    std::vector<std::string_view> fields;
    while (!text.empty()) {
        const std::size_t end = text.find('\0');
        if (end == std::string_view::npos)
            return {};
        fields.push_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    return fields;
}

template <class Number>
bool read_number(std::string_view field, Number &number)
{
    const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), number);
    return error == std::errc() && end == field.data() + field.size();
}

// Paths below the sysroot begin with "./": the root may be elsewhere at the next start.
std::string journal_path(const std::string &path)
{
    const std::string &root = qv_sysroot();
    return path.starts_with(root + "/") ? "." + path.substr(root.size()) : path;
}

std::string machine_path(std::string_view path)
{
    return path.starts_with("./") ? qv_sysroot() + std::string(path.substr(1)) : std::string(path);
}

void append_field(std::string &text, std::string_view field)
{
    text.append(field).push_back('\0');
}

bool is_ours(const JournalEntry &entry)
{
    const std::string folder = folder_of(entry.new_path);
    return entry.target.starts_with('/') && NewFile::is_name(entry.new_path) &&
           (folder == folder_of(entry.target) || folder == folder_of(qv_sysroot_path(kJournal)));
}

// A journal that is made anew needs its name flushed, one that is used again does not.
int write_journal(const std::string &text, bool &is_there)
{
    const std::string path = qv_sysroot_path(kJournal);
    if (const int error = make_folder(folder_of(path)))
        return error;
    Fd fd(open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
    const bool is_new = !fd;
    if (is_new)
        fd.reset(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd || ftruncate(fd.get(), 0) != 0)
        return errno;
    int error = write_all(fd.get(), text);
    is_there = !error;
    if (!error)
        error = flush_file(fd.get());
    if (!error && is_new)
        error = flush_folder(folder_of(path));
    return error;
}

} // namespace

std::uint64_t text_hash(std::string_view text)
{
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
    return hash;
}

std::string journal_text(const std::vector<JournalEntry> &entries)
{
    std::string text;
    append_field(text, kMark);
    for (const JournalEntry &entry : entries) {
        append_field(text, journal_path(entry.new_path));
        append_field(text, journal_path(entry.target));
        append_field(text, std::to_string(entry.size));
        append_field(text, std::to_string(entry.hash));
    }
    append_field(text, std::to_string(text_hash(text)));
    return text;
}

std::optional<std::vector<JournalEntry>> parse_journal(std::string_view text)
{
    const std::vector<std::string_view> fields = split_fields(text);
    std::uint64_t hash = 0;
    if (fields.size() < 2 || fields.size() % kFieldsOfEntry != 2 || fields.front() != kMark ||
        !read_number(fields.back(), hash) ||
        text_hash(text.substr(0, text.size() - fields.back().size() - 1)) != hash)
        return std::nullopt;
    std::vector<JournalEntry> entries;
    for (std::size_t i = 1; i + 1 < fields.size(); i += kFieldsOfEntry) {
        JournalEntry entry{machine_path(fields[i]), machine_path(fields[i + 1])};
        if (!read_number(fields[i + 2], entry.size) || !read_number(fields[i + 3], entry.hash) ||
            !is_ours(entry))
            return std::nullopt;
        entries.push_back(std::move(entry));
    }
    return entries;
}

Journal::Journal(const std::vector<JournalEntry> &entries)
{
    if (entries.empty())
        return;
    lock_ = std::unique_lock(one_journal());
    if (const int error = write_journal(journal_text(entries), is_there_)) {
        static std::atomic<bool> told = false;
        if (!told.exchange(true))
            qv_log_print(kLogWarning, "Can not write %s: %s. A crash may leave a part of a save\n", kJournal,
                         std::strerror(error));
    }
}

Journal::~Journal()
{
    // Not flushed: what a power cut brings back names new texts that are in their places.
    if (lock_) [[maybe_unused]]
        const int result = truncate(qv_sysroot_path(kJournal).c_str(), 0);
}

int Journal::forget()
{
    const int error = is_there_ ? forget_journal() : 0;
    is_there_ = error != 0;
    return error;
}

int forget_journal()
{
    const Fd fd(open(qv_sysroot_path(kJournal).c_str(), O_WRONLY | O_TRUNC | O_NOFOLLOW | O_CLOEXEC));
    return fd ? flush_file(fd.get()) : errno;
}

} // namespace qvcd
