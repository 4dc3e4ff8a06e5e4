// The appliance over HTTP: an ordinary client of the daemon, with the session of who logged in.

#include "platform/log.h"
#include "web/certificate.h"
#include "web/event_hub.h"
#include "web/options.h"
#include "web/pool.h"
#include "web/types.h"

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <ifaddrs.h>
#include <netdb.h>
#include <unistd.h>

namespace qvcd::web {

namespace {

namespace asio = boost::asio;

constexpr std::chrono::seconds kLookForIdle{20};
constexpr std::chrono::seconds kPatience{2}; // at the end

std::string host_name()
{
    std::array<char, 256> name{};
    ::gethostname(name.data(), name.size() - 1);
    return name.data();
}

std::vector<std::string> own_addresses()
{
    std::vector<std::string> addresses;
    ifaddrs *list = nullptr;
    if (::getifaddrs(&list) != 0)
        return {"127.0.0.1", "::1"};
    for (const ifaddrs *at = list; at; at = at->ifa_next) {
        const int family = at->ifa_addr ? at->ifa_addr->sa_family : AF_UNSPEC;
        if (family != AF_INET && family != AF_INET6)
            continue;
        std::array<char, NI_MAXHOST> text{};
        const socklen_t size = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
        if (::getnameinfo(at->ifa_addr, size, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST) == 0 &&
            std::strchr(text.data(), '%') == nullptr)
            addresses.emplace_back(text.data());
    }
    ::freeifaddrs(list);
    return addresses;
}

// The one that is given, or that was made before, as long as it can be used.
Certificate certificate_of(const Options &options)
{
    if (!options.certificate.empty())
        return {options.certificate, options.key};
    const std::filesystem::path folder = options.state_folder;
    std::filesystem::create_directories(folder);
    const Certificate own{folder / "certificate.pem", folder / "key.pem"};
    if (is_usable_certificate(own.certificate, own.key))
        return own;
    const std::string name = host_name();
    std::vector<std::string> names = {name, name.substr(0, name.find('.')) + ".local", "localhost"};
    names.insert(names.end(), options.names.begin(), options.names.end());
    std::erase_if(names, [](const std::string &n) { return n.empty() || n == "any" || n.starts_with('.'); });
    make_certificate(own.certificate, own.key, names, own_addresses());
    qv_log_print(kLogNotice, "made a certificate: %s\n", own.certificate.c_str());
    return own;
}

// Ends what nobody used for long, now and then, on a thread that may wait.
class IdleWatch {
  public:
    IdleWatch(asio::io_context &loop, Pool &pool, Sessions &sessions)
        : timer_(loop), pool_(pool), sessions_(sessions)
    {
        wait();
    }
    void stop() { timer_.cancel(); }

  private:
    void wait()
    {
        timer_.expires_after(kLookForIdle);
        timer_.async_wait([this](const boost::system::error_code &error) {
            if (error)
                return;
            pool_.add([this] { sessions_.end_idle(); });
            wait();
        });
    }

    asio::steady_timer timer_;
    Pool &pool_;
    Sessions &sessions_;
};

int serve(const Options &options)
{
    std::set<std::string> names = options.names;
    std::optional<Certificate> certificate;
    if (!options.plain) {
        certificate = certificate_of(options);
        for (const std::string &name : names_of_certificate(certificate->certificate))
            names.insert(name);
    }
    asio::io_context loop(1);
    Daemon daemon(options.socket_folder);
    Types types(daemon);
    EventHub *told = nullptr;
    Sessions sessions(options.idle, [&](const Sessions::Gone &gone) {
        if (told)
            told->end(gone.who, gone.digest, gone.is_last);
        if (gone.is_last)
            daemon.log_out(gone.who);
    });
    Pool quick(8, 256);
    Pool slow(4, 32);
    Pool login(2, 16);
    EventHub events(loop, quick, daemon);
    told = &events;
    Services services{daemon, sessions, events, types, !options.plain};
    const Gate gate(names, !options.plain);
    const Files files(options.files);
    Server server(loop, {services, gate, files, quick, slow, login}, options.limits,
                  certificate ? &*certificate : nullptr);
    for (const std::string &where : options.listen) {
        const unsigned port = server.listen(where);
        const std::string host = where.substr(0, where.rfind(':'));
        std::printf("%s://%s:%u/\n", options.plain ? "http" : "https", host.c_str(), port);
    }
    std::fflush(stdout);
    IdleWatch idle(loop, slow, sessions);
    asio::signal_set signals(loop, SIGINT, SIGTERM);
    signals.async_wait([&](const boost::system::error_code &, int) {
        server.stop();
        events.stop();
        loop.stop();
    });
    loop.run();
    // What still waits for the daemon then is of no use to anybody.
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    bool all_ended = true;
    for (Pool *pool : {&quick, &slow, &login})
        all_ended = pool->stop(deadline) && all_ended;
    told = nullptr;
    sessions.clear();
    if (!all_ended)
        std::_Exit(0);
    return 0;
}

} // namespace

} // namespace qvcd::web

int main(int argc, char **argv)
{
    using namespace qvcd;
    int status = 0;
    const auto options = web::parse_options(argc, argv, status);
    if (!options)
        return status;
    std::signal(SIGPIPE, SIG_IGN);
    qv_log_start(options->verbosity, false, options->debug, nullptr, !options->debug, "qvweb");
    try {
        return web::serve(*options);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "qvweb: %s\n", error.what());
        return 1;
    }
}
