#include "commands/user.h"

#include "auth/session.h"
#include "auth/user.h"
#include "base/document.h"
#include "base/reply.h"
#include "commands/document.h"
#include "commands/user_events.h"
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
                "user.add <user> <group> [password]\n"
                "user.mod <user> <group> [password]\n"
                "user.passwd <user> <password>\n"
                "user.rem <user>\n"
                "user.import <file>\n"
                "user.export [file]\n"
                "user.default [user]",
    .errors =
        "##Invalid user#: the name is missing or holds other characters than letters, digits and \"_\".\n"
        "##Invalid group#: there is no such group.\n"
        "##Invalid permission#: nobody gives a user more rights than his own, changes or removes a user who "
        "has more, or exports that one's password.\n"
        "##Password too long#, ##Invalid password character#: a password has at most 1023 bytes, no control "
        "character, and no blank at its ends; the old one stays.\n"
        "##No administrator would be left#: nobody with a password could do all that the administrators "
        "can do now.\n"
        "##Error in file format#: what is imported holds no users and groups, or anything else.\n"
        "##Can not write user file#: nothing has changed, and the log says why.\n"
        "The result is 0 even then: look for the hash marks.",
    .description =
        "Users, their groups and passwords. A user may do what the group's permission mask allows, in "
        "sessions that he has already too; those of a removed user end. "
        "Every change is written to the user file at once. A new user can not log in before a password "
        "is set, which add and mod can do in the same change. Passwords are URL-escaped; lists show seven "
        "asterisks for those of users who may do more "
        "than the caller. The user admin can not be removed. An import is taken as a whole or not at all.",
    .sub_commands = kSubCommands,
    .secret_from = 2,
    .recorded = ChangeNotes::Level::lasting,
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

int reply_field(const std::string &name, const char *field, std::string_view value, std::FILE *out)
{
    reply_value(out, "User." + name + field, value);
    return 0;
}

int reply_unknown_user(const std::string &name, std::FILE *out)
{
    return reply_field(name, ".passwd", "##user " + name + " does not exist#", out);
}

int user_list(Request &request, Args &, std::FILE *out)
{
    if (out)
        hdfutils_dump(user_shown_to(request.mask).root(), "", out);
    return 0;
}

int user_add(Request &request, Args &argv, std::FILE *out)
{
    const std::string *group = argument(argv, 2);
    const std::string name = group ? user_name(argv[1]) : "";
    if (!is_user_name(name)) {
        reply_line(out, API_E_INVALID_USER);
        return 0;
    }
    std::optional<std::string> password;
    if (const std::string *word = argument(argv, 3)) {
        password = url_unescape(*word);
        const char *error = password ? user_passwd_error(*password) : API_E_INVALID_PASSWORD_CHARACTER;
        if (error)
            return reply_field(name, ".passwd", error, out);
    }
    if (const char *error = user_set_group(request.mask, name, *group, password))
        return reply_field(name, ".group", error, out);
    qv_log_print(kLogNotice, "Add user '%s' to group '%s'%s\n", name.c_str(), group->c_str(),
                 password ? " with a password" : "");
    return reply_field(name, ".group", *group, out);
}

int user_passwd(Request &request, Args &argv, std::FILE *out)
{
    if (argv.size() < 3) {
        reply_line(out, "##error: user pwd <user> <password>#");
        return 0;
    }
    const std::string name = user_name(argv[1]);
    if (!user_exists(name))
        return reply_unknown_user(name, out);
    const std::optional<std::string> password = url_unescape(argv[2]);
    const char *error = password ? user_passwd_error(*password) : API_E_INVALID_PASSWORD_CHARACTER;
    if (!error)
        error = user_set_passwd(request.mask, {{name, *password}});
    if (error)
        return reply_field(name, ".passwd", error, out);
    qv_log_print(kLogNotice, "Set Password for user %s\n", name.c_str());
    return reply_field(name, ".passwd", *password, out);
}

