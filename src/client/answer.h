#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/command.h"
#include "client/options.h"
#include "client/screen.h"

namespace qvcd::client {

/// True where somebody types commands, and an answer without a line says "(nothing)".
bool is_at_prompt(const Options &options);

/// The answer to one command on its way to the user, in the form that the options ask for: line by line as it
/// comes, values only, errors only, one line of JSON, or for a person on a terminal.
class Answer {
  public:
    Answer(const Options &options, Words words);

    /// One reply line, without its newline.
    void take(std::string_view line);

    /// All have come: prints what is left to print, and on standard error what helps with errors
    /// (client/advice.h). Returns the exit status.
    int end(int result);

  private:
    enum class Form { lines, values, errors, json, screen };
    static Form form_of(const Options &options, const Words &words, const Screen &screen);
    void print(std::string_view line) const;
    std::vector<std::string> for_screen(int result) const;

    const Options &options_;
    Words words_;
    Screen screen_;
    Form form_;
    bool is_empty_ = true;
    std::vector<std::string> kept_; // what is printed at the end
    std::size_t kept_bytes_ = 0;
    std::vector<std::string> refused_; // lines with an error
};

} // namespace qvcd::client
