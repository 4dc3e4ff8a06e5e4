#include "commands/user.h"

#include "auth/user.h"
#include "base/reply.h"
#include "platform/api_errors.h"
#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/hdfutils.h"

#include <optional>
#include <string>
#include <vector>

namespace qvcd {

namespace {

int user_list(Request &request, Args &argv, std::FILE *out);
int user_add(Request &request, Args &argv, std::FILE *out);
int user_passwd(Request &request, Args &argv, std::FILE *out);
int user_rem(Request &request, Args &argv, std::FILE *out);
int user_import_file(Request &request, Args &argv, std::FILE *out);
int user_export_file(Request &request, Args &argv, std::FILE *out);
int user_default(Request &request, Args &argv, std::FILE *out);

constexpr SubCommand kSubCommands[] = {
    {"list", user_list, "List all user and permission"},
    {"add", user_add, "Add a user"},
    {"passwd", user_passwd, "Set user password"},
    {"rem", user_rem, "Remove a user"},
    {"mod", user_add, "Modify a user"},
    {"import", user_import_file, "Import the user settings"},
    {"export", user_export_file, "Export the user settings"},
    {"default", user_default, "Factory default a user"},
};

} // namespace

const CommandRecord userRecord = {
    .name = "user",
    .handler = command_user,
    .summary = "Perform operations on users",
    .synopsis = "user.list\n"
                "user.add <user> <group>\n"
                "user.mod <user> <group>\n"
                "user.passwd <user> <password>\n"
                "user.rem <user>\n"
                "user.import <file>\n"
                "user.export [file]\n"
                "user.default [user]",
    .errors =
        "##Invalid user#: the name is missing or holds other characters than letters, digits and \"_\".\n"
        "##Invalid group#: there is no such group.\n"
        "##Password too long#, ##Invalid password character#: the user file can not hold the password; the "
        "old one stays.\n"
        "The result is 0 even then: look for the hash marks.",
    .description =
        "Users, their groups and passwords. A user may do what the group's permission mask allows. "
        "Every change is written to the user file at once. A new user can not log in before a password "
        "is set. Passwords are URL-escaped. The user admin can not be removed.",
    .sub_commands = kSubCommands,
};

namespace {

const std::string *argument(const Args &argv, std::size_t i)
{
    return i < argv.size() ? &argv[i] : nullptr;
}

// A name that no user can have is kept escaped: it is only printed, and must not break the line.
std::string user_name(const std::string &argument)
{
    const std::optional<std::string> name = url_unescape(argument);
    return name && is_user_name(*name) ? *name : argument;
}

int user_list(Request &, Args &, std::FILE *out)
{
    if (out)
        hdfutils_dump(userDB.root(), "", out);
    return 0;
}

int user_add(Request &, Args &argv, std::FILE *out)
{
    const std::string *group = argument(argv, 2);
    const std::string name = group ? user_name(argv[1]) : "";
    if (!is_user_name(name)) {
        reply_line(out, API_E_INVALID_USER);
        return 0;
    }
    const char *error = user_set_group(name, *group);
    reply_printf(out, "User.%s.group=%s\n", name.c_str(), error ? error : group->c_str());
    if (error)
        return 0;
    user_update_perm_file();
    qv_log_print(kLogNotice, "Add user '%s' to group '%s'\n", name.c_str(), group->c_str());
    return 0;
}

// The unescaped password, when the user file can hold it.
std::optional<std::string> new_password(const std::string &argument, const std::string &name, std::FILE *out)
{
    std::optional<std::string> password = url_unescape(argument);
    const char *error = password ? user_passwd_error(*password) : API_E_INVALID_PASSWORD_CHARACTER;
    if (!error)
        return password;
    reply_printf(out, "User.%s.passwd=%s\n", name.c_str(), error);
    return std::nullopt;
}

int reply_unknown_user(const std::string &name, std::FILE *out)
{
    reply_printf(out, "User.%s.passwd=##user %s does not exist#\n", name.c_str(), name.c_str());
    return 1;
}

int user_passwd(Request &, Args &argv, std::FILE *out)
{
    if (argv.size() < 3) {
        reply_line(out, "##error: user pwd <user> <password>#");
        return 0;
    }
    const std::string name = user_name(argv[1]);
    if (!user_exists(name)) {
        reply_unknown_user(name, out);
        return 0;
    }
    const std::optional<std::string> password = new_password(argv[2], name, out);
    if (!password)
        return 0;
    user_set_passwd(name, *password);
    user_update_perm_file();
    reply_printf(out, "User.%s.passwd=%s\n", name.c_str(), password->c_str());
    qv_log_print(kLogNotice, "Set Password for user %s\n", name.c_str());
    return 0;
}

int user_rem(Request &, Args &argv, std::FILE *out)
{
    const std::string name = argv.size() > 1 ? user_name(argv[1]) : "";
    if (name.empty() || name == "admin") {
        reply_printf(out, "##can not remove %s#\n", name.c_str());
        return 0;
    }
    if (!user_remove(name)) {
        reply_printf(out, "User.%s=##Does not exist#\n", name.c_str());
        return 1;
    }
    user_update_perm_file();
    reply_printf(out, "User.%s\n", name.c_str());
    qv_log_print(kLogNotice, "Remove User.%s\n", name.c_str());
    return 0;
}

int user_import_file(Request &, Args &argv, std::FILE *out)
{
    const std::string *file = argument(argv, 1);
    const UserImport result = file ? user_import(qv_sysroot_path(*file)) : UserImport::missing;
    if (result == UserImport::missing)
        reply_line(out, "##Specify a file to import#");
    if (result == UserImport::error)
        reply_line(out, "##Error in file format#");
    return result == UserImport::done ? 0 : 1;
}

int user_export_file(Request &, Args &argv, std::FILE *out)
{
    if (const std::string *file = argument(argv, 1)) {
        if (user_export(qv_sysroot_path(*file)))
            return 0;
        reply_printf(out, "##can not write %s#\n", file->c_str());
        return 1;
    }
    if (out) {
        hdfutils_dump(groupDB.root(), "", out);
        hdfutils_dump(userDB.root(), "", out);
    }
    return 0;
}

// In memory only. 0 when the password was set.
int default_one(const std::string &name, std::FILE *out)
{
    if (!user_exists(name))
        return reply_unknown_user(name, out);
    const std::optional<std::string> password = user_get_default(name);
    const char *error = password ? user_passwd_error(*password) : "##default does not exist#";
    if (error) {
        reply_printf(out, "User.%s.passwd=%s\n", name.c_str(), error);
        return 1;
    }
    user_set_passwd(name, *password);
    reply_printf(out, "User.%s.passwd=%s\n", name.c_str(), password->c_str());
    qv_log_print(kLogNotice, "Default Password for user %s\n", name.c_str());
    return 0;
}

std::vector<std::string> all_users()
{
    std::vector<std::string> names;
    for (const Node user : userDB.find("User"))
        names.emplace_back(user.name());
    return names;
}

int user_default(Request &, Args &argv, std::FILE *out)
{
    const std::vector<std::string> names =
        argv.size() > 1 ? std::vector<std::string>{user_name(argv[1])} : all_users();
    bool changed = false;
    for (const std::string &name : names)
        changed |= default_one(name, out) == 0;
    if (changed)
        user_update_perm_file();
    return 0;
}

} // namespace

int command_user(Request &request, Args &argv, std::FILE *out)
{
    return run_subcommand(userRecord, request, argv, out, SubResult::zero);
}

} // namespace qvcd
