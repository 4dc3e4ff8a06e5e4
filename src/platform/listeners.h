#pragma once

#include "platform/coarse_clock.h"
#include "platform/peer.h"
#include "platform/socket.h"
#include "platform/tls.h"

#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <sys/epoll.h>

namespace qvcd {

struct Listener {
    UnixListener socket;
    bool local = false;
    std::shared_ptr<const TlsContext> tls; ///< none: in clear
};

/// The sockets where clients come in, watched by one epoll(7). Used by one thread at a time.
class Listeners {
  public:
    void add(Listener listener);

    /// Watches them; false with errno set.
    bool watch(int epoll);

    /// The one that the event is about; null: it is about something else, whose address is even.
    static Listener *of(const epoll_event &event);

    struct Arrival {
        Fd socket;
        Peer peer;
    };

    /// The next client; nothing when there is none just now.
    std::optional<Arrival> accept(Listener &listener);

    /// True when accept() failed for a reason that only time can cure: then they are not watched for a while,
    /// or the loop would spin.
    bool is_pausing() const { return resume_at_ != std::chrono::milliseconds::max(); }
    std::chrono::milliseconds resume_at() const { return resume_at_; } ///< max(): they are watched
    void resume();

    /// Nobody connects any more.
    void remove_names();
    void clear() { listeners_.clear(); }

  private:
    void pause(int error);
    bool control(int operation, std::uint32_t events);

    int epoll_ = -1;
    std::list<Listener> listeners_;
    std::chrono::milliseconds resume_at_ = std::chrono::milliseconds::max();
    LogPause trouble_;
};

} // namespace qvcd
