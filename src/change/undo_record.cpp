#include "change/undo_record.h"

#include "base/command_lock.h"
#include "base/replace_journal.h"
#include "base/replacement.h"
#include "platform/log.h"
#include "platform/sysroot.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace qvcd {

// CBOR (RFC 8949): files may hold any bytes. In front of it stands its hash: a parser can be made to do
// anything by what a damaged disk gives it.

namespace {

using Json = nlohmann::json;

constexpr std::size_t kHashSize = 20; // digits of a 64-bit number

std::string path()
{
    return qv_sysroot_path(kUndoFile);
}

std::string hash_of(std::string_view text)
{
    std::string hash = std::to_string(text_hash(text));
    return hash.insert(0, kHashSize - hash.size(), '0');
}

// What stands behind the hash; throws when it is not the hash of that.
std::string_view checked(std::string_view text)
{
    const std::string_view record = text.substr(std::min(kHashSize, text.size()));
    if (text.substr(0, kHashSize) != hash_of(record))
        throw std::runtime_error("it is damaged");
    return record;
}

} // namespace

static void to_json(Json &json, const HistoryEntry &e)
{
    json = {{"key", e.key},       {"time", e.time},       {"user", e.user}, {"source", e.source},
            {"client", e.client}, {"command", e.command}, {"text", e.text}};
}

static void from_json(const Json &json, HistoryEntry &e)
{
    json.at("key").get_to(e.key);
    json.at("time").get_to(e.time);
    json.at("user").get_to(e.user);
    json.at("source").get_to(e.source);
    json.at("client").get_to(e.client);
    json.at("command").get_to(e.command);
    json.at("text").get_to(e.text);
}

static void to_json(Json &json, const UndoRecord::Value &v)
{
    json = {{"api", v.api},         {"before", v.before}, {"after", v.after},      {"saves", v.saves},
            {"applies", v.applies}, {"secret", v.secret}, {"by_value", v.by_value}};
    if (v.loaded)
        json["loaded"] = *v.loaded;
}

static void from_json(const Json &json, UndoRecord::Value &v)
{
    json.at("api").get_to(v.api);
    json.at("before").get_to(v.before);
    json.at("after").get_to(v.after);
    json.at("saves").get_to(v.saves);
    json.at("applies").get_to(v.applies);
    json.at("secret").get_to(v.secret);
    json.at("by_value").get_to(v.by_value);
    if (json.contains("loaded"))
        v.loaded = json.at("loaded").get<std::string>();
}

static void to_json(Json &json, const UndoRecord::File &f)
{
    json = {{"file", f.file}, {"after", f.after}};
    if (f.before)
        json["before"] = *f.before;
}

static void from_json(const Json &json, UndoRecord::File &f)
{
    json.at("file").get_to(f.file);
    json.at("after").get_to(f.after);
    if (json.contains("before"))
        f.before = json.at("before").get<std::string>();
}

static void to_json(Json &json, const Actions::Action &a)
{
    json = {{"call", a.call}, {"apis", a.apis}};
}

static void from_json(const Json &json, Actions::Action &a)
{
    json.at("call").get_to(a.call);
    json.at("apis").get_to(a.apis);
    a.apis.at(0); // it runs for one
}

FileResult write_undo_record(const UndoRecord &record)
{
    std::string text;
    Json::to_cbor({{"entry", record.entry},
                   {"values", record.values},
                   {"files", record.files},
                   {"actions", record.actions},
                   {"further", record.further},
                   {"starts", record.starts}},
                  text);
    text.insert(0, hash_of(text));
    const Unlocked unlocked;
    if (const int error = make_folder(folder_of(path())))
        return {error};
    return replace_secret_file(path(), text);
}

FileResult remove_undo_record()
{
    const Unlocked unlocked;
    const FileResult removed = remove_file(path());
    if (removed.error != ENOENT)
        return removed;
    return {is_folder_flushed(folder_of(path())) ? 0 : flush_folder(folder_of(path())), true};
}

UndoRead read_undo_record()
{
    const Unlocked unlocked;
    const FileText text = read_whole_file(path());
    if (text.missing())
        return {};
    if (text.error) {
        qv_log_print(kLogError, "Can not read %s: %s\n", kUndoFile, std::strerror(text.error));
        return {text.error};
    }
    try {
        const Json json = Json::from_cbor(checked(text.text));
        return {0, UndoRecord{json.at("entry").get<HistoryEntry>(),
                              json.at("values").get<std::vector<UndoRecord::Value>>(),
                              json.at("files").get<std::vector<UndoRecord::File>>(),
                              json.at("actions").get<std::vector<Actions::Action>>(),
                              json.at("further").get<std::vector<Actions::Action>>(),
                              json.at("starts").get<int>()}};
    } catch (const std::exception &error) {
        qv_log_print(kLogError, "Can not read %s, a commit may stay half done: %s\n", kUndoFile,
                     error.what());
        std::rename(path().c_str(), (path() + ".damaged").c_str());
    }
    return {};
}

} // namespace qvcd
