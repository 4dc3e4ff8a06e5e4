#include "fleet/member.h"

#include "fleet/status.h"
#include "platform/log.h"
#include "platform/notify_bus.h"
#include "platform/socket.h"
#include "platform/thread.h"

#include <future>
#include <system_error>

namespace qvcd {

namespace {

constexpr std::chrono::seconds kStopPatience{2};

// One of the two threads, and what ends it.
struct Part {
    std::thread thread;
    std::future<void> end;
    std::function<void()> stop;
};

std::vector<Part> parts;
std::shared_ptr<MqttClient> broker;

template <class What>
void start(std::shared_ptr<What> what)
{
    std::packaged_task<void()> task([what] { what->run(); });
    Part part{{}, task.get_future(), [what] { what->stop(); }};
    part.thread = start_quiet_thread(std::move(task));
    parts.push_back(std::move(part));
}

} // namespace

void fleet_start(Relay::Open open)
{
    broker = qvnotify_broker();
    if (!broker || !broker->config().commands)
        return;
    try {
        const auto relay = std::make_shared<Relay>(broker, std::move(open));
        start(relay);
        start(std::make_shared<Status>(broker));
        broker->join([relay](MqttRequest request) { relay->take(std::move(request)); });
    } catch (const std::system_error &error) {
        qv_log_print(kLogError, "mqtt: no commands are taken: %s\n", error.what());
    }
}

bool fleet_stop()
{
    if (broker)
        broker->leave();
    bool alone = true;
    const Deadline deadline = deadline_in(kStopPatience);
    for (const Part &part : parts)
        part.stop();
    for (Part &part : parts) {
        const bool ended = part.end.wait_until(deadline) == std::future_status::ready;
        ended ? part.thread.join() : part.thread.detach();
        alone &= ended;
    }
    parts.clear();
    broker.reset();
    return alone;
}

} // namespace qvcd
