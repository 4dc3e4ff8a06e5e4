#include "change/undo.h"

#include "base/command_lock.h"
#include "base/replace_journal.h"
#include "base/replacement.h"
#include "base/save_lock.h"
#include "change/assignment.h"
#include "funcs/apply_map.h"
#include "funcs/file_writes.h"
#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/api_event.h"
#include "store/flags.h"
#include "store/meta.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace qvcd {

namespace {

// The value that the API's file has, as far as the daemon knows.
std::string saved_value(Api &api)
{
    const bool is_changed = api.is_raised(Api::Flag::mod);
    return is_changed ? pending_of(api.name()).saved.value_or("") : std::string(shown_setting(api));
}

// What of an API is still as a commit left it.
struct Ours {
    bool value = false;
    bool saved = false;
    bool applied = false;
};

template <class IsOurs>
Ours what_is_ours(Api &api, const IsOurs &is_ours)
{
    const bool same = is_ours(shown_setting(api));
    const bool mod = api.is_raised(Api::Flag::mod);
    const bool noapp = api.is_raised(Api::Flag::noapp);
    const Pending pending = pending_of(api.name());
    return {same && !mod && !noapp, mod ? pending.saved && is_ours(*pending.saved) : same,
            noapp ? pending.applied && is_ours(*pending.applied) : same};
}

// Where somebody set the API since, his change is one of the value before.
void flag_back(const std::string &api, const std::string &before, bool saved, bool applied)
{
    if (saved)
        flag_saved(api, before);
    if (applied)
        flag_in_force(api, before);
}

// Files that nobody wrote to since the commit get their old texts. The others are left in `written`.
class OldTexts {
  public:
    // Without the command lock.
    void put_back(const std::vector<UndoRecord::File> &files)
    {
        settle_file_sets();
        FileSet set;
        std::vector<const UndoRecord::File *> in_set;
        for (const UndoRecord::File &file : files) {
            const std::string path = qv_sysroot_path(file.file);
            const FileText now = read_whole_file(path);
            const bool is_old = file.before ? !now.error && now.text == *file.before : now.missing();
            if (is_old && is_flushed(path))
                continue;
            if (now.error && !now.missing()) {
                note(file.file, now.error);
            } else if (!is_old && (now.error || text_hash(now.text) != file.after)) {
                written.insert(file.file);
            } else if (!file.before) {
                const int error = is_old ? flush_folder(folder_of(path)) : remove_file(path).error;
                note(file.file, error || is_flushed(path) ? error : EIO);
            } else {
                set.add({path, *file.before});
                in_set.push_back(&file);
            }
        }
        const std::vector<FileResult> results = set.commit_here();
        for (std::size_t i = 0; i < results.size(); ++i)
            note(in_set[i]->file, results[i].error);
    }

    std::set<std::string> written;
    PutBack result;

  private:
    void note(const std::string &file, int error)
    {
        if (error)
            result.problems.push_back(file + ": " + std::strerror(error));
    }
};

bool is_in(const Api &api, const std::set<std::string> &files)
{
    const MetaApi meta(api.name());
    const auto holds = [&](const char *attribute) {
        const auto file = meta.get(attribute);
        return file && files.contains(std::string(*file));
    };
    return holds("file") || holds("shadow");
}

bool has_no_text(const Api &api)
{
    return write_row(MetaApi(api.name()).get("write").value_or("")).kind != WriteKind::text;
}

// A device may never take it, and must not keep a commit from ending.
bool may_be_taken_later(const std::string &api, std::string_view value)
{
    const MetaApi meta(api);
    const WriteRow &row = write_row(meta.get("write").value_or(""));
    return row.kind == WriteKind::text && meta.get("file") &&
           !row.text->refuses(meta.get("attr").value_or(""), value);
}

void publish(const Api &api)
{
    for (const char *event : {"set", "save"})
        publish_api(event, api, api.value());
}

} // namespace

