#include "ident_image.h"
#include "status/bond_info.h"
#include "status/codec_info.h"
#include "status/identity.h"
#include "status/system_info.h"
#include "status/versions.h"
#include "status_fixture.h"

#include <sys/sysinfo.h>

namespace qvcd {
namespace {

class SystemInfoTest : public StatusTest {};

// What a reader asks the world for, before and after somebody changes it.
TEST_F(SystemInfoTest, OneRequestSeesOneSnapshot)
{
    const struct {
        const char *name;
        Reader reader;
        const char *attr;
        const char *file;
        std::string before, after;         // what the file holds
        const char *old_value, *new_value; // what is read then
    } cases[] = {
        {"identity", qvi_rfunc, "country", kIdentFile, ident_image({{23, "FI"}}), ident_image({{23, "NO"}}),
         "FI", "NO"},
        {"hardware", hw_version_rfunc, nullptr, kIdentFile, ident_image({{7, "1"}}), "", "1", "unknown"},
        {"settings in force", codec_actual_settings_rfunc, "rate", "tmp/mobisettings.hdf", "rate=5\n",
         "broken {\n", "5", kNothing},
        {"bonding", bond_info_rfunc, "state", "var/run/bond/state", "up\n", "down\n", "up", "down"},
    };
    for (const auto &c : cases) {
        Request first(0xffff);
        Request second(0xffff);
        appliance_root().write(c.file, c.before);
        EXPECT_EQ(read_for(first, c.reader, c.attr), c.old_value) << c.name;
        appliance_root().write(c.file, c.after);
        EXPECT_EQ(read_for(second, c.reader, c.attr), c.new_value) << c.name;
        EXPECT_EQ(read_for(first, c.reader, c.attr), c.old_value) << c.name << ", while others read anew";
        Request with_other_rights = first.as(0);
        EXPECT_EQ(read_for(with_other_rights, c.reader, c.attr), c.old_value) << c.name;
    }
}

TEST_F(SystemInfoTest, FiguresOfTheKernelsRecord)
{
    struct sysinfo info {};
    info.loads[0] = 98304;
    info.loads[1] = 65535;            // just below one: truncated, not rounded
    info.loads[2] = 12 * 65536 + 656; // 0.01001
    info.totalram = 512 << 20;
    info.freeram = (100 << 20) + 1023;
    EXPECT_EQ(sysinfo_text(info, "all"), "1.50 0.99 12.01");
    EXPECT_EQ(sysinfo_text(info, "used"), "421887");
    EXPECT_GT(std::stol(read_with(info_get_sysinfo, nullptr, "totalram")), 0);
}

TEST_F(SystemInfoTest, Times)
{
    EXPECT_EQ(uptime_text(2 * 86400 + 82800, "all"), "2 days, 23:00");
    EXPECT_EQ(uptime_text(90061, "all"), "1 day,  1:01");
    EXPECT_EQ(*uptime_text(90061, "day") + *uptime_text(90061, "hr") + *uptime_text(90061, "min"), "1 101");
    EXPECT_EQ(uptime_text(90061, "seconds"), "90061");
    std::tm time{};
    time.tm_year = 124;
    time.tm_mon = 1;
    time.tm_mday = 9;
    time.tm_hour = 7;
    EXPECT_EQ(time_text(time, "string"), "Feb 09, 2024, 07:00:00");
    EXPECT_EQ(time_text(time, "timecode"), "20240209T07:00:00");
    EXPECT_EQ(read_with(info_get_currenttime, nullptr, "timecode").size(), 17U);
    EXPECT_NE(read_with(info_get_uptime, nullptr, "all"), kNothing);
    for (const Reader reader : {info_get_sysinfo, info_get_uptime, info_get_currenttime})
        expect_reads(reader, {{nullptr, kNothing}, {"nonsense", kNothing}});
}

TEST_F(SystemInfoTest, Temperature)
{
    const struct {
        const char *text;
        std::vector<Reading> readings;
    } cases[] = {
        {"40000\n",
         {{"C", "40.0"}, {"", "40.0"}, {"fahrenheit", "104.0"}, {"F", "104.0"}, {nullptr, "104.0"}}},
        {"-5250", {{"Celsius", "-5.2"}}},
        {"garbage", {{"C", "0.0"}}},
    };
    expect_reads(info_get_temperature, {{"F", "0.0"}}, "no sensor");
    for (const auto &[sensor, readings] : cases) {
        appliance_root().write("sys/class/hwmon/hwmon0/device/temp1_input", sensor);
        expect_reads(info_get_temperature, readings, sensor);
    }
}

TEST_F(SystemInfoTest, Power)
{
    expect_reads(power_source_rfunc, {{nullptr, kNothing}});
    appliance_root().write("sys/class/power_supply/bat/type", "Battery\n");
    appliance_root().write("sys/class/power_supply/bat/capacity", "63\n");
    expect_reads(power_source_rfunc, {{nullptr, "BATT"}});
    expect_reads(battery_level_rfunc, {{nullptr, "63"}});
}

TEST_F(SystemInfoTest, Versions)
{
    const std::pair<const char *, const char *> releases[] = {
        {"2.1.4r1520 rc3", "2.1.4rc3"},
        {"2.1.4r1520 dev", "2.1.4BETA"},
        {"2.1.4r1520", "2.1.4"},
        {"1.0r7 RC12", "1.0rc12"},
        {"1.0r7 rc", "1.0BETA"},
        {"1.0r7 Rc2", "1.0BETA"},
        {"1.0", "1.0"},
        {"1.0r", "1.0"},
        {"r7 rc1", "rc1"},
    };
    for (const auto &[release, text] : releases) {
        appliance_root().write("etc/version", std::string("firmware=") + release + "\n");
        expect_reads(version_rfunc, {{"firmware", text, "/etc/version"}}, release);
    }
    expect_reads(version_rfunc, {{"hardware", kNothing, "/etc/version"}, {"firmware", kNothing}});
    const std::pair<const char *, const char *> kernels[] = {
        {"Linux version 6.1.0-18 (gcc) #1\nmore", "6.1.0-18"},
        {"Linux version 6.1.0\n", "6.1.0"},
        {"Linux\nversion 6.1.0 and more", kNothing}};
    for (const auto &[text, release] : kernels) {
        appliance_root().write("proc/version", text);
        expect_reads(linux_version_rfunc, {{"Linux version", release, "/proc/version"},
                                           {"linux version", kNothing, "/proc/version"},
                                           {nullptr, kNothing, "/proc/version"},
                                           {"Linux version", kNothing, "/proc/none"}});
    }
}

TEST_F(SystemInfoTest, IdentityFields)
{
    expect_reads(qvi_rfunc, {{"serialnumber", kNothing}, {"country", "none"}}, "no memory");
    const std::string binary = ident_image({{1, std::string("Encoder 5\0junk", 14)},
                                            {3, "\x02"},
                                            {4, "\x01\x02\x63"},
                                            {5, binary_build(1520, 3000000001U)},
                                            {6, "Maker"},
                                            {7, "1.3"},
                                            {8, "\x07"},
                                            {9, "\x0a\x08"},
                                            {1, "Second"}});
    appliance_root().write(kIdentFile, binary);
    expect_reads(qvi_rfunc, {{"brandname", "Maker"},
                             {"productname", "Encoder 5"},
                             {"buildinfo", "1520"},
                             {"serialnumber", "3000000001"},
                             {"vouts", "hdmi,sdi,unknown"},
                             {"vins", "sdi"},
                             {"aouts", "headphone,embedded"},
                             {"ains", "analog"},
                             {"country", "none"},
                             {"colour", kNothing},
                             {nullptr, kNothing}});
    appliance_root().write(kIdentFile, ident_image({{5, "SN-17"}, {23, "FI"}}));
    expect_reads(qvi_rfunc, {{"country", "FI"}, {"serialnumber", "SN-17"}, {"buildinfo", "SN-17"}});
}

} // namespace
} // namespace qvcd
