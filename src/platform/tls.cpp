#include "platform/tls.h"

#include <new>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <system_error>

namespace qvcd {

namespace {

constexpr unsigned char kSessionContext[] = "qvcd"; // sessions are taken up again by this service only

// Nobody sits in front of a daemon, and a script must not hang in front of a question.
int note_passphrase(char *, int, int, void *wanted)
{
    *static_cast<bool *>(wanted) = true;
    return -1;
}

[[noreturn]] void throw_error(const std::string &what, const std::string &file)
{
    throw TlsError("cannot use the " + what + " in " + file + ": " + tls_error_text());
}

void take_own_certificate(SSL_CTX *context, const TlsFiles &files)
{
    bool is_encrypted = false;
    SSL_CTX_set_default_passwd_cb(context, note_passphrase);
    SSL_CTX_set_default_passwd_cb_userdata(context, &is_encrypted);
    if (SSL_CTX_use_certificate_chain_file(context, files.certificate.c_str()) != 1)
        throw_error("certificate", files.certificate);
    const bool taken = SSL_CTX_use_PrivateKey_file(context, files.key.c_str(), SSL_FILETYPE_PEM) == 1 &&
                       SSL_CTX_check_private_key(context) == 1;
    if (is_encrypted)
        throw TlsError("cannot use the key in " + files.key + ": it is encrypted");
    if (!taken)
        throw_error("key", files.key);
    SSL_CTX_set_default_passwd_cb(context, nullptr);
    SSL_CTX_set_default_passwd_cb_userdata(context, nullptr);
}

void take_authorities(SSL_CTX *context, const std::string &file)
{
    if (SSL_CTX_load_verify_file(context, file.c_str()) != 1)
        throw_error("authorities", file);
}

} // namespace

std::string tls_error_text()
{
    const unsigned long error = ERR_peek_error();
    if (ERR_SYSTEM_ERROR(error))
        return std::generic_category().message(ERR_GET_REASON(error));
    const char *const text = ERR_reason_error_string(error);
    return text ? text : "error " + std::to_string(error);
}

void SslFree::operator()(ssl_st *ssl) const noexcept
{
    SSL_free(ssl);
}

void TlsContext::Free::operator()(ssl_ctx_st *context) const noexcept
{
    SSL_CTX_free(context);
}

TlsContext::TlsContext(const TlsFiles &files, bool is_server)
{
    ERR_clear_error();
    context_.reset(SSL_CTX_new(is_server ? TLS_server_method() : TLS_client_method()));
    SSL_CTX *const context = context_.get();
    if (!context || SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) != 1)
        throw TlsError("TLS is not available: " + tls_error_text());
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
    // What was not sent may move in memory, and buffers of a connection that says nothing are given back.
    SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                                  SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_read_ahead(context, 0); // Channel::read() counts on it
    // Clients keep their sessions in tickets; a list of them here would only grow.
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_session_id_context(context, kSessionContext, sizeof kSessionContext - 1);
    if (!files.certificate.empty())
        take_own_certificate(context, files);
    if (!files.authorities.empty())
        take_authorities(context, files.authorities);
}

TlsContext TlsContext::server(const TlsFiles &files)
{
    TlsContext made(files, true);
    if (!files.authorities.empty()) {
        SSL_CTX_set_verify(made.context_.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
        // Their names are told to the clients, which may have several certificates.
        SSL_CTX_set_client_CA_list(made.context_.get(), SSL_load_client_CA_file(files.authorities.c_str()));
    }
    return made;
}

TlsContext TlsContext::client(const TlsFiles &files)
{
    TlsContext made(files, false);
    if (files.authorities.empty())
        SSL_CTX_set_default_verify_paths(made.context_.get());
    SSL_CTX_set_verify(made.context_.get(), SSL_VERIFY_PEER, nullptr);
    return made;
}

SslHandle TlsContext::make() const
{
    SslHandle ssl(SSL_new(context_.get()));
    if (!ssl)
        throw std::bad_alloc();
    return ssl;
}

SslHandle TlsContext::accept() const
{
    SslHandle ssl = make();
    SSL_set_accept_state(ssl.get());
    return ssl;
}

SslHandle TlsContext::connect(const std::string &host) const
{
    SslHandle ssl = make();
    SSL_set_connect_state(ssl.get());
    SSL_set_hostflags(ssl.get(), X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    const std::string address = host.substr(0, host.find('%')); // an IPv6 address may name an interface
    if (X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl.get()), address.c_str()) == 1)
        return ssl;
    ERR_clear_error();
    // A name that cannot be compared must not pass unchecked.
    if (SSL_set1_host(ssl.get(), host.c_str()) != 1 ||
        SSL_ctrl(ssl.get(), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                 const_cast<char *>(host.c_str())) != 1)
        throw TlsError("no host name for TLS: " + host);
    return ssl;
}

} // namespace qvcd
