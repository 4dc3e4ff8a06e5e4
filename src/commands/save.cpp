#include "commands/save.h"

#include "base/file_text.h"
#include "base/file_utils.h"
#include "base/notify.h"
#include "base/reply.h"
#include "base/text.h"
#include "commands/apply.h"
#include "commands/targets.h"
#include "funcs/working_copies.h"
#include "funcs/write_functions.h"
#include "funcs/write_map.h"
#include "platform/api_errors.h"
#include "platform/fd.h"
#include "platform/log.h"
#include "platform/sysroot.h"

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

namespace qvcd {

namespace {

constexpr std::size_t kMaxFiles = 32; // of one save

// One save at a time. Taken inside the command lock, and nothing that runs under it lets go of the command
// lock: otherwise two saves would lock each other out.
std::mutex cmd_save_lock;

// A file of this save and its working copy; an entry without a file ends the list.
struct CachedFile {
    std::string file;
    std::string copy; // a path of the appliance
    std::string shadow;
    bool written = false;
};

class SaveContext {
  public:
    SaveContext(Request &request, std::FILE *out) : request_(request), out_(out) {}
    ~SaveContext()
    {
        for (const std::string &copy : copies_)
            unlink(qv_sysroot_path(copy).c_str());
    }
    SaveContext(const SaveContext &) = delete;
    SaveContext &operator=(const SaveContext &) = delete;

    int save_param(const std::string &api);
    int commit();

  private:
    CachedFile *find_file(const std::string &api, const std::string &file);
    bool open_copy(CachedFile &entry, const std::string &api);
    void write_param(CachedFile &entry, const std::string &api, const std::string &value);
    int commit_file(const CachedFile &entry);

    Request &request_;
    std::FILE *out_;
    std::array<CachedFile, kMaxFiles + 1> files_; // the last one only ends the list
    std::vector<std::string> copies_;             // every working copy that was made
    WorkingCopies texts_;
    int failed_ = 0;
};

// A fresh file in the scratch folder; empty when it cannot be made.
std::string make_working_copy()
{
    const std::string folder = qv_sysroot_path(kScratchFolder);
    mkdir(folder.c_str(), 0777); // made at start; somebody may have tidied up
    std::string name = folder + "/XXXXXX";
    const Fd fd(mkostemp(name.data(), O_CLOEXEC));
    return fd ? std::string(kScratchFolder) + name.substr(folder.size()) : std::string();
}

// The entry of a file, made when it is the file's first; null when there is no room or no working copy.
CachedFile *SaveContext::find_file(const std::string &api, const std::string &file)
{
    for (std::size_t i = 0; i < kMaxFiles; ++i) {
        CachedFile &entry = files_[i];
        if (entry.file == file)
            return &entry;
        if (!entry.file.empty())
            continue;
        files_[i + 1].file.clear();
        entry = CachedFile{file, {}, {}, false};
        return open_copy(entry, api) ? &entry : nullptr;
    }
    qv_log_print(kLogError, "Can not save %s.  Cached exceeded!\n", api.c_str());
    return nullptr;
}

// The working copy starts as the file is, so that a writer that fails silently loses nothing.
bool SaveContext::open_copy(CachedFile &entry, const std::string &api)
{
    entry.shadow = meta_get(api, "shadow").value_or("");
    entry.copy = make_working_copy();
    if (!entry.copy.empty()) {
        copies_.push_back(entry.copy);
        texts_.open(entry.copy, read_file(qv_sysroot_path(entry.file)).value_or(""));
        return true;
    }
    qv_log_print(kLogError, "Can not save %s\n", entry.file.c_str());
    entry.file.clear();
    failed_ = 1;
    return false;
}

// The first write goes from the file to the copy, later ones from the copy to the copy.
void SaveContext::write_param(CachedFile &entry, const std::string &api, const std::string &value)
{
    const std::string &source = entry.written ? entry.copy : entry.file;
    if (wfuncmap_cached_write(source, entry.copy, api, value) == 0) {
        entry.written = true;
        return;
    }
    qv_log_print(kLogError, "Can not save %s\n", entry.file.c_str());
    entry.file.clear(); // the list ends here
    failed_ = 1;
}

int SaveContext::save_param(const std::string &api)
{
    if ((request_.mask & meta_get_perm(api) & kWriteBits) == 0)
        return 1;
    const auto file = meta_get(api, "file");
    if (!file || !meta_get(api, "write"))
        return 0; // nothing to write to: it stays modified
    CachedFile *entry = find_file(api, *file);
    if (!entry)
        return 1;
    const std::string value = hdfDB.get_or(api, "");
    write_param(*entry, api, value);
    meta_set(api, "mod", "0");
    const bool secret = meta_is_password(api);
    reply_value(out_, api, value);
    qv_log_print(kLogNotice, "Save %s=%s\n", api.c_str(), secret ? kHiddenPassword : value.c_str());
    notify_publish_on("save", api, value, secret ? Secret::yes : Secret::no);
    return 0;
}

int SaveContext::commit_file(const CachedFile &entry)
{
    const std::string copy = qv_sysroot_path(entry.copy);
    if (texts_.store(entry.copy) != 0) {
        qv_log_print(kLogError, "Can not save %s\n", entry.file.c_str());
        return 1;
    }
    int result = 0;
    if (!entry.shadow.empty() && utils_copy_file(copy, qv_sysroot_path(entry.shadow)) != 0) {
        qv_log_print(kLogDebug, "Can not copy to shadow %s\n", entry.shadow.c_str());
        result = 1;
    }
    if (utils_move_file(copy, qv_sysroot_path(entry.file)) != 0) {
        qv_log_print(kLogError, "Can not save %s\n", entry.file.c_str());
        result = 1;
    }
    return result;
}

int SaveContext::commit()
{
    int result = failed_;
    for (const CachedFile &entry : files_) {
        if (entry.file.empty())
            break;
        result |= commit_file(entry);
    }
    return result;
}

} // namespace

int command_save(Request &request, Args &argv, std::FILE *out)
{
    int result = 0;
    {
        const std::lock_guard lock(cmd_save_lock);
        SaveContext context(request, out);
        result |= for_each_flagged(argv, out, flag_modified, [&](const std::string &api) {
            context.save_param(api);
            return 0;
        });
        result |= context.commit();
    }
    flush_file_systems();
    return result;
}

const CommandRecord saveRecord = {
    .name = "save",
    .handler = command_save,
    .summary = "Save an API or group",
    .synopsis = "save [<API or group> ...]",
    .errors =
        "<name>=##Parameter not found#: there is no such API or group. The others are saved, and the result "
        "is 1. It is 1 too when a file can not be written; the log says which.",
    .description =
        "Writes modified APIs to their configuration files: the named ones, those of a group, or all. All "
        "APIs of one file are written in one step. APIs without a file stay modified, and what the caller "
        "may not write is passed over.",
};

} // namespace qvcd
