#pragma once

#include <string>

#include "client/line_editor.h"
#include "client/options.h"
#include "client/shell_line.h"
#include "client/unsaved.h"

namespace qvcd::client {

/// Reads commands on a terminal and runs them. Each is a request of its own, so the daemon may be restarted
/// meanwhile.
class Shell {
  public:
    explicit Shell(const Options &options);

    /// Until "quit", "exit" or the end of the input. Returns the exit status of the last command.
    int run();

  private:
    LineEditor::Completion complete_typed(const std::string &line) const;
    std::string prompt() const;
    void remember(const std::string &line, const std::vector<Step> &steps);

    void run_line(const std::string &line);
    void run_step(Step &step);
    int run_words(const Words &words);
    int log_in_here(Words words);
    int log_out_here();
    void enter(const std::string &level);
    void learn_user();
    bool may_leave();

    Options options_;
    int first_session_;
    LineEditor editor_;
    std::string user_; // empty: nobody who is known
    std::string host_;
    std::string level_;
    Unsaved unsaved_;
    int status_ = 0;
    bool ends_ = false;
};

} // namespace qvcd::client
