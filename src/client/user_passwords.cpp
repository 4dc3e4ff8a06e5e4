#include "client/user_passwords.h"

#include <string>
#include <unistd.h>

#include "client/answer.h"
#include "client/command_shapes.h"
#include "client/local_commands.h"
#include "client/person.h"
#include "client/reply.h"
#include "qvclient/connect.h"

namespace qvcd::client {

bool lacks_password(const Words &words)
{
    const Words whole = with_subcommand(words);
    return whole.at(0) == "user.passwd" && (whole.size() == 2 || (whole.size() == 3 && whole[2] == "-"));
}

int set_user_password(const Options &options, const Words &words)
{
    Words whole = with_subcommand(words);
    whole.resize(2);
    whole.push_back(isatty(STDIN_FILENO) ? ask_new_password(whole[1]) : first_line_of_input());
    hide_value_of("User." + whole[1] + ".passwd"); // the reply has it
    return run_on_daemon(options, whole);
}

int add_user(const Options &options, const Words &words)
{
    const Words whole = with_subcommand(words);
    Answer answer(options, whole);
    bool refused = whole.size() != 3;
    const int result = ask(options.endpoint, options.session, {command_line(whole)}, options.limits(whole[0]),
                           [&](std::string_view line) {
                               refused = refused || line.find("##") != std::string_view::npos;
                               answer.take(line);
                           });
    if (const int status = answer.end(result); status != 0 || refused)
        return status;
    return set_user_password(options, {"user.passwd", whole[1]});
}

} // namespace qvcd::client
