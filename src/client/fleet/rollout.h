#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "client/fleet/commands.h"
#include "client/fleet/journal.h"

namespace qvcd::client::fleet {

/// A commit on many appliances: batch by batch. In a batch all commit, awaiting confirmation; each must come
/// back with the new values; then they are confirmed, or when more have failed than may, what stands of the
/// batch is undone and nothing further is begun. What is not confirmed undoes itself in time, whatever
/// becomes of us.
class Rollout {
  public:
    using State = Journal::State;

    struct Plan {
        std::map<std::string, Values> changes; ///< by appliance
        std::size_t batch = 10;
        std::size_t max_failures = 0;
        std::chrono::seconds confirm_in{120};
        std::chrono::seconds settle{3}; ///< from the commit to the first look: an action may cut it off
        std::string text;               ///< for the history; the run's mark is added
    };

    Rollout(Task &task, Journal &journal, Plan plan);

    /// Says of each appliance what became of it. True when all are done.
    bool run(const std::function<void(const std::string &id, State state, const std::string &why)> &tell);

    std::size_t count(State state) const; ///< of the plan's appliances

  private:
    // Of an appliance, in its batch.
    struct One {
        Values expected;
        long entry = 0; ///< of its history; 0: nothing stands
        bool is_unchanged = false;
        std::string problem;
    };
    using Batch = std::map<std::string, One>;

    std::vector<std::string> in_order() const;
    void look_at_done();
    void run_batch(Batch &batch);
    std::string commit_lines(const Values &values) const;
    void commit(Batch &batch);
    void look_for_standing(Batch &batch, const std::vector<std::string> &ids);
    void take_commit(const std::string &id, One &one, const Answer &answer, std::vector<std::string> &unsure);
    void wait_to_settle();
    void verify(Batch &batch);
    void confirm(Batch &batch);
    void undo(Batch &batch, bool all);
    void end(const std::string &id, State state, const std::string &why);
    void work(const std::string &what);

    Task &task_;
    Journal &journal_;
    const Plan plan_;
    const std::string mark_; // by which a commit of this run is known
    std::function<void(const std::string &, State, const std::string &)> tell_;
    std::size_t failures_ = 0;
    std::size_t settled_ = 0;
};

} // namespace qvcd::client::fleet
