#pragma once

#include "platform/socket.h"

#include <arpa/inet.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>

namespace qvcd {

/// The port that a TCP socket is bound to.
inline std::string port_of(const Fd &socket)
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (getsockname(socket.get(), reinterpret_cast<sockaddr *>(&address), &size) != 0)
        throw std::runtime_error("no port");
    return std::to_string(ntohs(address.sin_port));
}

/// A TCP port of loopback that belongs to this test and where nobody listens.
class LoopbackPort {
  public:
    LoopbackPort() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (bind(socket_.get(), as_sockaddr(&address), sizeof address) != 0)
            throw std::runtime_error("cannot bind a port of loopback");
        port_ = port_of(socket_);
    }

    const std::string &port() const { return port_; }
    int socket() const { return socket_.get(); }

  private:
    Fd socket_;
    std::string port_;
};

/// Serves clients on loopback one after the other: reads a request up to its empty line, gives the answer and
/// closes the connection.
class AnsweringMachine {
  public:
    AnsweringMachine(std::string answer, std::string request_end) : request_end_(std::move(request_end))
    {
        if (listen(listener_.socket(), 5) != 0)
            throw std::runtime_error("cannot listen on loopback");
        thread_ = std::thread([this, text = std::move(answer)] { serve(text); });
    }
    ~AnsweringMachine() { stop(); }

    const std::string &port() const { return listener_.port(); }

    /// What the clients sent; ends the service.
    const std::string &requests()
    {
        stop();
        return requests_;
    }

  private:
    void stop()
    {
        shutdown(listener_.socket(), SHUT_RDWR); // wakes accept()
        if (thread_.joinable())
            thread_.join();
    }

    void serve(const std::string &answer)
    {
        for (;;) {
            const Fd client(accept(listener_.socket(), nullptr, nullptr));
            if (!client)
                return;
            std::string request;
            char block[1024];
            for (ssize_t n = 1; n > 0 && !request.ends_with(request_end_);) {
                n = recv(client.get(), block, sizeof block, 0);
                request.append(block, static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
            }
            requests_ += request;
            send(client.get(), answer.data(), answer.size(), MSG_NOSIGNAL);
        }
    }

    LoopbackPort listener_;
    std::string request_end_;
    std::string requests_;
    std::thread thread_; // last: it uses the others
};

} // namespace qvcd
