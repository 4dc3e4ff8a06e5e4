#include "processes.h"

#include "line_client.h"
#include "platform/fd.h"
#include "platform/socket.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace qvcd::bench {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kStartPatience = 300s;
constexpr auto kPollPause = 200us;

// A benchmark that is killed leaves no process behind.
void die_with_parent(pid_t parent)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(1);
}

void stop_child(pid_t pid, int signal)
{
    if (pid <= 0)
        return;
    kill(pid, signal);
    waitpid(pid, nullptr, 0);
}

int listen_at(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw std::runtime_error("the path of the root is too long: " + path);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const void *raw = &address;
    if (fd < 0 || ::bind(fd, static_cast<const sockaddr *>(raw), sizeof address) != 0 || ::listen(fd, 8) != 0)
        throw std::runtime_error("cannot listen at " + path + ": " + std::strerror(errno));
    return fd;
}

void send_whole(int fd, const char *bytes, std::size_t size)
{
    while (size > 0) {
        const ssize_t n = ::send(fd, bytes, size, MSG_NOSIGNAL);
        if (n <= 0)
            return;
        bytes += n;
        size -= static_cast<std::size_t>(n);
    }
}

void echo(int fd)
{
    std::vector<char> buffer(std::size_t{256} << 10);
    for (;;) {
        const ssize_t n = ::recv(fd, buffer.data(), buffer.size() - 1, 0);
        if (n <= 0)
            return;
        const auto size = static_cast<std::size_t>(n);
        if (buffer.front() != '=') {
            send_whole(fd, buffer.data(), size);
            continue;
        }
        buffer[size] = '\0';
        for (std::size_t left = std::strtoul(buffer.data() + 1, nullptr, 10); left > 0;) {
            const std::size_t piece = std::min(left, buffer.size());
            send_whole(fd, buffer.data(), piece);
            left -= piece;
        }
    }
}

} // namespace

Root::Root(const std::string &parent) : path_(parent + "/qvb.XXXXXX")
{
    if (!mkdtemp(path_.data()))
        throw std::runtime_error("cannot make a folder in " + parent + ": " + std::strerror(errno));
    for (const char *folder : {"/etc/bench", "/tmp", "/var/run"})
        std::filesystem::create_directories(path_ + folder);
}

Root::~Root()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

Daemon::Daemon(const std::string &program, const std::string &root, const std::string &metadata) : root_(root)
{
    const auto start = Clock::now();
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ < 0)
        throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    if (pid_ == 0) {
        die_with_parent(parent);
        setenv("QV_SYSROOT", root.c_str(), 1);
        execl(program.c_str(), "qvcd", "-g", "-w", "-f", metadata.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    wait_for_answer();
    start_time_ = Clock::now() - start;
}

void Daemon::wait_for_answer()
{
    const auto give_up = Clock::now() + kStartPatience;
    while (!can_connect(socket())) {
        if (waitpid(pid_, nullptr, WNOHANG) != 0) {
            pid_ = -1;
            throw std::runtime_error("qvcd does not start");
        }
        if (Clock::now() > give_up) {
            stop_child(pid_, SIGKILL);
            throw std::runtime_error("qvcd does not answer");
        }
        std::this_thread::sleep_for(kPollPause);
    }
    LineClient client(socket());
    client.send("?\n");
    if (client.line() != "!")
        throw std::runtime_error("qvcd gives a wrong answer to the probe");
}

Daemon::~Daemon()
{
    stop_child(pid_, SIGINT);
}

std::string Daemon::socket() const
{
    return root_ + "/var/run/qv/qvcd.sock";
}

double Daemon::resident_bytes() const
{
    std::ifstream file("/proc/" + std::to_string(pid_) + "/statm");
    double total = 0;
    double resident = 0;
    file >> total >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

EchoServer::EchoServer(const std::string &root) : path_(root + "/echo.sock")
{
    const Fd listener(listen_at(path_));
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ < 0)
        throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    if (pid_ != 0)
        return;
    die_with_parent(parent);
    for (;;) {
        const Fd client(::accept(listener.get(), nullptr, nullptr));
        if (!client)
            _exit(0);
        echo(client.get());
    }
}

EchoServer::~EchoServer()
{
    stop_child(pid_, SIGKILL);
}

} // namespace qvcd::bench
