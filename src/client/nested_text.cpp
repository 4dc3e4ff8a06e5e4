#include "client/nested_text.h"

#include <nlohmann/json.hpp>

namespace qvcd::client {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kDeepest = 64; // as deep as the daemon's trees

} // namespace

std::optional<Json> parse_nested(const std::vector<std::string> &lines)
{
    constexpr std::string_view kOpen = " {";
    constexpr std::string_view kEquals = " = ";
    Json whole = Json::object();
    std::vector<Json *> open{&whole};
    for (const std::string &indented : lines) {
        const std::string line = indented.substr(std::min(indented.find_first_not_of(' '), indented.size()));
        const std::size_t equals = line.find(kEquals);
        if (line == "}" && open.size() > 1) {
            open.pop_back();
        } else if (equals != std::string::npos) {
            Json &node = (*open.back())[line.substr(0, equals)];
            const std::string value = line.substr(equals + kEquals.size());
            if (node.is_object()) // a node with a value of its own, too
                node[""] = value;
            else
                node = value;
        } else if (line.ends_with(kOpen) && open.size() < kDeepest) {
            Json &node = (*open.back())[line.substr(0, line.size() - kOpen.size())];
            if (!node.is_object())
                node = node.is_null() ? Json::object() : Json{{"", node}};
            open.push_back(&node);
        } else {
            return std::nullopt;
        }
    }
    return open.size() == 1 && !whole.empty() ? std::optional(std::move(whole)) : std::nullopt;
}

} // namespace qvcd::client
