#include "platform/crypto_module.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <new>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>

namespace qvcd {

namespace {

// ---- OpenSSL's way to the socket. Its own one would wait on a blocking socket, and raise SIGPIPE. ----

int bio_result(BIO *bio, ssize_t n, void (*set_retry)(BIO *))
{
    BIO_clear_retry_flags(bio);
    if (n < 0 && errno == EAGAIN)
        set_retry(bio);
    return static_cast<int>(n);
}

int bio_socket(BIO *bio)
{
    return *static_cast<const int *>(BIO_get_data(bio));
}

int bio_read(BIO *bio, char *buffer, int size)
{
    ssize_t n = 0;
    do {
        n = ::recv(bio_socket(bio), buffer, static_cast<std::size_t>(size), MSG_DONTWAIT);
    } while (n < 0 && errno == EINTR);
    if (n == 0)
        errno = ECONNRESET; // an end that TLS knows nothing of: somebody may have cut the stream
    return bio_result(bio, n, [](BIO *b) { BIO_set_retry_read(b); });
}

int bio_write(BIO *bio, const char *bytes, int size)
{
    ssize_t n = 0;
    do {
        n = ::send(bio_socket(bio), bytes, static_cast<std::size_t>(size), MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (n < 0 && errno == EINTR);
    return bio_result(bio, n, [](BIO *b) { BIO_set_retry_write(b); });
}

long bio_control(BIO *, int command, long, void *)
{
    return command == BIO_CTRL_FLUSH ? 1 : 0;
}

BIO_METHOD *make_bio_method()
{
    BIO_METHOD *const method = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "channel");
    if (!method)
        throw std::bad_alloc();
    BIO_meth_set_read(method, bio_read);
    BIO_meth_set_write(method, bio_write);
    BIO_meth_set_ctrl(method, bio_control);
    return method;
}

BIO *make_bio(const int &socket)
{
    static BIO_METHOD *const method = make_bio_method(); // for ever: threads may outlive main()
    BIO *const bio = BIO_new(method);
    if (!bio)
        throw std::bad_alloc();
    BIO_set_data(bio, const_cast<int *>(&socket));
    BIO_set_init(bio, 1);
    return bio;
}

int as_int(std::size_t size)
{
    return static_cast<int>(std::min<std::size_t>(size, INT_MAX));
}

// The first error that OpenSSL noted on this thread since its list was cleared, as a text without a full
// stop.
std::string error_text()
{
    const unsigned long error = ERR_peek_error();
    if (ERR_SYSTEM_ERROR(error))
        return std::generic_category().message(ERR_GET_REASON(error));
    const char *const text = ERR_reason_error_string(error);
    return text ? text : "error " + std::to_string(error);
}

// ---- One connection ----

struct SslFree {
    void operator()(SSL *ssl) const noexcept { SSL_free(ssl); }
};
using SslHandle = std::unique_ptr<SSL, SslFree>;

// OpenSSL's list of errors is the thread's, and must be empty before a call whose result is looked into.
class Stream : public TlsStream {
  public:
    explicit Stream(SslHandle ssl) : ssl_(std::move(ssl)) {}

    void use(int socket) override;
    bool handshake() override;
    ssize_t read(char *buffer, std::size_t size) override;
    ssize_t write(std::string_view bytes) override;
    bool finish() override;
    short read_events() const override { return read_events_; }
    short write_events() const override { return write_events_; }
    std::optional<std::string> certificate_user() const override;
    std::string distrust() const override;
    std::string error() const override { return error_; }

  private:
    ssize_t outcome(int result, short &events);

    int socket_ = -1; // the way to it holds this member's address
    SslHandle ssl_;
    short read_events_ = POLLIN;
    short write_events_ = POLLOUT;
    bool finished_ = false;
    std::string error_;
};

void Stream::use(int socket)
{
    socket_ = socket;
    BIO *const bio = make_bio(socket_);
    SSL_set_bio(ssl_.get(), bio, bio);
}

// What a call of OpenSSL came to, as the socket interface would say it. `events` is what it waits for.
ssize_t Stream::outcome(int result, short &events)
{
    const int system_error = errno;
    const int why = SSL_get_error(ssl_.get(), result);
    errno = EAGAIN;
    switch (why) {
    case SSL_ERROR_NONE:
        return result;
    case SSL_ERROR_ZERO_RETURN:
        return 0;
    case SSL_ERROR_WANT_READ:
        events = POLLIN;
        return -1;
    case SSL_ERROR_WANT_WRITE:
        events = POLLOUT;
        return -1;
    case SSL_ERROR_SYSCALL:
        errno = system_error;
        return -1;
    default:
        error_ = error_text();
        errno = EPROTO;
        return -1;
    }
}

bool Stream::handshake()
{
    ERR_clear_error();
    return outcome(SSL_do_handshake(ssl_.get()), read_events_) > 0;
}

ssize_t Stream::read(char *buffer, std::size_t size)
{
    ERR_clear_error();
    read_events_ = POLLIN;
    return outcome(SSL_read(ssl_.get(), buffer, as_int(size)), read_events_);
}

ssize_t Stream::write(std::string_view bytes)
{
    ERR_clear_error();
    write_events_ = POLLOUT;
    return outcome(SSL_write(ssl_.get(), bytes.data(), as_int(bytes.size())), write_events_);
}

bool Stream::finish()
{
    if (finished_)
        return true;
    ERR_clear_error();
    const int result = SSL_shutdown(ssl_.get());
    finished_ = result >= 0 || outcome(result, write_events_) >= 0;
    return finished_;
}

std::optional<std::string> Stream::certificate_user() const
{
    X509 *const certificate = SSL_get0_peer_certificate(ssl_.get());
    if (!certificate)
        return std::nullopt;
    const X509_NAME *const subject = X509_get_subject_name(certificate);
    const int place = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    if (place < 0 || X509_NAME_get_index_by_NID(subject, NID_commonName, place) >= 0)
        return "";
    unsigned char *text = nullptr;
    const int size =
        ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, place)));
    if (size < 0)
        return "";
    std::string name(text, text + size);
    OPENSSL_free(text);
    return name;
}

