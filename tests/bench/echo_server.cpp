// The bare machine: answers what it reads as an epoll(7) server must, and does nothing else.
// Usage: qvcd_bench_echo SOCKET
// Each read is taken for one request; the answer is as long as the request, and longer (shorter) by what its
// first byte is above (below) '@'. What it says does not matter.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

bool watch(int epoll, int fd)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    return epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) == 0;
}

void answer(int fd, std::vector<char> &buffer)
{
    const ssize_t n = read(fd, buffer.data(), buffer.size() / 2);
    const ssize_t size = n + (buffer.front() - '@');
    if (n <= 0 || size <= 0 || write(fd, buffer.data(), static_cast<std::size_t>(size)) != size)
        close(fd);
}

} // namespace

int main(int argc, char **argv)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (argc != 2 || std::strlen(argv[1]) >= sizeof address.sun_path)
        return 2;
    std::memcpy(address.sun_path, argv[1], std::strlen(argv[1]));
    const void *const raw = &address;
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
    const int epoll = epoll_create1(0);
    if (listener < 0 || bind(listener, static_cast<const sockaddr *>(raw), sizeof address) != 0 ||
        listen(listener, 1024) != 0 || !watch(epoll, listener)) {
        std::perror(argv[1]);
        return 1;
    }
    std::vector<char> buffer(std::size_t{64} << 10);
    std::vector<epoll_event> events(64);
    for (;;) {
        const int ready = epoll_wait(epoll, events.data(), static_cast<int>(events.size()), -1);
        if (ready < 0 && errno != EINTR)
            return 1;
        for (int i = 0; i < ready; ++i) {
            const int fd = events[static_cast<std::size_t>(i)].data.fd;
            if (fd != listener)
                answer(fd, buffer);
            else if (const int client = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK); client >= 0)
                watch(epoll, client);
        }
    }
}
