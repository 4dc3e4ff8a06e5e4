#include "client/shell_words.h"

namespace qvcd::client {

namespace {

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

class Tokenizer {
  public:
    Tokenizer(std::string_view line, Separators separators) : line_(line), separators_(separators) {}

    Tokens run()
    {
        for (at_ = 0; at_ < line_.size(); ++at_)
            take(line_[at_]);
        tokens_.open = quote_ != '\0' || escaped_;
        return std::move(tokens_);
    }

  private:
    void take(char c)
    {
        if (escaped_) {
            append(c);
            escaped_ = false;
        } else if (c == '\\' && quote_ != '\'') {
            append(std::string_view());
            escaped_ = true;
        } else if (quote_ != '\0') {
            if (c == quote_)
                quote_ = '\0';
            else
                append(c);
        } else {
            take_unquoted(c);
        }
    }

    void take_unquoted(char c)
    {
        if (c == '\'' || c == '"') {
            append(std::string_view());
            quote_ = c;
        } else if (is_blank(c)) {
            tokens_.in_word = false;
        } else if (separators_ == Separators::blanks_and_bars && (c == ';' || c == '|')) {
            tokens_.list.push_back({c == ';' ? Token::Kind::semicolon : Token::Kind::bar, {}, at_});
            tokens_.in_word = false;
        } else {
            append(c);
        }
    }

    // Nothing: the word begins, or goes on, with a quote.
    void append(char c) { append(std::string_view(&c, 1)); }
    void append(std::string_view text)
    {
        if (!tokens_.in_word)
            tokens_.list.push_back({Token::Kind::word, {}, at_});
        tokens_.in_word = true;
        tokens_.list.back().text += text;
    }

    std::string_view line_;
    Separators separators_;
    std::size_t at_ = 0;
    Tokens tokens_;
    char quote_ = '\0';
    bool escaped_ = false;
};

} // namespace

Tokens tokenize(std::string_view line, Separators separators)
{
    return Tokenizer(line, separators).run();
}

std::string typed_form(std::string_view word)
{
    std::string typed;
    for (const char c : word) {
        if (std::string_view(" \t'\"\\;|").find(c) != std::string_view::npos)
            typed += '\\';
        typed += c;
    }
    return typed;
}

} // namespace qvcd::client
