#include "web/http.h"

#include <algorithm>
#include <charconv>
#include <openssl/evp.h>
#include <stdexcept>

namespace qvcd::web {

namespace {

constexpr std::string_view kCookie = "qv_session=";
constexpr std::string_view kBearer = "bearer ";

std::string_view trimmed(std::string_view text)
{
    while (text.starts_with(' '))
        text.remove_prefix(1);
    while (text.ends_with(' '))
        text.remove_suffix(1);
    return text;
}

// The names of schemes are the same in any case.
bool has_scheme(std::string_view authorization, std::string_view scheme)
{
    return std::ranges::equal(authorization.substr(0, scheme.size()), scheme,
                              [](char given, char lower) { return (given | 0x20) == lower; });
}

// Calls `take` with each part.
template <class Take>
void split(std::string_view text, char separator, const Take &take)
{
    while (!text.empty()) {
        const std::size_t end = text.find(separator);
        take(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
}

} // namespace

std::string url_decode(std::string_view text, bool is_query)
{
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned byte = 0;
        const char *digits = text.data() + i + 1;
        if (text[i] == '%' && i + 2 < text.size() &&
            std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
            decoded += static_cast<char>(byte);
            i += 2;
        } else {
            decoded += is_query && text[i] == '+' ? ' ' : text[i];
        }
    }
    return decoded;
}

void take_target(std::string_view target, Request &request)
{
    const std::size_t question = target.find('?');
    request.path = url_decode(target.substr(0, question), false);
    if (question == std::string_view::npos)
        return;
    split(target.substr(question + 1), '&', [&](std::string_view part) {
        const std::size_t equals = part.find('=');
        const std::string_view value = equals == std::string_view::npos ? "" : part.substr(equals + 1);
        request.query.emplace(url_decode(part.substr(0, equals), true), url_decode(value, true));
    });
}

void take_credentials(std::string_view authorization, std::string_view cookies, Request &request)
{
    if (has_scheme(authorization, kBearer)) {
        request.token = trimmed(authorization.substr(kBearer.size()));
        return;
    }
    request.authorization = authorization;
    split(cookies, ';', [&](std::string_view cookie) {
        cookie = trimmed(cookie);
        if (cookie.starts_with(kCookie)) {
            request.token = cookie.substr(kCookie.size());
            request.has_cookie = true;
        }
    });
}

std::optional<Credentials> basic_credentials(std::string_view authorization)
{
    constexpr std::string_view kBasic = "basic ";
    constexpr std::size_t kMostBytes = 4096;
    if (!has_scheme(authorization, kBasic) || authorization.size() > kMostBytes)
        return std::nullopt;
    const std::string_view text = trimmed(authorization.substr(kBasic.size()));
    std::string bytes(text.size(), '\0');
    auto *out = reinterpret_cast<unsigned char *>(bytes.data());
    const auto *in = reinterpret_cast<const unsigned char *>(text.data());
    const int size = EVP_DecodeBlock(out, in, static_cast<int>(text.size()));
    if (size < 0)
        return std::nullopt;
    const auto padding = static_cast<std::size_t>(std::ranges::count(text, '='));
    bytes.resize(static_cast<std::size_t>(size) - std::min(padding, static_cast<std::size_t>(size)));
    const std::size_t colon = bytes.find(':');
    if (colon == std::string::npos)
        return std::nullopt;
    return Credentials{bytes.substr(0, colon), bytes.substr(colon + 1)};
}

std::pair<std::string, unsigned> split_address(const std::string &text)
{
    const std::size_t colon = text.rfind(':');
    std::string address = text.substr(0, colon == std::string::npos ? 0 : colon);
    if (address.starts_with('[') && address.ends_with(']'))
        address = address.substr(1, address.size() - 2);
    unsigned port = 0;
    const char *end = text.data() + text.size();
    const char *begin = text.data() + colon + 1;
    if (address.empty() || begin == end || std::from_chars(begin, end, port).ptr != end || port > 65535)
        throw std::runtime_error("'" + text + "' is no ADDRESS:PORT");
    return {address, port};
}

std::string text_of_address(std::string address)
{
    constexpr std::string_view kMapped = "::ffff:";
    if (address.starts_with(kMapped) && address.find('.') != std::string::npos)
        return address.substr(kMapped.size());
    return address.substr(0, address.find('%'));
}

} // namespace qvcd::web
