/* The least that a client can be, linked statically. Usage: qvcd_bench_client SOCKET "get NAME" */

#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

int main(int argc, char **argv)
{
    static const char hello[] = "client 0 0\n";
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    char buffer[4096];
    size_t size = 0;
    ssize_t n;
    int fd;

    if (argc != 3 || strlen(argv[1]) >= sizeof address.sun_path || strlen(argv[2]) > 1024)
        return 2;
    strcpy(address.sun_path, argv[1]);
    fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0 || connect(fd, (const struct sockaddr *)&address, sizeof address) != 0)
        return 2;
    size = sizeof hello - 1;
    memcpy(buffer, hello, size);
    memcpy(buffer + size, argv[2], strlen(argv[2]));
    size += strlen(argv[2]);
    buffer[size++] = '\n';
    buffer[size++] = '\n';
    if (write(fd, buffer, size) != (ssize_t)size)
        return 2;
    for (size = 0; (n = read(fd, buffer + size, sizeof buffer - size)) > 0;)
        size += (size_t)n;
    if (size < 4 || memcmp(buffer + size - 4, "@\n", 2) != 0)
        return 2;
    if (write(STDOUT_FILENO, buffer, size - 4) != (ssize_t)size - 4)
        return 2;
    return buffer[size - 2] - '0';
}
