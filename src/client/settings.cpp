#include "client/settings.h"

#include <map>

#include "client/command.h"
#include "client/reply.h"
#include "qvclient/connect.h"
#include "qvclient/reply.h"

namespace qvcd::client {

namespace {

int for_each_line(const Options &options, const std::string &command, const std::vector<std::string> &names,
                  const LineSink &sink)
{
    Words words{command};
    words.insert(words.end(), names.begin(), names.end());
    return ask(options.endpoint, options.session, {command_line(words)}, options.limits(command),
               within_limit(sink));
}

// "VALUE (DEFAULT)"
std::optional<std::string> fallback_in(std::string_view text, const std::string &value)
{
    const std::string front = value + " (";
    if (!text.starts_with(front) || !text.ends_with(')'))
        return std::nullopt;
    return std::string(text.substr(front.size(), text.size() - front.size() - 1));
}

} // namespace

Settings fetch_settings(const Options &options, const std::vector<std::string> &names)
{
    Settings settings;
    std::map<std::string, std::size_t, std::less<>> places;
    settings.result = for_each_line(options, "get", names, [&](std::string_view line) {
        const ReplyLine parts = parse_reply_line(line);
        if (says_error("get", 1, line) && parts.error == "Parameter not found")
            settings.refused.emplace_back(line);
        else if (!parts.name.empty() && places.emplace(parts.name, settings.list.size()).second)
            settings.list.push_back({.name = std::string(parts.name), .value = std::string(parts.value)});
    });
    const auto mark = [&](const char *command, const auto &visit) {
        for_each_line(options, command, names, [&](std::string_view line) {
            const ReplyLine parts = parse_reply_line(line);
            if (const auto place = places.find(parts.name); place != places.end())
                visit(settings.list[place->second], parts.value);
        });
    };
    mark("checkmod", [](Setting &setting, std::string_view) { setting.is_modified = true; });
    mark("checkapp", [](Setting &setting, std::string_view) { setting.is_unapplied = true; });
    mark("checkdef", [](Setting &setting, std::string_view text) {
        setting.is_changed = true;
        setting.fallback = fallback_in(text, setting.value);
    });
    return settings;
}

} // namespace qvcd::client
