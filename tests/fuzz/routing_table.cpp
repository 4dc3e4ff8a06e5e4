// Fuzzing of two files of the system that readers take apart: the kernel's table of routes, and the
// resolver's configuration, which any DHCP server may have written. The first byte says which.

#include "fuzz.h"
#include "status/network_settings.h"

#include <arpa/inet.h>

namespace {

void read_routes(const FuzzRoot &root, std::string_view text)
{
    root.write("/proc/net/route", text);
    qvcd::Request request(0);
    const auto gateway = qvcd::gateway_rfunc(request, nullptr, nullptr);
    in_addr address{};
    require(gateway && (gateway->empty() || inet_pton(AF_INET, gateway->c_str(), &address) == 1));
}

void read_resolver(const FuzzRoot &root, std::string_view text)
{
    root.write("/etc/resolv.conf", text);
    for (const char *keyword : {"nameserver", "domain"}) {
        qvcd::Request request(0);
        const auto words = qvcd::resolv_rfunc(request, "/etc/resolv.conf", keyword);
        require(!words || (text.find(keyword) != std::string_view::npos && words->size() <= text.size() &&
                           words->find_first_of(" \t\n") == std::string::npos));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const FuzzRoot root;
    if (size == 0)
        return 0;
    const std::string_view text = view_of(data + 1, size - 1);
    if (data[0] % 2 == 0)
        read_routes(root, text);
    else
        read_resolver(root, text);
    return 0;
}
