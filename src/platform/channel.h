#pragma once

#include "platform/fd.h"
#include "platform/tls.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace qvcd {

/// A connected stream socket, in clear or with TLS. Nothing blocks but write_all(), whatever the socket is
/// set to, and nothing raises SIGPIPE. Used by one thread at a time.
///
/// A function that fails sets errno. EAGAIN: call it again (write() with at least the same bytes) when
/// poll(2) tells of read_events() or write_events(). EPROTO: TLS failed. After another error than EAGAIN only
/// the socket may be used.
class Channel {
  public:
    Channel() = default;
    explicit Channel(Fd socket) : socket_(std::move(socket)) {} ///< in clear
    Channel(Fd socket, std::unique_ptr<TlsStream> tls);         ///< with TLS

    int fd() const { return socket_.get(); }
    bool in_clear() const { return !tls_; }

    /// True when bytes can be exchanged: at once in clear, with TLS when both sides have said who they are.
    bool handshake();

    /// As recv(2): the number of bytes; 0 when the other side has said that no more comes; -1. A TLS stream
    /// that just breaks off fails with ECONNRESET. With room for kLeastRead bytes all that has been decrypted
    /// is handed out, so that poll(2) tells of what else comes.
    ssize_t read(char *buffer, std::size_t size);
    static constexpr std::size_t kLeastRead = std::size_t{16} << 10; // the most that a TLS record holds

    /// As send(2): the number of bytes that were taken, or -1.
    ssize_t write(std::string_view bytes);

    /// Writes everything. False also when the other side takes nothing for `patience` (ETIMEDOUT).
    bool write_all(std::string_view bytes, std::chrono::milliseconds patience);

    /// Says that nothing more comes, which TLS does with a message; in clear the socket's end says it. False:
    /// that did not go out. Call it again after EAGAIN only.
    bool finish();

    short
    read_events() const; ///< of poll(2), after handshake() or read(); POLLIN but for a TLS that must write
    short write_events() const; ///< after write() or finish()

    /// The common name in the certificate that the other side showed; empty when it has none, or several.
    /// Nothing when no certificate was demanded or in clear.
    std::optional<std::string> certificate_user() const;

    /// Why the handshake found the other side's certificate bad; empty when it did not.
    std::string distrust() const;

    /// What errno, as the last function left it, means here.
    std::string problem() const;

  private:
    Fd socket_;                      // outlives tls_
    std::unique_ptr<TlsStream> tls_; // none in clear
};

} // namespace qvcd
