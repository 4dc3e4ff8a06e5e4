#pragma once

#include <cstdio>
#include <string>
#include <unistd.h>

#include "client/terminal_text.h"

namespace qvcd::client::fleet {

/// One line on a terminal that says how far it is, and goes before others are printed.
class Progress {
  public:
    ~Progress() { clear(); }

    void show(const std::string &text)
    {
        if (!wanted_ || text == shown_)
            return;
        std::fprintf(stderr, "\r\033[K%s", for_errors(text).c_str());
        std::fflush(stderr);
        shown_ = text;
    }
    void clear()
    {
        if (!shown_.empty())
            std::fputs("\r\033[K", stderr);
        shown_.clear();
    }

  private:
    const bool wanted_ = ::isatty(STDERR_FILENO) != 0;
    std::string shown_;
};

} // namespace qvcd::client::fleet
