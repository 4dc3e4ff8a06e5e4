#pragma once

#include <memory>
#include <stdexcept>
#include <string>

struct ssl_ctx_st;
struct ssl_st;

namespace qvcd {

/// What one side of TLS connections works with, in PEM files; an empty name: none.
struct TlsFiles {
    std::string certificate; ///< of our own, and the chain that leads to its authority
    std::string key;         ///< its private key, not encrypted
    std::string authorities; ///< whose certificates of the other side are trusted
};

/// A file that cannot be used; the text names it.
struct TlsError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct SslFree {
    void operator()(ssl_st *ssl) const noexcept;
};
using SslHandle = std::unique_ptr<ssl_st, SslFree>;

/// The settings that all TLS connections of a server, or of a client, share: TLS 1.2 and up, no
/// renegotiation. The files are read once. May be used by several threads.
class TlsContext {
  public:
    /// Needs certificate and key. With authorities a client must show a certificate of theirs.
    static TlsContext server(const TlsFiles &files);

    /// The server must show a certificate of the authorities, or without any of those that the system trusts.
    static TlsContext client(const TlsFiles &files);

    /// Of one connection to a client.
    SslHandle accept() const;

    /// Of one connection to the server `host`, whose certificate must be for this name or numeric address.
    SslHandle connect(const std::string &host) const;

  private:
    struct Free {
        void operator()(ssl_ctx_st *context) const noexcept;
    };
    explicit TlsContext(const TlsFiles &files, bool is_server);
    SslHandle make() const;

    std::unique_ptr<ssl_ctx_st, Free> context_;
};

/// The first error that OpenSSL noted on this thread since its list was cleared, as a text without a full
/// stop.
std::string tls_error_text();

} // namespace qvcd
