#include "commands/save.h"

#include "base/save_lock.h"
#include "base/text.h"
#include "commands/targets.h"
#include "funcs/file_writes.h"
#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/api_event.h"

#include <set>

namespace qvcd {

namespace {

// A value as it was when the save began: others may set the API while the files are written.
struct Taken {
    std::string api;
    std::string value;
    std::string before; // what the file had
    bool secret;
};

// What has no file or no write function stays modified.
bool can_be_saved(const Request &request, const Api &api)
{
    if (!api.writable_by(request.mask))
        return false;
    MetaApi meta(api.name());
    return meta.get("file") && meta.get("write");
}

void report_saved(const Request &request, const Taken &taken, std::FILE *out)
{
    if (name_kind(taken.api) == NameKind::api)
        flag_saved(taken.api, taken.value);
    note_change(request, taken.api, taken.before, taken.value, taken.secret);
    reply_value(out, taken.api, shown_value(taken.api, taken.value));
    qv_log_print(kLogNotice, "Save %s=%s\n", taken.api.c_str(),
                 taken.secret ? kHiddenPassword : taken.value.c_str());
    publish_api("save", taken.api, taken.secret, taken.value, taken.before);
}

bool is_file_flushed(const std::string &api, const char *attribute)
{
    const auto file = meta_get(api, attribute);
    return !file || is_flushed(qv_sysroot_path(std::string(*file)));
}

class Save {
  public:
    void take(const Api &api)
    {
        if (!names_.insert(api.name()).second)
            return;
        const std::string value(api.value());
        taken_.push_back({api.name(), value, pending_of(api.name()).saved.value_or(value), api.is_secret()});
        writes_.add(api.name(), taken_.back().value);
    }

    // What failed comes after what was saved. 1 when something failed.
    int write(const Request &request, std::FILE *out)
    {
        writes_.commit();
        writes_.log_failures("save");
        std::vector<std::string> failed;
        for (std::size_t i = 0; i < taken_.size(); ++i) {
            if (writes_.result(i) == FileWrites::Result::written)
                report_saved(request, taken_[i], out);
            else
                failed.push_back(taken_[i].api);
        }
        for (const std::string &api : failed)
            refuse(api, kSaveFailed, out);
        return failed.empty() ? 0 : 1;
    }

  private:
    std::set<std::string> names_; // a name may be given twice
    std::vector<Taken> taken_;
    FileWrites writes_;
};

} // namespace

bool is_on_disk(const std::string &api)
{
    return is_file_flushed(api, "file") && is_file_flushed(api, "shadow");
}

int command_save(Request &request, Args &argv, std::FILE *out)
{
    const SaveLock lock; // from before the values are taken: the later save has the later values
    Save save;
    const int unknown = for_each_flagged(argv, out, flag_modified, [&](const Api &api) {
        if (can_be_saved(request, api))
            save.take(api);
        return 0;
    });
    return unknown | save.write(request, out);
}

const CommandRecord saveRecord = {
    .name = "save",
    .handler = command_save,
    .summary = "Save an API or group",
    .synopsis = "save [<API or group> ...]",
    .errors = "<name>=##Parameter not found#: there is no such API or group. The others are saved, and the "
              "result is 1.\n"
              "<API>=##Save failed#: its value did not reach its file. It stays modified, the log says why, "
              "and the result is 1. The others are saved.",
    .description =
        "Writes modified APIs to their configuration files: the named ones, those of a group, or all. All "
        "APIs of one file are written in one step, and after a crash all files of a save are old or all are "
        "new. APIs without a file stay modified, and what the caller may not write is passed over. A "
        "password is shown as \"*******\".",
    .recorded = ChangeNotes::Level::lasting,
};

} // namespace qvcd
