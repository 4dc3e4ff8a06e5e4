#include "platform/channel.h"

#include "platform/socket.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>

namespace qvcd {

Channel::Channel(Fd socket, std::unique_ptr<TlsStream> tls) : socket_(std::move(socket)), tls_(std::move(tls))
{
    tls_->use(socket_.get());
}

bool Channel::handshake()
{
    return !tls_ || tls_->handshake();
}

ssize_t Channel::read(char *buffer, std::size_t size)
{
    return tls_ ? tls_->read(buffer, size) : ::recv(socket_.get(), buffer, size, MSG_DONTWAIT);
}

ssize_t Channel::write(std::string_view bytes)
{
    return tls_ ? tls_->write(bytes)
                : ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

bool Channel::write_all(std::string_view bytes, std::chrono::milliseconds patience)
{
    return qvcd::write_all(
        fd(), bytes, patience, [this](std::string_view rest) { return write(rest); },
        [this] { return write_events(); });
}

bool Channel::finish()
{
    return !tls_ || tls_->finish();
}

short Channel::read_events() const
{
    return tls_ ? tls_->read_events() : POLLIN;
}

short Channel::write_events() const
{
    return tls_ ? tls_->write_events() : POLLOUT;
}

std::optional<std::string> Channel::certificate_user() const
{
    return tls_ ? tls_->certificate_user() : std::nullopt;
}

std::string Channel::distrust() const
{
    return tls_ ? tls_->distrust() : "";
}

std::string Channel::problem() const
{
    return tls_ && errno == EPROTO ? tls_->error() : std::generic_category().message(errno);
}

} // namespace qvcd
