#include "client/reply.h"

#include <cstdio>

namespace qvcd::client {

void print_line(std::string_view line)
{
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
}

} // namespace qvcd::client
