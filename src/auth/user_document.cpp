#include "auth/user_document.h"

#include "auth/user.h"
#include "base/text.h"
#include "store/hdfutils.h"

#include <charconv>

namespace qvcd {

namespace {

bool is_blank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool is_mask(std::string_view text)
{
    if (text.starts_with("0x"))
        text.remove_prefix(2);
    unsigned mask = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, mask, 16);
    return error == std::errc() && stop == end && mask <= 0xffff;
}

bool is_field_of_group(Node field)
{
    return field.name() == "perm" && field.is_leaf() && is_mask(field.text());
}

bool is_field_of_user(Node field)
{
    if (!field.is_leaf())
        return false;
    if (field.name() == "group")
        return is_user_name(field.text());
    return (field.name() == "passwd" || field.name() == "default") && !user_passwd_error(field.text());
}

// The first name below "Group" or "User" that a user file has not so; empty when there is none.
std::string misplaced_name(Node part, bool (*is_field)(Node field))
{
    for (const Node entry : part) {
        const std::string name = join_name(part.name(), entry.name());
        if (entry.value() || !entry.first_child() || !is_user_name(entry.name()))
            return name;
        for (const Node field : entry) {
            if (!is_field(field))
                return join_name(name, field.name());
        }
    }
    return part.value() ? std::string(part.name()) : std::string();
}

std::string misplaced_name(const Tree &document)
{
    for (const Node part : document.root()) {
        const bool is_known = part.name() == "Group" || part.name() == "User";
        std::string name =
            is_known ? misplaced_name(part, part.name() == "Group" ? is_field_of_group : is_field_of_user)
                     : std::string(part.name());
        if (!name.empty())
            return name;
    }
    return {};
}

} // namespace

bool is_user_file_value(std::string_view value)
{
    return value.empty() || (!is_blank(value.front()) && !is_blank(value.back()) && is_one_line(value));
}

std::string user_document_error(const Tree &document)
{
    if (!document.find("Group").first_child() && !document.find("User").first_child())
        return "there are no users and no groups in it";
    const std::string name = misplaced_name(document);
    return name.empty() ? name : name + " is nothing that a user file holds";
}

} // namespace qvcd
