#include "platform/channel.h"

#include "platform/socket.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <new>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>

namespace qvcd {

// It does not move: the way to the socket holds its address.
struct Channel::Tls {
    Tls(int socket, SslHandle handle);

    ssize_t outcome(int result, short &events);

    const int fd;
    SslHandle ssl;
    short read_events = POLLIN;
    short write_events = POLLOUT;
    bool finished = false;
    std::string error; // what EPROTO means
};

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

} // namespace

Channel::Tls::Tls(int socket, SslHandle handle) : fd(socket), ssl(std::move(handle))
{
    BIO *const bio = make_bio(fd);
    SSL_set_bio(ssl.get(), bio, bio);
}

// What a call of OpenSSL came to, as the socket interface would say it. `events` is what it waits for.
ssize_t Channel::Tls::outcome(int result, short &events)
{
    const int system_error = errno;
    const int why = SSL_get_error(ssl.get(), result);
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
        error = tls_error_text();
        errno = EPROTO;
        return -1;
    }
}

Channel::Channel() = default;
Channel::Channel(Channel &&) noexcept = default;
Channel &Channel::operator=(Channel &&) noexcept = default;
Channel::~Channel() = default;

Channel::Channel(Fd socket) : socket_(std::move(socket)) {}

Channel::Channel(Fd socket, SslHandle ssl)
    : socket_(std::move(socket)), tls_(std::make_unique<Tls>(socket_.get(), std::move(ssl)))
{
}

// OpenSSL's list of errors is the thread's, and must be empty before a call whose result is looked into.

bool Channel::handshake()
{
    if (!tls_)
        return true;
    ERR_clear_error();
    return tls_->outcome(SSL_do_handshake(tls_->ssl.get()), tls_->read_events) > 0;
}

ssize_t Channel::read(char *buffer, std::size_t size)
{
    if (!tls_)
        return ::recv(socket_.get(), buffer, size, MSG_DONTWAIT);
    ERR_clear_error();
    tls_->read_events = POLLIN;
    return tls_->outcome(SSL_read(tls_->ssl.get(), buffer, as_int(size)), tls_->read_events);
}

ssize_t Channel::write(std::string_view bytes)
{
    if (!tls_)
        return ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    ERR_clear_error();
    tls_->write_events = POLLOUT;
    return tls_->outcome(SSL_write(tls_->ssl.get(), bytes.data(), as_int(bytes.size())), tls_->write_events);
}

bool Channel::write_all(std::string_view bytes, std::chrono::milliseconds patience)
{
    return qvcd::write_all(
        fd(), bytes, patience, [this](std::string_view rest) { return write(rest); },
        [this] { return write_events(); });
}

bool Channel::finish()
{
    if (!tls_ || tls_->finished)
        return true;
    ERR_clear_error();
    const int result = SSL_shutdown(tls_->ssl.get());
    tls_->finished = result >= 0 || tls_->outcome(result, tls_->write_events) >= 0;
    return tls_->finished;
}

short Channel::read_events() const
{
    return tls_ ? tls_->read_events : POLLIN;
}

short Channel::write_events() const
{
    return tls_ ? tls_->write_events : POLLOUT;
}

std::optional<std::string> Channel::certificate_user() const
{
    X509 *const certificate = tls_ ? SSL_get0_peer_certificate(tls_->ssl.get()) : nullptr;
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

std::string Channel::distrust() const
{
    const long verdict = tls_ ? SSL_get_verify_result(tls_->ssl.get()) : X509_V_OK;
    return verdict == X509_V_OK ? "" : X509_verify_cert_error_string(verdict);
}

std::string Channel::problem() const
{
    return tls_ && errno == EPROTO ? tls_->error : std::generic_category().message(errno);
}

} // namespace qvcd