PutBack put_files_back(const UndoRecord &record)
{
    const SaveLock lock;
    OldTexts texts;
    {
        const Unlocked unlocked;
        texts.put_back(record.files);
    }
    FileWrites writes;
    std::vector<const UndoRecord::Value *> written;
    for (const UndoRecord::Value &value : record.values) {
        Api *api = value.saves ? find_api(value.api) : nullptr;
        if (!api || (!value.by_value && !has_no_text(*api) && !is_in(*api, texts.written)))
            continue;
        if (!api->is_dynamic() && !value.has(saved_value(*api)) && saved_value(*api) != value.before)
            continue; // somebody saved another one since
        writes.add(value.api, value.before);
        written.push_back(&value);
    }
    writes.commit();
    writes.log_failures("undo");
    for (std::size_t i = 0; i < written.size(); ++i) {
        const UndoRecord::Value &value = *written[i];
        if (writes.result(i) != FileWrites::Result::failed)
            continue;
        const bool later = may_be_taken_later(value.api, value.before);
        (later ? texts.result.problems : texts.result.lost).push_back(value.api);
    }
    return texts.result;
}

namespace {

// False: somebody set another one since.
bool put_value_back(Api &api, const UndoRecord::Value &value)
{
    const Ours ours = what_is_ours(api, [&](std::string_view one) { return value.has(one); });
    const bool is_ours = ours.value || shown_setting(api) == value.loaded;
    if (is_ours)
        store_setting(api, value.before);
    if (is_ours && value.loaded)
        flags_put_back(value.api, false, false, {}); // those that the action raised
    else
        flag_back(value.api, value.before, value.saves && !api.is_dynamic() && ours.saved,
                  value.applies && ours.applied);
    if (!is_ours)
        return false;
    publish(api);
    qv_log_print(kLogNotice, "Undo %s=%s\n", value.api.c_str(), api.for_log(value.before).c_str());
    return true;
}

} // namespace

std::vector<ValueChange> put_values_back(const UndoRecord &record)
{
    std::vector<ValueChange> changes;
    for (const UndoRecord::Value &value : record.values) {
        Api *api = find_api(value.api);
        if (api && put_value_back(*api, value))
            changes.push_back(
                value_change(value.api, value.loaded.value_or(value.after), value.before, value.secret));
    }
    return changes;
}

void put_proposal_back(const std::vector<Proposed> &values, const UndoRecord &record)
{
    for (const UndoRecord::Value &value : record.values) {
        if (Api *api = value.by_value ? find_api(value.api) : nullptr)
            put_value_back(*api, value);
    }
    for (const Proposed &p : values) {
        Api *api = find_api(p.api);
        if (!api)
            continue;
        if (shown_setting(*api) != p.after) {
            const Ours ours = what_is_ours(*api, [&](std::string_view one) { return one == p.after; });
            flag_back(p.api, p.before, p.saves && !p.dynamic && ours.saved, p.applies && ours.applied);
            continue;
        }
        const bool is_new = p.now != p.after;
        if (is_new)
            store_setting(*api, p.now);
        if (!p.dynamic)
            flags_put_back(p.api, p.mod, p.noapp, p.pending);
        if (is_new)
            publish(*api);
    }
}

RunAgain run_actions_again(Request &request, const UndoRecord &record, std::size_t count, Delay delay)
{
    RunAgain again;
    const auto run = [&](const Actions::Action &action) {
        if (afuncmap_sets_settings(action.call))
            return;
        const bool is_left = delay == Delay::kept && runs_later(action);
        if (is_left)
            again.left.push_back(action);
        again.runs.push_back(is_left ? ActionRun{action.call} : run_action(request, action, delay));
    };
    for (std::size_t i = 0; i < std::min(count, record.actions.size()); ++i)
        run(record.actions[i]);
    std::ranges::for_each(record.further, run);
    return again;
}

} // namespace qvcd
