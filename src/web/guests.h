#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>

namespace qvcd::web {

struct ServerLimits {
    std::size_t connections = 256;
    std::size_t of_one_address = 32; ///< or of one IPv6 network of 64 bits
};

/// A connection, for who counts and ends them.
class Guest {
  public:
    virtual ~Guest() = default;
    virtual void close() = 0;
    virtual bool is_idle() const = 0; ///< between two requests
};

/// Who is here, and from where. For one thread.
class Guests {
  public:
    explicit Guests(ServerLimits limits) : limits_(limits) {}

    /// Whether one more from there may come in; one that waits for nothing may have to go for him.
    bool has_room(const std::string &place);
    void add(const std::string &place, const std::shared_ptr<Guest> &guest);
    void leave(const std::string &place, Guest *guest); ///< from his destructor

    /// One address must not fill the lane of log-ins. False: it has its share already.
    bool begin_login(const std::string &place);
    void end_login(const std::string &place) { --places_[place].logins; }

    void close_all();

  private:
    struct Place {
        std::size_t guests = 0, logins = 0;
    };

    const ServerLimits limits_;
    std::map<Guest *, std::weak_ptr<Guest>> guests_;
    std::map<std::string, Place> places_;
};

} // namespace qvcd::web
