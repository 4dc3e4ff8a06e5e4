#include "client/password_type.h"

#include <algorithm>

#include "client/short_question.h"
#include "platform/password_type.h"
#include "qvclient/errors.h"
#include "qvclient/escape.h"

namespace qvcd::client {

namespace {

Kind kind_in(const std::vector<std::string> &lines, const std::string &name)
{
    if (const auto type = value_in(lines, name + ".type"))
        return is_password_type(*type) ? Kind::password : Kind::open;
    return value_in(lines, name) == "##Parameter not found#" ? Kind::missing : Kind::unknown;
}

} // namespace

Kind kind_of(const Options &options, const std::vector<std::string> &names)
{
    if (names.empty())
        return Kind::open;
    std::vector<std::string> words{"introspect"};
    words.insert(words.end(), names.begin(), names.end());
    std::vector<std::string> lines;
    try {
        if (const auto answer = ask_shortly(options, {wire_line(words)}))
            lines = answer->lines();
    } catch (const UsageError &) { // no name
        return Kind::missing;
    }
    Kind kind = Kind::open;
    for (const std::string &name : names)
        kind = std::max(kind, kind_in(lines, name));
    return kind;
}

} // namespace qvcd::client
