#pragma once

#include <string>

namespace qvcd::client {

// Questions to the person at the terminal.

/// True when standard input is a terminal that is ours to ask on.
bool can_ask();

/// True when somebody typed this command, and it is no script that runs it: can_ask(), a question is seen,
/// and no other program leads our job.
bool is_typed();

enum class Reply {
    yes,
    no,  ///< whatever else is typed
    none ///< nobody is there to type
};
Reply ask_person(const std::string &question);

/// A password, typed without echo. Throws UsageError when none is given.
std::string ask_password(const std::string &prompt);

/// A new one, typed twice.
std::string ask_new_password(const std::string &of_what);

/// The first line of standard input, where no person is. Throws UsageError when there is none.
std::string first_line_of_input();

} // namespace qvcd::client
