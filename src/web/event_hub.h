#pragma once

#include "web/daemon.h"
#include "web/pool.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace boost::asio {
class io_context;
}

namespace qvcd::web {

/// Who is told of events, as text of an event stream. All calls come on the thread of the loop.
class Listener {
  public:
    virtual ~Listener() = default;
    virtual void send(std::shared_ptr<const std::string> text) = 0;
    virtual void end() = 0; ///< nothing more comes
};

class Subscription;

/// The daemon's events, told to any number of listeners over one connection to the daemon for each of its
/// sessions: the daemon decides what a session sees. A connection that breaks is made again.
class EventHub {
  public:
    EventHub(boost::asio::io_context &loop, Pool &pool, const Daemon &daemon);
    ~EventHub();

    /// Makes sure that there is a connection for the session. May wait; on any thread. Throws Problem.
    void open(const Who &who);

    /// From now on, on the thread of the loop. `last` is the id of the last event that the listener has seen:
    /// what came since is sent, or that it is gone. `key` tells its log-in from others. False: the session
    /// has no connection.
    bool listen(const Who &who, const std::string &key, const std::string &last,
                const std::shared_ptr<Listener> &listener);

    /// The log-in has ended: so do its streams, and with the last one the connection. On any thread.
    void end(const Who &who, const std::string &key, bool is_last);

    /// Ends all. On the thread of the loop.
    void stop();

  private:
    friend class Subscription;
    std::shared_ptr<Subscription> find(int session);
    void drop(int session);

    boost::asio::io_context &loop_;
    Pool &pool_;
    const Daemon &daemon_;
    std::mutex mutex_;
    std::map<int, std::shared_ptr<Subscription>> subscriptions_; // by the daemon's session
};

} // namespace qvcd::web
