#include "base/notify.h"
#include "platform/log.h"
#include "platform/notify_bus.h"
#include "platform_client.h"
#include "platform_root.h"

#include <gtest/gtest.h>

namespace qvcd {
namespace {

std::string subscriber_line(const std::string &event, const std::string &payload)
{
    return R"({"identity":"qvc","class":"event","event":")" + event + R"(","payload":")" + payload +
           R"(","topic":"qvc )" + event + "\"}\n";
}

TEST(Notify, LogAndBusCarryTheEventTheLogHidesSecrets)
{
    const std::string longer(2000, 'x');
    const struct {
        const char *event;
        std::string key, value;
        Secret secret;
        std::string payload, logged;
    } rows[] = {
        {"login", "admin", "42", Secret::outside, "admin=42", "admin=*******"},
        {"set", "A.b", "", Secret::no, "A.b=", "A.b="},
        {"set", "A.pass", "hunter2", Secret::yes, "A.pass=*******", "A.pass=*******"},
        {"save", "A", longer, Secret::no, "A=" + longer.substr(0, 1021), "A=" + longer.substr(0, 1021)},
    };
    const TempFolder folder;
    qv_log_start(2, false, false, folder.path("log").c_str(), false, "test");
    ASSERT_EQ(qvnotify_start(), 0);
    TestClient subscriber = TestClient::of("notify");
    std::string log;
    for (const auto &row : rows) {
        EXPECT_EQ(notify_publish_on(row.event, row.key, row.value, row.secret), 0);
        EXPECT_EQ(subscriber.line(), subscriber_line(row.event, row.payload));
        log += "notify: " + std::string(row.event) + ": " + row.logged + " (qvc " + row.event + ")\n";
    }
    qvnotify_stop();
    qv_log_stop();
    EXPECT_EQ(folder.read("log"), log);
}

} // namespace
} // namespace qvcd
