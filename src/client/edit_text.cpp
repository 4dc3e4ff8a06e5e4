#include "client/edit_text.h"

#include <algorithm>

#include "client/short_question.h"

namespace qvcd::client {

namespace {

constexpr char kHead[] =
    "# Change values, then save and leave. Lines that are not changed, or are deleted, stay as "
    "they are.\n# An empty text gives up.\n";
constexpr char kRefused[] = "# refused: ";

} // namespace

std::string edit_text(const std::vector<Setting> &settings, const std::map<std::string, std::string> &now,
                      const Refusals &refusals)
{
    std::string text = kHead;
    const auto add_refusal = [&](const std::string &key) {
        if (const auto refusal = refusals.find(key); refusal != refusals.end())
            text += kRefused + refusal->second + "\n";
    };
    for (const Setting &setting : settings) {
        const auto other = now.find(setting.name);
        text += setting.name + "=" + (other == now.end() ? setting.value : other->second) + "\n";
        add_refusal(setting.name);
    }
    for (const auto &[key, why] : refusals) {
        if (std::ranges::count(settings, key, &Setting::name) == 0)
            text += key + "\n" + kRefused + why + "\n";
    }
    return text;
}

Edited read_edited(std::string_view text, const std::vector<Setting> &settings)
{
    Edited edited;
    for (std::string &line : lines_of(text)) {
        if (line.ends_with('\r'))
            line.pop_back();
        if (line.empty() || line.starts_with('#'))
            continue;
        const std::size_t equals = std::min(line.find('='), line.size());
        const std::string name = line.substr(0, equals);
        const auto known = std::ranges::find(settings, name, &Setting::name);
        if (known == settings.end() || equals == line.size()) {
            edited.refusals[line] = "this is no setting of this text";
            continue;
        }
        const std::string value = line.substr(equals + 1);
        if (value == known->value)
            continue;
        if (edited.values.emplace(name, value).second)
            edited.order.push_back(name);
        else
            edited.values[name] = value;
    }
    return edited;
}

} // namespace qvcd::client
