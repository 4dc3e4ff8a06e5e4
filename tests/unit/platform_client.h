#pragma once

#include "platform/fd.h"
#include "platform/socket.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <sys/socket.h>

namespace qvcd {

/// The client's end of a connection. Reading gives up after half a minute, so that a fault does not hang the
/// test.
class TestClient {
  public:
    explicit TestClient(Fd fd) : fd_(std::move(fd))
    {
        EXPECT_TRUE(fd_);
        set_receive_timeout(fd_.get(), std::chrono::seconds(30));
    }
    static TestClient of(std::string_view endpoint)
    {
        return TestClient(connect_unix(qv_ipc_socket_path(endpoint), std::chrono::seconds(30)));
    }

    bool say(std::string_view text) { return send_all(fd_.get(), text, std::chrono::seconds(30)); }
    void end_input() { ::shutdown(fd_.get(), SHUT_WR); }
    void close() { fd_.reset(); }
    int fd() const { return fd_.get(); }

    /// The next line with its newline, or what came before the end of the stream.
    std::string line()
    {
        for (;;) {
            if (const std::size_t end = text_.find('\n'); end != std::string::npos)
                return take(end + 1);
            if (!more())
                return take(text_.size());
        }
    }

    std::string all()
    {
        while (more()) {
        }
        return take(text_.size());
    }

  private:
    std::string take(std::size_t size)
    {
        std::string part = text_.substr(0, size);
        text_.erase(0, size);
        return part;
    }
    bool more()
    {
        char block[65536];
        const ssize_t n = ::recv(fd_.get(), block, sizeof block, 0);
        EXPECT_FALSE(n < 0 && errno == EAGAIN) << "nothing came";
        if (n > 0)
            text_.append(block, static_cast<std::size_t>(n));
        return n > 0;
    }

    Fd fd_;
    std::string text_;
};

} // namespace qvcd
