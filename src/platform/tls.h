#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace qvcd {

/// What one side of TLS connections works with, in PEM files; an empty name: none.
struct TlsFiles {
    std::string certificate; ///< of our own, and the chain that leads to its authority
    std::string key;         ///< its private key, not encrypted
    std::string authorities; ///< whose certificates of the other side are trusted
};

/// A file that cannot be used; the text names it. Or there is no TLS.
struct TlsError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The TLS of one connection. The functions are those of Channel, which owns it and the socket.
class TlsStream {
  public:
    virtual ~TlsStream() = default;

    /// Comes first. The socket outlives the stream.
    virtual void use(int socket) = 0;

    virtual bool handshake() = 0;
    virtual ssize_t read(char *buffer, std::size_t size) = 0;
    virtual ssize_t write(std::string_view bytes) = 0;
    virtual bool finish() = 0;
    virtual short read_events() const = 0;
    virtual short write_events() const = 0;
    virtual std::optional<std::string> certificate_user() const = 0;
    virtual std::string distrust() const = 0;
    virtual std::string error() const = 0; ///< what the last EPROTO meant
};

/// The settings that all TLS connections of a server, or of a client, share: TLS 1.2 and up, no
/// renegotiation. The files are read once. May be used by several threads.
class TlsContext {
  public:
    /// Needs certificate and key. With authorities a client must show a certificate of theirs. Throws
    /// TlsError.
    static TlsContext server(const TlsFiles &files);

    /// The server must show a certificate of the authorities, or without any of those that the system trusts.
    /// Throws TlsError.
    static TlsContext client(const TlsFiles &files);

    /// Of one connection to a client.
    std::unique_ptr<TlsStream> accept() const { return settings_->accept(); }

    /// Of one connection to the server `host`, whose certificate must be for this name or numeric address.
    /// Throws TlsError.
    std::unique_ptr<TlsStream> connect(const std::string &host) const { return settings_->connect(host); }

    /// What the library makes of the files.
    class Settings {
      public:
        virtual ~Settings() = default;
        virtual std::unique_ptr<TlsStream> accept() const = 0;
        virtual std::unique_ptr<TlsStream> connect(const std::string &host) const = 0;
    };

  private:
    explicit TlsContext(std::unique_ptr<Settings> settings) : settings_(std::move(settings)) {}

    std::unique_ptr<Settings> settings_;
};

} // namespace qvcd
