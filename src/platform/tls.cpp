#include "platform/tls.h"

#include "platform/crypto_module.h"

namespace qvcd {

namespace {

const CryptoModule &crypto()
{
    try {
        return module<CryptoModule>();
    } catch (const ModuleError &error) {
        throw TlsError(std::string("TLS is not available: ") + error.what());
    }
}

} // namespace

TlsContext TlsContext::server(const TlsFiles &files)
{
    return TlsContext(crypto().tls_server(files));
}

TlsContext TlsContext::client(const TlsFiles &files)
{
    return TlsContext(crypto().tls_client(files));
}

} // namespace qvcd
