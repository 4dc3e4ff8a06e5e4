#pragma once

#include "platform/fd.h"

#include <cstddef>
#include <string>

namespace qvcd {

/// What a shell command prints on one of its streams. Only as much as somebody wants is kept.
class ShellOutput {
  public:
    explicit ShellOutput(std::size_t size) : size_(size) {}

    /// Makes the pipe. False, with errno set, when there can be none.
    bool open();
    int writer() const { return writer_.get(); } ///< -1: not open
    int reader() const { return reader_.get(); } ///< -1: not open, or at the end
    void close_writer() { writer_.reset(); }
    Fd take_reader() { return std::move(reader_); }

    /// False when there is nothing to read just now. At the end of the stream reader() becomes -1.
    bool read_block();

    /// The shell has ended; somebody that it left behind may go on printing. Reads until enough is kept.
    void read_rest();

    /// The same, but goes on until the pipe is empty, so that its end is seen when nobody else has it.
    void empty();

    const std::string &text() const { return text_; }
    void set(const std::string &text);

  private:
    Fd reader_;
    Fd writer_;
    std::string text_;
    std::size_t size_;
};

} // namespace qvcd
