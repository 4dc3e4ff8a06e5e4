#pragma once

#include "platform/channel.h"
#include "platform/line_buffers.h"
#include "platform/line_server.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>

namespace qvcd {

/// One connection of a LineServer: its bytes, and the conversation over them. When to do what is the loop's
/// business. Used by one thread at a time.
class ServedConnection {
  public:
    /// With TLS, `handler` may come later.
    ServedConnection(Channel channel, Peer peer, std::unique_ptr<LineHandler> handler);

    const Peer &peer() const { return peer_; }
    int fd() const { return channel_.fd(); }

    // ---- The handshake, which comes before the conversation where TLS is spoken ----

    bool is_greeted() const { return handler_ != nullptr; }
    enum class Greeting { done, waits, failed };
    Greeting greet(const MakeHandler &make_handler);

    // ---- Input ----

    enum class Came { something, nothing, failure };

    /// Reads what is there. It stays in the buffer until keep_input().
    Came read(std::span<char> buffer);

    /// What epoll(7) is to tell of when nothing came.
    std::uint32_t read_events() const;

    /// Hands lines to the handler for a slice of time, and the end of input.
    void converse(LineConnection &face, ReplyStream &replies, std::chrono::microseconds slice);

    /// Tells the handler the end.
    void conclude(LineHandler::End why, LineConnection &face);

    /// Tells it the end of a client that said nothing, or no whole line, for too long.
    void conclude_late(LineConnection &face);

    /// After converse(): what is left of the input is kept here.
    void keep_input() { input_.tidy(); }

    /// Something to do for converse() is there.
    bool has_work();

    /// True when a line was handled since it was asked last.
    bool was_answered() { return std::exchange(answered_, false); }

    bool is_listening() const { return handler_ && handler_->is_listening(); }
    bool is_privileged() const { return handler_ && handler_->is_privileged(); }

    // ---- Output ----

    /// Sends what the client takes now, keeps the rest and clears `replies`. False when nobody is there to be
    /// told the rest.
    bool send(ReplyStream &replies);

    /// Sends all; waits for a client that does not read, at most for `patience` each time.
    bool send_all(ReplyStream &replies, std::chrono::milliseconds patience);

    /// True when something is still to be sent.
    bool has_unsent();
    std::size_t unsent() const { return output_.size() - sent_; }
    std::uint32_t write_events() const;

    // ---- The end ----

    /// The conversation is over; what is unsent is still to be sent.
    bool is_closing() const { return closing_; }

    /// Nobody is there to be told more.
    void give_up() { closing_ = input_ended_ = true; }

    /// Reads and drops what the client of a conversation that is over still says: to close a socket that
    /// holds input throws away the end of the answer (TCP resets the connection). True when it can be closed.
    bool drain();

    /// True when the last read() emptied the socket, a moment ago: nothing is to be drained. Once.
    bool has_just_read_all() { return std::exchange(all_read_, false); }

    /// Bytes that are kept of input and output.
    std::size_t held() const { return input_.held() + output_.size() + (handler_ ? handler_->held() : 0); }

    std::string problem() const { return channel_.problem(); }

  private:
    std::size_t line_limit() const;
    std::string_view take_next(std::size_t raw, LineConnection &face);
    LineHandler::Next hand_over(std::string_view next, bool raw, LineConnection &face);

    Channel channel_;
    Peer peer_;
    std::unique_ptr<LineHandler> handler_; // none before the handshake
    LineInput input_;
    std::string output_; // what the client did not take yet
    std::size_t sent_ = 0;
    std::size_t drained_ = 0;
    bool input_ended_ = false;
    bool all_read_ = false; // the socket was empty a moment ago
    bool closing_ = false;
    bool answered_ = false;
};

} // namespace qvcd
