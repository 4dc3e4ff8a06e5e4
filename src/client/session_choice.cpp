#include "client/session_choice.h"

#include <cerrno>
#include <system_error>
#include <unistd.h>

#include "client/errors.h"
#include "client/private_file.h"
#include "qvclient/escape.h"

namespace qvcd::client {

namespace {

std::string folder_of_sessions()
{
    const std::string folder = runtime_folder();
    return folder.empty() ? state_folder() : folder;
}

// A session that was made over TLS is not told to who answers without.
std::string file_of(const Endpoint &endpoint)
{
    const std::string folder = folder_of_sessions();
    std::string name = endpoint.local() ? "unix:" : endpoint.tls ? "tls:" : "tcp:";
    for (const char c : url_escape(endpoint.text()))
        name += c == '/' ? '+' : c;
    return folder.empty() ? "" : folder + "/session-" + name;
}

std::optional<int> kept_session(const Endpoint &endpoint)
{
    const std::string file = file_of(endpoint);
    std::optional<std::string> text = file.empty() ? std::nullopt : read_private_file(file);
    if (!text || !text->ends_with('\n'))
        return std::nullopt;
    text->pop_back();
    try {
        return session_number(*text);
    } catch (const UsageError &) { // nobody is to become root by that
        throw UsageError(file + " holds no session: remove it, and log in again");
    }
}

} // namespace

void choose_session(Options &options)
{
    if (!options.session_given)
        options.session = kept_session(options.endpoint).value_or(0);
}

void keep_session(const Endpoint &endpoint, int session)
{
    const std::string file = file_of(endpoint);
    if (file.empty())
        throw UsageError("no folder to keep the session in: neither XDG_RUNTIME_DIR nor HOME is set");
    if (!make_private_folder(folder_of_sessions()) ||
        !replace_private_file(file, std::to_string(session) + "\n"))
        throw UsageError("cannot keep the session in " + file + ": " +
                         std::generic_category().message(errno));
}

void forget_session(const Endpoint &endpoint, int session)
{
    if (kept_session(endpoint) == session)
        unlink(file_of(endpoint).c_str());
}

} // namespace qvcd::client
