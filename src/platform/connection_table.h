#pragma once

#include "platform/served_connection.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>

namespace qvcd {

/// All connections of a server: what each waits for and until when, how many a source has, how much they
/// hold. Used by one thread at a time.
class ConnectionTable {
  public:
    struct Member;

    /// Every connection is in one of these, and late when it is there for `patience`. Who waits longest is
    /// the first.
    struct Stage {
        std::chrono::milliseconds patience{0}; ///< 0: as long as it takes
        std::list<Member> members;
    };

    struct Member : ServedConnection {
        using ServedConnection::ServedConnection;

        std::uint32_t events = 0; ///< what epoll(7) watches; 0: it is not registered
        Stage *stage = nullptr;

        const std::string &source() const { return source_; } ///< as it was added

      private:
        friend class ConnectionTable;
        std::list<Member>::iterator place;
        std::chrono::milliseconds since{0}; // in the stage
        std::string source_;
        std::size_t counted = 0; // of held_
    };

    explicit ConnectionTable(const ServerLimits &limits);

    Stage first;     ///< connected, and said no whole line yet
    Stage idle;      ///< between two lines
    Stage sending;   ///< does not take its answer
    Stage draining;  ///< its conversation is over, and it still talks
    Stage listening; ///< for others' news, as long as it takes
    Stage ready;     ///< with lines that wait their turn
    Stage busy;      ///< being served

    /// A new one, in `first`. It counts for `source`, unless that is empty.
    Member &add(Channel channel, Peer peer, std::unique_ptr<LineHandler> handler, std::string source);
    void remove(Member &member);
    void clear();

    std::size_t size() const { return size_; }
    std::size_t of_source(const std::string &source) const;

    /// To the end of the stage, from now on.
    void move(Member &member, Stage &stage);

    /// When the next one is late; max() when none will be.
    std::chrono::milliseconds next_late() const;

    /// One that is late at that time; null: none.
    Member *late(std::chrono::milliseconds now);

    /// The one that can be closed with the least harm: idle for longest, else taking no answer; null: all are
    /// served.
    Member *least_missed();

    /// Bytes that all hold. `count` notes those of one when it has come to rest.
    std::size_t held() const { return held_; }
    void count(Member &member);

    /// The one that holds most, of those that are not being served, of the source that does: many small ones
    /// of one source shall not have another's closed. Null: none holds anything.
    Member *largest();

  private:
    std::size_t size_ = 0;
    std::size_t held_ = 0;
    std::map<std::string, std::size_t, std::less<>> sources_;
    const std::array<Stage *, 4> patient_ = {&first, &idle, &sending, &draining};
};

} // namespace qvcd
