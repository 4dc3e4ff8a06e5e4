#include "web/certificate.h"

#include "platform/fd.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>
#include <stdexcept>
#include <sys/stat.h>

namespace qvcd::web {

namespace {

constexpr long kSecondsBack = 24L * 60 * 60; // clocks differ
constexpr long kSecondsAhead = 825L * 24 * 60 * 60;
constexpr int kLastDays = 30;

template <auto Free>
struct Freed {
    template <class T>
    void operator()(T *object) const
    {
        Free(object);
    }
};
using Key = std::unique_ptr<EVP_PKEY, Freed<EVP_PKEY_free>>;
using Cert = std::unique_ptr<X509, Freed<X509_free>>;
using Bio = std::unique_ptr<BIO, Freed<BIO_free_all>>;
using Extension = std::unique_ptr<X509_EXTENSION, Freed<X509_EXTENSION_free>>;
using Names = std::unique_ptr<GENERAL_NAMES, Freed<GENERAL_NAMES_free>>;

void check(bool is_good, const char *what)
{
    if (is_good)
        return;
    const char *reason = ERR_reason_error_string(ERR_get_error());
    throw std::runtime_error(std::string(what) + ": " + (reason ? reason : "OpenSSL failed"));
}

void add_extension(X509 *certificate, int kind, const std::string &value)
{
    X509V3_CTX context{};
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
    check(extension && X509_add_ext(certificate, extension.get(), -1) == 1, "certificate");
}

void give_number(X509 *certificate)
{
    std::uint64_t number = 0;
    check(RAND_bytes(reinterpret_cast<unsigned char *>(&number), sizeof number) == 1, "random numbers");
    check(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), number >> 1U) == 1, "certificate");
}

// A clock that has not been set yet stands before this program was made.
std::time_t now()
{
    struct stat program {};
    const std::time_t made = ::stat("/proc/self/exe", &program) == 0 ? program.st_mtim.tv_sec : 0;
    return std::max(std::time(nullptr), made);
}

Cert signed_by(EVP_PKEY *key, const std::string &name, const std::string &alternatives)
{
    Cert certificate(X509_new());
    check(certificate && X509_set_version(certificate.get(), 2) == 1, "certificate");
    give_number(certificate.get());
    std::time_t begin = now();
    X509_time_adj_ex(X509_getm_notBefore(certificate.get()), 0, -kSecondsBack, &begin);
    X509_time_adj_ex(X509_getm_notAfter(certificate.get()), 0, kSecondsAhead, &begin);
    check(X509_set_pubkey(certificate.get(), key) == 1, "certificate");
    X509_NAME *subject = X509_get_subject_name(certificate.get());
    const auto *text = reinterpret_cast<const unsigned char *>(name.c_str());
    check(X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8, text, -1, -1, 0) == 1, "certificate");
    check(X509_set_issuer_name(certificate.get(), subject) == 1, "certificate");
    add_extension(certificate.get(), NID_basic_constraints, "critical,CA:FALSE");
    add_extension(certificate.get(), NID_key_usage, "critical,digitalSignature");
    add_extension(certificate.get(), NID_ext_key_usage, "serverAuth");
    add_extension(certificate.get(), NID_subject_alt_name, alternatives);
    check(X509_sign(certificate.get(), key, EVP_sha256()) != 0, "certificate");
    return certificate;
}

std::string text_in(BIO *bio)
{
    char *data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    return {data, static_cast<std::size_t>(size)};
}

Cert certificate_in(const std::string &path)
{
    const Bio file(BIO_new_file(path.c_str(), "r"));
    return Cert(file ? PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr) : nullptr);
}

// Whole or not at all: a start that was cut off makes it anew.
void write_file(const std::string &path, const std::string &text, mode_t mode)
{
    const std::string fresh = path + ".new";
    ::unlink(fresh.c_str());
    Fd file(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
    const bool is_written =
        file && ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
        ::fsync(file.get()) == 0;
    if (!is_written || ::rename(fresh.c_str(), path.c_str()) != 0)
        throw std::runtime_error(path + ": " + std::strerror(errno));
}

} // namespace

void make_certificate(const std::string &certificate_file, const std::string &key_file,
                      const std::vector<std::string> &names, const std::vector<std::string> &addresses)
{
    const Key key(EVP_EC_gen("P-256"));
    check(key != nullptr, "key");
    std::string alternatives;
    for (const std::string &name : names)
        alternatives.append(alternatives.empty() ? "" : ",").append("DNS:").append(name);
    for (const std::string &address : addresses)
        alternatives.append(alternatives.empty() ? "" : ",").append("IP:").append(address);
    const std::string name = (names.empty() ? std::string("localhost") : names.front()).substr(0, 64);
    const Cert certificate = signed_by(key.get(), name, alternatives);
    const Bio key_text(BIO_new(BIO_s_mem()));
    const Bio text(BIO_new(BIO_s_mem()));
    check(key_text &&
              PEM_write_bio_PrivateKey(key_text.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1,
          "key");
    check(text && PEM_write_bio_X509(text.get(), certificate.get()) == 1, "certificate");
    write_file(key_file, text_in(key_text.get()), 0600);
    write_file(certificate_file, text_in(text.get()), 0644);
}

bool is_usable_certificate(const std::string &certificate_file, const std::string &key_file)
{
    const Cert certificate = certificate_in(certificate_file);
    const Bio file(BIO_new_file(key_file.c_str(), "r"));
    char no_password[] = ""; // nobody is there to be asked for one
    const Key key(file ? PEM_read_bio_PrivateKey(file.get(), nullptr, nullptr, no_password) : nullptr);
    std::time_t least = now() + kLastDays * 24L * 60 * 60;
    const bool is_good = certificate && key && X509_check_private_key(certificate.get(), key.get()) == 1 &&
                         X509_cmp_time(X509_get0_notAfter(certificate.get()), &least) > 0;
    ERR_clear_error();
    return is_good;
}

std::vector<std::string> names_of_certificate(const std::string &certificate_file)
{
    std::vector<std::string> names;
    const Cert certificate = certificate_in(certificate_file);
    if (!certificate)
        return names;
    const Names all(static_cast<GENERAL_NAMES *>(
        X509_get_ext_d2i(certificate.get(), NID_subject_alt_name, nullptr, nullptr)));
    for (int i = 0; all && i < sk_GENERAL_NAME_num(all.get()); ++i) {
        const GENERAL_NAME *name = sk_GENERAL_NAME_value(all.get(), i);
        if (name->type != GEN_DNS)
            continue;
        const auto *data = reinterpret_cast<const char *>(ASN1_STRING_get0_data(name->d.dNSName));
        names.emplace_back(data, static_cast<std::size_t>(ASN1_STRING_length(name->d.dNSName)));
    }
    return names;
}

} // namespace qvcd::web