std::string Stream::distrust() const
{
    const long verdict = SSL_get_verify_result(ssl_.get());
    return verdict == X509_V_OK ? "" : X509_verify_cert_error_string(verdict);
}

// ---- What the connections share ----

constexpr unsigned char kSessionContext[] = "qvcd"; // sessions are taken up again by this service only

// Nobody sits in front of a daemon, and a script must not hang in front of a question.
int note_passphrase(char *, int, int, void *wanted)
{
    *static_cast<bool *>(wanted) = true;
    return -1;
}

[[noreturn]] void throw_error(const std::string &what, const std::string &file)
{
    throw TlsError("cannot use the " + what + " in " + file + ": " + error_text());
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

class Settings : public TlsContext::Settings {
  public:
    Settings(const TlsFiles &files, bool is_server);

    std::unique_ptr<TlsStream> accept() const override;
    std::unique_ptr<TlsStream> connect(const std::string &host) const override;

    SSL_CTX *get() const { return context_.get(); }

  private:
    SslHandle make() const;

    struct Free {
        void operator()(SSL_CTX *context) const noexcept { SSL_CTX_free(context); }
    };
    std::unique_ptr<SSL_CTX, Free> context_;
};

Settings::Settings(const TlsFiles &files, bool is_server)
{
    ERR_clear_error();
    context_.reset(SSL_CTX_new(is_server ? TLS_server_method() : TLS_client_method()));
    SSL_CTX *const context = context_.get();
    if (!context || SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) != 1)
        throw TlsError("TLS is not available: " + error_text());
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

SslHandle Settings::make() const
{
    SslHandle ssl(SSL_new(context_.get()));
    if (!ssl)
        throw std::bad_alloc();
    return ssl;
}

std::unique_ptr<TlsStream> Settings::accept() const
{
    SslHandle ssl = make();
    SSL_set_accept_state(ssl.get());
    return std::make_unique<Stream>(std::move(ssl));
}

std::unique_ptr<TlsStream> Settings::connect(const std::string &host) const
{
    SslHandle ssl = make();
    SSL_set_connect_state(ssl.get());
    SSL_set_hostflags(ssl.get(), X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    const std::string address = host.substr(0, host.find('%')); // an IPv6 address may name an interface
    if (X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl.get()), address.c_str()) == 1)
        return std::make_unique<Stream>(std::move(ssl));
    ERR_clear_error();
    // A name that cannot be compared must not pass unchecked.
    if (SSL_set1_host(ssl.get(), host.c_str()) != 1 ||
        SSL_ctrl(ssl.get(), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                 const_cast<char *>(host.c_str())) != 1)
        throw TlsError("no host name for TLS: " + host);
    return std::make_unique<Stream>(std::move(ssl));
}

std::unique_ptr<TlsContext::Settings> tls_server(const TlsFiles &files)
{
    auto made = std::make_unique<Settings>(files, true);
    if (!files.authorities.empty()) {
        SSL_CTX_set_verify(made->get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
        // Their names are told to the clients, which may have several certificates.
        SSL_CTX_set_client_CA_list(made->get(), SSL_load_client_CA_file(files.authorities.c_str()));
    }
    return made;
}

std::unique_ptr<TlsContext::Settings> tls_client(const TlsFiles &files)
{
    auto made = std::make_unique<Settings>(files, false);
    if (files.authorities.empty())
        SSL_CTX_set_default_verify_paths(made->get());
    SSL_CTX_set_verify(made->get(), SSL_VERIFY_PEER, nullptr);
    return made;
}

// ---- Digest ----

template <std::size_t Size>
std::optional<std::array<unsigned char, Size>> digest_of(std::string_view text, const EVP_MD *kind)
{
    std::array<unsigned char, Size> digest{};
    if (EVP_Digest(text.data(), text.size(), digest.data(), nullptr, kind, nullptr) != 1)
        return std::nullopt;
    return digest;
}

std::optional<std::array<unsigned char, 16>> md5(std::string_view text)
{
    return digest_of<16>(text, EVP_md5());
}

std::optional<std::array<unsigned char, 32>> sha256(std::string_view text)
{
    return digest_of<32>(text, EVP_sha256());
}

} // namespace

QVCD_MODULE(CryptoModule, tls_server, tls_client, md5, sha256)

} // namespace qvcd
