#include "client/person.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <openssl/crypto.h>
#include <termios.h>
#include <unistd.h>

#include "client/errors.h"
#include "client/signal_input.h"
#include "client/terminal_text.h"

namespace qvcd::client {

namespace {

// They hand the terminal on to what they run, and stay in front of it.
bool is_door_to_rights(const std::string &program)
{
    return program == "sudo" || program == "doas" || program == "su";
}

// A shell gives each job that is typed a process group of its own; a script's commands run in the script's.
bool leads_its_job()
{
    if (getpgrp() == getpid())
        return true;
    std::ifstream file("/proc/" + std::to_string(getpgrp()) + "/comm");
    std::string program;
    std::getline(file, program);
    return is_door_to_rights(program);
}

constexpr std::size_t kLongestLine = 4096; // that a terminal hands over

// From before the question on; what was typed earlier is no answer.
class NoEcho {
  public:
    NoEcho()
    {
        known_ = tcgetattr(STDIN_FILENO, &before_) == 0;
        termios mode = before_;
        mode.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHOE | ECHOK | ECHONL);
        mode.c_lflag |= ICANON;
        if (known_)
            tcsetattr(STDIN_FILENO, TCSAFLUSH, &mode);
    }
    ~NoEcho()
    {
        if (known_)
            tcsetattr(STDIN_FILENO, TCSANOW, &before_);
    }
    NoEcho(const NoEcho &) = delete;
    NoEcho &operator=(const NoEcho &) = delete;

  private:
    termios before_{};
    bool known_ = false;
};

} // namespace

bool can_ask()
{
    return tcgetpgrp(STDIN_FILENO) == getpgrp(); // not in the background
}

bool is_typed()
{
    return can_ask() && (isatty(STDERR_FILENO) != 0 || isatty(STDOUT_FILENO) != 0) && leads_its_job();
}

Reply ask_person(const std::string &question)
{
    std::fflush(stdout);
    tcflush(STDIN_FILENO, TCIFLUSH); // what was typed before is no answer
    std::FILE *out = isatty(STDERR_FILENO) ? stderr : stdout;
    std::fprintf(out, "%s [y/N] ", harmless(question).c_str());
    std::fflush(out);
    std::array<char, kLongestLine> answer{};
    errno = 0;
    const ssize_t got = read(STDIN_FILENO, answer.data(), answer.size());
    if (got <= 0) {
        std::fputc('\n', out);
        return errno == EINTR ? Reply::no : Reply::none;
    }
    return answer[0] == 'y' || answer[0] == 'Y' ? Reply::yes : Reply::no;
}

std::string ask_password(const std::string &prompt)
{
    SignalInput signals({SIGINT, SIGTERM, SIGHUP, SIGTSTP});
    const NoEcho unseen;
    std::fflush(stdout);
    std::fputs(prompt.c_str(), stderr);
    std::array<char, kLongestLine> line{};
    const bool typed = signals.wait(STDIN_FILENO, -1) == SignalInput::Came::input;
    const ssize_t size = typed ? read(STDIN_FILENO, line.data(), line.size()) : 0;
    std::fputc('\n', stderr);
    std::string password(line.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    OPENSSL_cleanse(line.data(), line.size());
    if (password.ends_with('\n'))
        password.pop_back();
    if (password.empty())
        throw UsageError("no password given");
    return password;
}

std::string ask_new_password(const std::string &of_what)
{
    constexpr int kAttempts = 3;
    for (int i = 0; i < kAttempts; ++i) {
        std::string password = ask_password("New password of " + of_what + ": ");
        if (ask_password("Once more: ") == password)
            return password;
        std::fprintf(stderr, "They are not the same.\n");
    }
    throw UsageError("no password given");
}

std::string first_line_of_input()
{
    std::string line;
    if (!std::getline(std::cin, line))
        throw UsageError("no password on standard input");
    return line;
}

} // namespace qvcd::client
