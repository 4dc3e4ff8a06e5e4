#include "client/local_commands.h"

#include <array>
#include <iostream>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <unistd.h>

#include "client/errors.h"

namespace qvcd::client {

namespace {

std::string ask_on_terminal(const std::string &user)
{
    std::array<char, 1024> buffer{};
    const std::string prompt = "Password of " + user + ": ";
    if (EVP_read_pw_string(buffer.data(), static_cast<int>(buffer.size()), prompt.c_str(), 0) != 0)
        throw UsageError("no password given");
    std::string password = buffer.data();
    OPENSSL_cleanse(buffer.data(), buffer.size());
    return password;
}

// From a terminal without echo, else the first line of standard input.
std::string read_password(const std::string &user)
{
    if (isatty(STDIN_FILENO))
        return ask_on_terminal(user);
    std::string line;
    if (!std::getline(std::cin, line))
        throw UsageError("no password on standard input");
    return line;
}

} // namespace

int run_login(const Options &options, const Words &words)
{
    Words all = words;
    if (all.size() == 2)
        all.emplace_back("-");
    if (all.size() > 2 && all[2] == "-")
        all[2] = read_password(all[1]);
    return run_on_daemon(options, all);
}

} // namespace qvcd::client
