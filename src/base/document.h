#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qvcd {

/// A text that a client sends with a command: announced by the command before ("document"), then its bytes,
/// then a newline. It is there for one command line, and gone after it. Used by one thread at a time.
class Document {
  public:
    static constexpr std::size_t kMaxBytes = std::size_t{4} << 20; ///< as of a file that a client names

    /// What a name stands for it where a command takes a file.
    static bool is_meant_by(std::string_view name) { return name == "-"; }

    /// One of so many bytes, at most kMaxBytes, comes next, in place of what was there.
    void expect(std::size_t bytes);

    /// One that comes is not wanted. It cannot be told apart from commands: the conversation must end.
    void refuse();
    bool is_refused() const { return state_ == State::refused; }

    /// Bytes that are still to come, with the newline.
    std::size_t missing() const { return state_ == State::coming ? size_ + 1 - text_.size() : 0; }

    /// Takes in the next bytes, at most missing(). Refused when the last one is no newline.
    void add(std::string_view bytes);

    bool is_there() const { return state_ == State::there; }

    /// Hands it out; nothing is kept. Only when it is there.
    std::string take();

    /// Between two command lines: what the last one did not take is dropped.
    void drop_old();

    std::size_t held() const { return text_.capacity(); } ///< bytes of memory

  private:
    enum class State { none, coming, there, refused };
    void forget(State state);

    State state_ = State::none;
    std::size_t size_ = 0;
    std::string text_;
};

} // namespace qvcd
