#include "platform/service_manager.h"

#include "platform/fd.h"
#include "platform/log.h"
#include "platform/socket.h"

#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

namespace qvcd {

namespace {

constexpr std::chrono::seconds kPatience{2}; // with a manager that does not read

// A number in the environment, all of it.
std::optional<std::uint64_t> number_in(const char *variable)
{
    const char *const value = std::getenv(variable);
    const std::string_view text = value ? value : "";
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

bool send_to(const std::string &path, std::string_view state)
{
    auto address = unix_address(path);
    if (!address)
        return false;
    if (address->sun_path[0] == '@') // a name in the abstract namespace, see unix(7)
        address->sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    const Fd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    set_send_timeout(socket.get(), kPatience);
    return socket && ::sendto(socket.get(), state.data(), state.size(), MSG_NOSIGNAL, as_sockaddr(&*address),
                              size) >= 0;
}

} // namespace

bool has_service_manager()
{
    return std::getenv("NOTIFY_SOCKET") != nullptr;
}

void tell_service_manager(std::string_view state)
{
    const char *const path = std::getenv("NOTIFY_SOCKET");
    if (path && !send_to(path, state))
        qv_log_print(kLogError, "cannot tell the service manager at %s: %s\n", path, std::strerror(errno));
}

std::optional<std::chrono::microseconds> watchdog_interval()
{
    const auto microseconds = number_in("WATCHDOG_USEC");
    const bool is_for_another =
        std::getenv("WATCHDOG_PID") && number_in("WATCHDOG_PID") != static_cast<std::uint64_t>(::getpid());
    if (!microseconds || *microseconds == 0 || !std::in_range<std::int64_t>(*microseconds) || is_for_another)
        return std::nullopt;
    return std::chrono::microseconds(*microseconds);
}

} // namespace qvcd
