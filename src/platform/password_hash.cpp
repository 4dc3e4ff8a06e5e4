#include "platform/password_hash.h"

#include "platform/crypto.h"
#include "platform/log.h"

#include <algorithm>
#include <cerrno>
#include <crypt.h>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace qvcd {

namespace {

constexpr char kMethod[] = "$y$";

struct Method {
    std::string_view prefix;
    std::string_view costs; // the characters of the cost that may follow, the first one; empty: it is fixed
    std::size_t last_field; // bytes behind the last "$"
};

// The cost of yescrypt is "j", N and r: "j9T" is the usual one, "jBT" the highest that we take.
constexpr Method kMethods[] = {
    {"$y$j", "789AB", 43}, {"$2b$0", "456789", 53}, {"$2b$1", "012", 53}, {"$2y$0", "456789", 53},
    {"$2y$1", "012", 53},  {"$6$", "", 86},         {"$5$", "", 43},      {"$1$", "", 22},
};

bool is_of(std::string_view text, const Method &method)
{
    if (!text.starts_with(method.prefix))
        return false;
    const std::string_view rest = text.substr(method.prefix.size());
    if (!method.costs.empty() && (rest.empty() || method.costs.find(rest.front()) == std::string_view::npos))
        return false;
    return text.size() - text.rfind('$') - 1 == method.last_field;
}

bool is_usual_yescrypt(std::string_view text)
{
    constexpr std::size_t kParametersEnd = 6; // "$y$j9T"
    return text.size() > kParametersEnd &&
           (text[kParametersEnd - 1] == 'T' || text[kParametersEnd - 1] == '5') &&
           text[kParametersEnd] == '$';
}

struct Free {
    void operator()(void *memory) const { std::free(memory); }
};

// Empty when the password or the setting cannot be hashed; errno says why.
std::string crypt_text(const std::string &password, const std::string &setting)
{
    void *memory = nullptr;
    int size = 0;
    const char *result = ::crypt_ra(password.c_str(), setting.c_str(), &memory, &size);
    const std::unique_ptr<void, Free> owner(memory);
    std::string text = result && result[0] != '*' ? result : "";
    if (memory)
        ::explicit_bzero(memory, static_cast<std::size_t>(size)); // it holds the password too
    return text;
}

} // namespace

bool qv_is_password_hash(std::string_view text)
{
    if (text.find("$rounds=") != std::string_view::npos ||
        std::ranges::none_of(kMethods, [&](const Method &method) { return is_of(text, method); }))
        return false;
    if (text.starts_with(kMethod) && !is_usual_yescrypt(text))
        return false;
    const int verdict = ::crypt_checksalt(std::string(text).c_str());
    return verdict == CRYPT_SALT_OK || verdict == CRYPT_SALT_METHOD_LEGACY;
}

std::optional<std::string> qv_hash_password(const std::string &password)
{
    errno = ERANGE;
    const std::unique_ptr<char, Free> setting(
        password.size() > kMaxHashedPasswordBytes ? nullptr : ::crypt_gensalt_ra(kMethod, 0, nullptr, 0));
    std::string hash = setting ? crypt_text(password, setting.get()) : "";
    if (qv_is_password_hash(hash))
        return hash;
    qv_log_print(kLogError, "Can not hash a password: %s\n", std::strerror(errno));
    return std::nullopt;
}

bool qv_password_matches(const std::string &stored, const std::string &password)
{
    if (!qv_is_password_hash(stored))
        return qvcrypto_equal(stored, password);
    const std::string hash = crypt_text(password, stored);
    return !hash.empty() && qvcrypto_equal(stored, hash);
}

} // namespace qvcd
