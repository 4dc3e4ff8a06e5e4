#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd::client {

// How a typed line falls into words: quotes and backslash keep blanks, as in a shell.

struct Token {
    enum class Kind { word, semicolon, bar };
    Kind kind = Kind::word;
    std::string text;      ///< without its quotes
    std::size_t start = 0; ///< where it begins in the line
};

struct Tokens {
    std::vector<Token> list;
    bool in_word = false; ///< the line ends in the last word
    bool open = false;    ///< a quote is open, or nothing follows a backslash
};

enum class Separators {
    blanks,         ///< ";" and "|" are letters like others
    blanks_and_bars ///< ";" and "|" stand between commands
};

Tokens tokenize(std::string_view line, Separators separators);

/// `word` as it is typed, so that tokenize() gives it again.
std::string typed_form(std::string_view word);

} // namespace qvcd::client
