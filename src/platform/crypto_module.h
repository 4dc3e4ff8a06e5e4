#pragma once

#include "platform/module.h"
#include "platform/tls.h"

#include <array>
#include <memory>
#include <optional>
#include <string_view>

namespace qvcd {

/// What takes OpenSSL.
struct CryptoModule {
    static constexpr char kName[] = "crypto";

    std::unique_ptr<TlsContext::Settings> (*tls_server)(const TlsFiles &files); ///< throws TlsError
    std::unique_ptr<TlsContext::Settings> (*tls_client)(const TlsFiles &files); ///< throws TlsError

    /// Nothing when the library does not offer it.
    std::optional<std::array<unsigned char, 16>> (*md5)(std::string_view text);
    std::optional<std::array<unsigned char, 32>> (*sha256)(std::string_view text);
};

} // namespace qvcd
