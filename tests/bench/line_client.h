#pragma once

#include "platform/fd.h"

#include <string>
#include <string_view>

namespace qvcd::bench {

/// A client of a line protocol on a Unix stream socket that costs as little as it can. Throws when the other
/// side goes away.
class LineClient {
  public:
    explicit LineClient(const std::string &path);

    void send(std::string_view bytes);
    std::string_view line(); ///< the next line without its newline; good until the next call
    void skip_lines(std::size_t count);
    void skip_bytes(std::size_t count);
    std::size_t count_to_end(); ///< reads until the other side closes

  private:
    void fill();

    Fd socket_;
    std::string buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

/// False when nobody listens there.
bool can_connect(const std::string &path);

} // namespace qvcd::bench
