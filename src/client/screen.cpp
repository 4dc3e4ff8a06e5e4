#include "client/screen.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "client/change_painter.h"
#include "client/terminal_text.h"

namespace qvcd::client {

namespace {

constexpr std::size_t kWidestName = 48;

// Of characters on the screen, more or less: bytes that begin one.
std::size_t width(std::string_view text)
{
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; }));
}

std::string pager()
{
    const char *chosen = std::getenv("PAGER");
    return chosen ? chosen : "less";
}

bool is_longer_than(const Screen &screen, const std::vector<std::string> &lines)
{
    if (!screen.is_there || screen.rows == 0 || isatty(STDIN_FILENO) == 0)
        return false;
    std::size_t rows = 0;
    for (const std::string &line : lines)
        rows += 1 + (screen.columns > 0 && !line.empty() ? (width(line) - 1) / screen.columns : 0);
    return rows >= screen.rows; // the prompt takes one
}

void print_lines(std::FILE *out, const std::vector<std::string> &lines)
{
    for (const std::string &line : lines)
        std::fprintf(out, "%s\n", for_output(line).c_str());
}

// A pager ends when its user likes, and an interrupt is for it alone.
class PagerSignals {
  public:
    PagerSignals()
    {
        struct sigaction ignored {};
        ignored.sa_handler = SIG_IGN;
        sigaction(SIGPIPE, &ignored, &pipe_);
        sigaction(SIGINT, &ignored, &interrupt_);
    }
    ~PagerSignals()
    {
        sigaction(SIGPIPE, &pipe_, nullptr);
        sigaction(SIGINT, &interrupt_, nullptr);
    }
    PagerSignals(const PagerSignals &) = delete;
    PagerSignals &operator=(const PagerSignals &) = delete;

  private:
    struct sigaction pipe_ {};
    struct sigaction interrupt_ {};
};

// False when there is no such program.
bool page(const std::string &program, const std::vector<std::string> &lines)
{
    setenv("LESS", "FRX", 0);
    std::FILE *pipe = popen(program.c_str(), "we");
    if (!pipe)
        return false;
    const PagerSignals signals; // the pager has those that we had
    print_lines(pipe, lines);
    const int status = pclose(pipe);
    constexpr int kNotFound = 127;
    return !(WIFEXITED(status) && (WEXITSTATUS(status) == kNotFound));
}

std::string coloured(const Screen &screen, const char *code, std::string_view text)
{
    return screen.has_colours && !text.empty() ? code + std::string(text) + "\033[0m" : std::string(text);
}

} // namespace

Screen look_at_screen()
{
    Screen screen{.is_there = isatty(STDOUT_FILENO) == 1};
    if (!screen.is_there)
        return screen;
    screen.has_colours = colours_for(std::getenv("NO_COLOR"), std::getenv("TERM")) == Colours::yes;
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) {
        screen.rows = size.ws_row;
        screen.columns = size.ws_col;
    }
    return screen;
}

std::string in_red(const Screen &screen, std::string_view text)
{
    return coloured(screen, "\033[31m", text);
}

std::string in_bold(const Screen &screen, std::string_view text)
{
    return coloured(screen, "\033[1m", text);
}

std::vector<std::string> in_columns(const std::vector<TableRow> &rows)
{
    std::size_t widest = 0;
    for (const TableRow &row : rows)
        widest = std::max(widest, std::min(width(row.name), kWidestName));
    std::vector<std::string> lines;
    for (const TableRow &row : rows) {
        const std::size_t blanks = widest + 2 - std::min(width(row.name), widest);
        lines.push_back(row.value.empty() ? row.name : row.name + std::string(blanks, ' ') + row.value);
    }
    return lines;
}

void show_lines(const Screen &screen, const std::vector<std::string> &lines)
{
    std::fflush(stdout);
    const std::string program = pager();
    if (program.empty() || !is_longer_than(screen, lines) || !page(program, lines))
        print_lines(stdout, lines);
}

} // namespace qvcd::client
