#include "appliance_root.h"
#include "ident_image.h"
#include "loopback.h"
#include "platform/clock.h"
#include "platform/ident.h"
#include "platform/power.h"
#include "platform/remote.h"

#include <gtest/gtest.h>
#include <vector>

namespace qvcd {
namespace {

class DeviceTest : public OnEmptyRoot<testing::Test> {};

TEST_F(DeviceTest, DamagedIdentityMemory)
{
    IdentData data;
    EXPECT_FALSE(qv_ident_read_data(data)) << "no memory";
    EXPECT_FALSE(qv_ident_find_group(data, 6));

    appliance_root().write(kIdentFile, std::string("\x06\xf0Maker", 7)); // length beyond the end, short file
    ASSERT_TRUE(qv_ident_read_data(data));
    ASSERT_TRUE(qv_ident_find_group(data, 6));
    EXPECT_EQ(qv_ident_find_group(data, 6)->size(), kIdentBytes - 2);
    std::string text;
    EXPECT_TRUE(qv_ident_read_group(6, text));
    EXPECT_EQ(text, "Maker");

    data.fill(6); // records without an end; the last one is cut in two
    EXPECT_FALSE(qv_ident_find_group(data, 7));
    appliance_root().write(kIdentFile, ident_image({{5, "A100"}, {0, ""}, {7, "hidden"}}));
    EXPECT_FALSE(qv_ident_read_group(7, text)) << "behind the end mark";
    EXPECT_TRUE(qv_ident_read_group(5, text));
    EXPECT_EQ(text, "A100");
    EXPECT_EQ(ident_read_number({}, 6), 0U);
}

TEST_F(DeviceTest, PowerSource)
{
    const struct {
        std::vector<std::pair<const char *, const char *>> files;
        int source, capacity;
    } cases[] = {
        {{}, 0, 0},
        {{{"ac/type", "Mains"}, {"ac/online", "0"}, {"usb/type", "USB_DCP"}, {"usb/online", "1"}}, 2, 0},
        {{{"ac/type", "Mains"},
          {"ac/online", "1"},
          {"b/type", "Battery"},
          {"b/status", "Discharging"},
          {"b/capacity", "80"}},
         1,
         80},
        {{{"b1/type", "Battery"},
          {"b1/capacity", "42"},
          {"b2/type", "Battery"},
          {"b2/status", "Full"},
          {"b2/capacity", "9"}},
         4,
         42},
        {{{"b/type", "Battery"}, {"b/status", "Full"}, {"b/capacity", "100"}}, 0, 100},
        {{{"mouse/type", "Battery"},
          {"mouse/scope", "Device"},
          {"slot/type", "Battery"},
          {"slot/present", "0"}},
         0,
         0},
        {{{"b/type", "Battery"}, {"b/scope", "System"}, {"b/present", "1"}, {"b/capacity", "99999999999"}},
         4,
         100},
    };
    for (const auto &c : cases) {
        std::filesystem::remove_all(appliance_root().path("sys"));
        for (const auto &[name, text] : c.files)
            appliance_root().write(std::string("sys/class/power_supply/") + name, std::string(text) + "\n");
        EXPECT_EQ(power_read_source(), c.source) << "case " << &c - cases;
        EXPECT_EQ(power_read_battery_capacity(), c.capacity) << "case " << &c - cases;
    }
}

std::tm local_time(int year, int month, int day, int hour)
{
    std::tm time{};
    time.tm_year = year - 1900;
    time.tm_mon = month - 1;
    time.tm_mday = day;
    time.tm_hour = hour;
    time.tm_isdst = -1;
    return time;
}

TEST_F(DeviceTest, ClockUnderASysrootIsAFile)
{
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    EXPECT_EQ(qv_time_set_local(local_time(2024, 2, 29, 12)), 0);
    EXPECT_EQ(qv_time_set_local(local_time(2023, 2, 29, 12)), -1) << "no such day";
    EXPECT_EQ(qv_time_set_local(local_time(2024, 3, 31, 2)), -1) << "an hour that daylight saving skips";
    EXPECT_EQ(appliance_root().read("var/run/qv/clock"), "20240229T12:00:00\n");

    std::tm utc{};
    EXPECT_EQ(qv_time_convert_to_utc(local_time(2024, 7, 1, 1), utc), 0);
    EXPECT_EQ(std::tuple(utc.tm_mon, utc.tm_mday, utc.tm_hour), std::tuple(5, 30, 23));
    EXPECT_EQ(qv_time_convert_to_utc(local_time(2024, 4, 31, 1), utc), -1);
    EXPECT_FALSE(qv_rtc_exists());
    unsetenv("TZ");
    tzset();
}

TEST_F(DeviceTest, RemoteCommand)
{
    const std::string long_line(5000, 'x');
    const struct {
        std::string answer;
        int code;
        std::string reply;
    } cases[] = {
        {"2.1.4\n@\n0\n", 0, "2.1.4\n"},
        {"a\n@b\n@\n12\n", 12, "a\n@b\n"},
        {long_line + "\n@\n0\n", 0, long_line.substr(0, 100)},
        {"2.1.4\n@\n0", -1, ""}, // breaks off before the code's end
        {"", -1, ""},
    };
    for (const auto &c : cases) {
        std::string reply = "old";
        AnsweringMachine unit(c.answer, "\n\n");
        EXPECT_EQ(qvcd_remote_buf_send_command("127.0.0.1", unit.port(), 0, "getv A.B", reply, 100), c.code);
        EXPECT_EQ(reply, c.reply);
        EXPECT_EQ(unit.requests(), "qvcd 0 0\ngetv A.B\n\n");
    }
    const LoopbackPort closed;
    std::string reply = "old";
    EXPECT_EQ(qvcd_remote_buf_send_command("127.0.0.1", closed.port(), 0, "get", reply, 10), -1);
    EXPECT_EQ(reply, "");
    EXPECT_EQ(qvcd_remote_buf_send_command("127.0.0.1", closed.port(), 0, "get A\nset B=1", reply, 10), -1);
}

} // namespace
} // namespace qvcd