int user_rem(Request &request, Args &argv, std::FILE *out)
{
    const std::string name = argv.size() > 1 ? user_name(argv[1]) : "";
    if (name.empty() || name == "admin") {
        reply_line(out, "##can not remove " + name + "#");
        return 0;
    }
    const char *error = user_exists(name) ? user_remove(request.mask, name) : "##Does not exist#";
    if (error) {
        reply_field(name, "", error, out);
        return 1;
    }
    reply_line(out, "User." + name);
    qv_log_print(kLogNotice, "Remove User.%s\n", name.c_str());
    return 0;
}

int user_import_file(Request &request, Args &argv, std::FILE *out)
{
    const std::string *file = argument(argv, 1);
    if (!file) {
        reply_line(out, "##Specify a file to import#");
        return 1;
    }
    const DocumentImport turn(*file);
    Tree fresh = Tree::make();
    HdfRead read = turn.may_run() ? read_import(request, *file, fresh) : HdfRead();
    const char *error = DocumentImport::kRefusal;
    if (turn.may_run() && read.result == HdfResult::missing && Document::is_meant_by(*file))
        error = kNoDocument;
    else if (turn.may_run())
        error = user_import(request.mask, read, std::move(fresh));
    if (error)
        reply_line(out, import_error(*file, error, read.detail));
    return error ? 1 : 0;
}

int print_users(std::FILE *out)
{
    const std::optional<std::string> text = user_document();
    reply_text(out, text ? *text : "##can not write -#\n");
    return text ? 0 : 1;
}

int user_export_file(Request &request, Args &argv, std::FILE *out)
{
    const std::string *file = argument(argv, 1);
    if (!file && out) {
        hdfutils_dump(groupDB.root(), "", out);
        hdfutils_dump(user_shown_to(request.mask).root(), "", out);
    }
    if (!file)
        return 0;
    // A file without them could not be imported again.
    if (!user_all_within(request.mask))
        reply_line(out, API_E_INVALID_PERMISSION);
    else if (Document::is_meant_by(*file))
        return print_users(out);
    else if (!user_export(qv_sysroot_path(*file)))
        reply_line(out, "##can not write " + *file + "#");
    else
        return 0;
    return 1;
}

struct Default {
    std::string password;
    const char *error;
};

// A hash passes too.
Default default_of(const std::string &name, unsigned rights)
{
    if (!is_within(rights, user_get_perm(name)))
        return {"", API_E_INVALID_PERMISSION};
    const std::optional<std::string> password = user_get_default(name);
    if (!password)
        return {"", "##default does not exist#"};
    return {*password, user_passwd_error(*password)};
}

std::vector<std::string> all_users()
{
    std::vector<std::string> names;
    for (const Node user : userDB.find("User"))
        names.emplace_back(user.name());
    return names;
}

int user_default(Request &request, Args &argv, std::FILE *out)
{
    const std::vector<std::string> names =
        argv.size() > 1 ? std::vector<std::string>{user_name(argv[1])} : all_users();
    if (names.size() == 1 && !user_exists(names.front()))
        return reply_unknown_user(names.front(), out);
    std::vector<NewPassword> passwords;
    std::vector<Default> defaults;
    for (const std::string &name : names) {
        const Default &d = defaults.emplace_back(default_of(name, request.mask));
        if (!d.error)
            passwords.push_back({name, d.password, true});
    }
    const char *failed = passwords.empty() ? nullptr : user_set_passwd(request.mask, passwords);
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string &name = names[i];
        const Default &d = defaults[i];
        const char *error = d.error ? d.error : failed;
        reply_field(name, ".passwd", error ? error : d.password, out);
        if (!error)
            qv_log_print(kLogNotice, "Default Password for user %s\n", name.c_str());
    }
    return 0;
}

} // namespace

int command_user(Request &request, Args &argv, std::FILE *out)
{
    user_reread_db_file();
    const std::uint64_t before = userDB.marks().changed;
    const UserEvents events;
    run_subcommand(userRecord, request, argv, out, SubResult::zero);
    if (userDB.marks().changed != before)
        note_event(request);
    session_follow_users();
    events.publish(); // behind it: streams of sessions that have ended see it
    return 0;
}

} // namespace qvcd
