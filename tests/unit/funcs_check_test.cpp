#include "funcs/check_functions.h"
#include "funcs/check_map.h"
#include "platform/api_errors.h"
#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/database.h"
#include "store/profile_files.h"
#include "temp_folder.h"

#include <gtest/gtest.h>

namespace qvcd {
namespace {

constexpr char kApi[] = "Encoder.Profiles.name";

struct Case {
    const char *type;
    std::string value;
    const char *error; // null: accepted
};

class CheckTest : public testing::Test {
  protected:
    static void SetUpTestSuite()
    {
        hdfdb_init();
        cmd_create_cfuncmap_hdf();
    }
    static void TearDownTestSuite()
    {
        cmd_destroy_cfuncmap_hdf();
        hdfdb_destroy();
    }

    static std::optional<std::string> check(const std::string &type, const std::string &value)
    {
        metaDB.set(std::string(kApi) + ".type", type);
        return cfuncmap_check(kApi, value);
    }

    static void expect_all(std::initializer_list<Case> cases)
    {
        for (const Case &c : cases) {
            const std::optional<std::string> line = check(c.type, c.value);
            const std::string shown = std::string(c.type) + " <" + c.value + ">";
            if (c.error)
                EXPECT_EQ(line, (std::string(c.error) + ": " + c.value).substr(0, 255)) << shown;
            else
                EXPECT_EQ(line, std::nullopt) << shown;
        }
    }
};

std::string times(std::size_t count, char c)
{
    return std::string(count, c);
}

TEST_F(CheckTest, Blank)
{
    expect_all(
        {{"blank", "", nullptr}, {"blank", " ", API_E_INVALID_OPTION}, {"blank", "0", API_E_INVALID_OPTION}});
}

TEST_F(CheckTest, Boolean)
{
    expect_all({
        {"boolean", "0", nullptr},
        {"boolean", "1", nullptr},
        {"boolean", "2", API_E_INVALID_BOOLEAN_VALUE},
        {"boolean", "", API_E_INVALID_BOOLEAN_VALUE},
        {"boolean", "01", API_E_INVALID_BOOLEAN_VALUE},
        {"boolean", "true", API_E_INVALID_BOOLEAN_VALUE},
    });
}

TEST_F(CheckTest, Strings)
{
    expect_all({
        {"string", " ~", nullptr},
        {"string", "", API_E_INVALID_STRING},
        {"string", "a\x1f", API_E_INVALID_CHARACTER},
        {"string", "a\x7f", API_E_INVALID_CHARACTER},
        {"string", "caf\xc3\xa9", API_E_INVALID_CHARACTER},
        {"string", "a\"b", API_E_INVALID_CHARACTER},
        {"string_set auto manual", "manual", nullptr},
        {"string_set auto manual", "Manual", API_E_INVALID_STRING_FORMAT},
        {"string_set auto manual", "man", API_E_INVALID_STRING_FORMAT},
        {"string_set auto manual", "", API_E_INVALID_STRING},
        {"string_set auto manual", "\n", API_E_INVALID_CHARACTER},
        {"string_set", "auto", API_E_INVALID_STRING_FORMAT},
        {"alpha_numeric", "azAZ09", nullptr},
        {"alpha_numeric", "", nullptr},
        {"alpha_numeric", "a_b", API_E_INVALID_CHARACTER},
        {"alpha_numeric", "a\n", API_E_INVALID_CHARACTER},
        {"label", times(40, 'x'), nullptr},
        {"label", times(41, 'x'), API_E_INVALID_STRING_LENGTH_TOO_LONG},
        {"label", "", API_E_INVALID_STRING},
        {"label", times(41, '"'), API_E_INVALID_CHARACTER},
    });
}

TEST_F(CheckTest, StringLengths)
{
    expect_all({
        {"string_length 8 63", times(7, 'x'), API_E_INVALID_STRING_LENGTH_TOO_SHORT},
        {"string_length 8 63", times(8, 'x'), nullptr},
        {"string_length 8 63", times(63, 'x'), nullptr},
        {"string_length 8 63", times(64, 'x'), API_E_INVALID_STRING_LENGTH_TOO_LONG},
        {"string_length 8 63", times(8, '\t'), API_E_INVALID_CHARACTER},
        {"string_length 0 5", "", API_E_INVALID_STRING},
        {"string_length", "x", nullptr},
        {"string_length", times(256, 'x'), nullptr},
        {"string_length", times(257, 'x'), API_E_INVALID_STRING_LENGTH_TOO_LONG},
        {"string_length 3", "xx", API_E_INVALID_STRING_LENGTH_TOO_SHORT},
        {"string_length 2x 3y", "xxx", nullptr},
        {"password 8 63", times(8, '*'), nullptr},
        {"password 8 63", "abc", API_E_INVALID_PASSWORD_TOO_SHORT},
        {"password 8 63", times(64, 'x'), API_E_INVALID_PASSWORD_TOO_LONG},
        {"password 8 63", "a b", API_E_INVALID_PASSWORD_CHARACTER},
        {"password 8 63", "12345678%", API_E_INVALID_PASSWORD_CHARACTER},
        {"password", "", API_E_INVALID_PASSWORD_TOO_SHORT},
        {"password", times(256, 'x'), nullptr},
        {"password", times(257, 'x'), API_E_INVALID_PASSWORD_TOO_LONG},
        {"password", "\"\xc3\xa9\n", nullptr},
    });
}

TEST_F(CheckTest, StringsByPattern)
{
    expect_all({
        {"filename", "a Z09._$-", nullptr},
        {"filename", "", API_E_INVALID_CHARACTER},
        {"filename", "a/b", API_E_INVALID_CHARACTER},
        {"filename", times(40, 'x'), nullptr},
        {"filename", times(41, 'x'), API_E_INVALID_STRING_LENGTH_TOO_LONG},
        {"base64", "YWJj", nullptr},
        {"base64", "Y/ j==", nullptr},
        {"base64", "", nullptr},
        {"base64", "YW+j", API_E_INVALID_OPTION},
        {"base64", "=a", API_E_INVALID_OPTION},
        {"string_ext", "\x01\xff%", nullptr},
        {"string_ext", "", API_E_INVALID_STRING},
        {"string_ext", "a\"", API_E_INVALID_CHARACTER},
        {"serial_flags", "-o 8N1", nullptr},
        {"serial_flags", "", nullptr},
        {"serial_flags", "a;b", API_E_INVALID_STRING_FORMAT},
    });
}

TEST_F(CheckTest, Integers)
{
    expect_all({
        {"integer", "0123456789", nullptr},
        {"integer", "", API_E_INVALID_INTEGER_FORMAT},
        {"integer", "-1", API_E_INVALID_INTEGER_FORMAT},
        {"integer", "1 ", API_E_INVALID_INTEGER_FORMAT},
        {"integer_set 7 12x", "007", nullptr},
        {"integer_set 7 12x", "12", nullptr},
        {"integer_set 7 12x", "8", API_E_INVALID_INTEGER_FORMAT},
        {"integer_set 7 12x", "7x", API_E_INVALID_INTEGER_FORMAT},
        {"integer_set", "0", API_E_INVALID_INTEGER_FORMAT},
        {"integer_range 1 10", "0", API_E_INVALID_INTEGER_RANGE},
        {"integer_range 1 10", "1", nullptr},
        {"integer_range 1 10", "10", nullptr},
        {"integer_range 1 10", "11", API_E_INVALID_INTEGER_RANGE},
        {"integer_range 1 10", "+3", API_E_INVALID_INTEGER_FORMAT},
        {"integer_range 1 10", " 3", API_E_INVALID_INTEGER_FORMAT},
        {"integer_range", "0", nullptr},
        {"integer_range", "1", API_E_INVALID_INTEGER_RANGE},
        {"integer_range 1 10", "4294967297", nullptr}, // 32 bits are looked at
        {"integer_range 0 10", "2147483648", API_E_INVALID_INTEGER_RANGE},
    });
}

TEST_F(CheckTest, SignedIntegers)
{
    expect_all({
        {"signed_integer", "-12", nullptr},
        {"signed_integer", "-", nullptr},
        {"signed_integer", "", API_E_INVALID_SIGNED_INTEGER_FORMAT},
        {"signed_integer", "--1", API_E_INVALID_SIGNED_INTEGER_FORMAT},
        {"signed_integer", "+5", API_E_INVALID_SIGNED_INTEGER_FORMAT},
        {"signed_integer_set 1 3", "2", nullptr},
        {"signed_integer_set -1 5", "-2", API_E_INVALID_SIGNED_INTEGER_RANGE},
        {"signed_integer_range -10 10", "-10", nullptr},
        {"signed_integer_range -10 10", "10", nullptr},
        {"signed_integer_range -10 10", "-11", API_E_INVALID_SIGNED_INTEGER_RANGE},
        {"signed_integer_range -10 10", "11", API_E_INVALID_SIGNED_INTEGER_RANGE},
        {"signed_integer_range -10 10", "1.0", API_E_INVALID_SIGNED_INTEGER_FORMAT},
        {"signed_integer_range", "-", nullptr},
        {"signed_integer_range", "1", API_E_INVALID_SIGNED_INTEGER_RANGE},
    });
}

TEST_F(CheckTest, FloatsAndHexadecimals)
{
    expect_all({
        {"float", "1.5", nullptr},
        {"float", "-2", nullptr},
        {"float", "-.5", nullptr},
        {"float", ".5", API_E_INVALID_FLOAT},
        {"float", "1.", API_E_INVALID_FLOAT},
        {"float", "1.2.3", API_E_INVALID_FLOAT},
        {"float", "1.-2", API_E_INVALID_FLOAT},
        {"float", "1e3", API_E_INVALID_FLOAT},
        {"float", "", API_E_INVALID_FLOAT},
        {"float_range -0.5 2.25", "-0.5", nullptr},
        {"float_range -0.5 2.25", "2.25", nullptr},
        {"float_range -0.5 2.25", "-0.51", API_E_INVALID_FLOAT_RANGE},
        {"float_range -0.5 2.25", "2.26", API_E_INVALID_FLOAT_RANGE},
        {"float_range 0 1", "1.00000001", nullptr}, // equal in single precision
        {"float_range 0 1", "x", API_E_INVALID_FLOAT},
        {"float_range", "0.0", nullptr},
        {"float_range", "0.1", API_E_INVALID_FLOAT_RANGE},
        {"hexadecimal", "09afAF", nullptr},
        {"hexadecimal", "", nullptr},
        {"hexadecimal", "0x1f", API_E_INVALID_HEXADECIMAL},
        {"hexadecimal", "g", API_E_INVALID_HEXADECIMAL},
    });
}

TEST_F(CheckTest, Addresses)
{
    expect_all({
        {"ipaddress", "0.0.0.0", nullptr},
        {"ipaddress", "255.255.255.255", nullptr},
        {"ipaddress", "256.0.0.1", API_E_INVALID_IP_ADDRESS_FORMAT},
        {"ipaddress", "1.2.3", API_E_INVALID_IP_ADDRESS_FORMAT},
        {"ipaddress", "::1", API_E_INVALID_IP_ADDRESS_FORMAT},
        {"ipaddress", "", API_E_INVALID_IP_ADDRESS_FORMAT},
        {"multicast_ipaddress", "224.0.0.0", nullptr},
        {"multicast_ipaddress", "239.255.255.255", nullptr},
        {"multicast_ipaddress", "223.0.0.1", API_E_INVALID_MULTICAST_IP_ADDRESS_FORMAT},
        {"multicast_ipaddress", "240.0.0.1", API_E_INVALID_MULTICAST_IP_ADDRESS_FORMAT},
        {"multicast_ipaddress", "224.0.0", API_E_INVALID_IP_ADDRESS_FORMAT},
        {"submask", "128.0.0.0", nullptr},
        {"submask", "255.255.255.0", nullptr},
        {"submask", "255.255.255.255", nullptr},
        {"submask", "0.0.0.0", API_E_INVALID_SUBMASK_FORMAT},
        {"submask", "0.255.0.0", API_E_INVALID_SUBMASK_FORMAT},
        {"submask", "255.0.255.0", API_E_INVALID_SUBMASK_FORMAT},
        {"submask", "255.255.0.255", API_E_INVALID_SUBMASK_FORMAT},
        {"submask", "255.255.255.1", API_E_INVALID_SUBMASK_FORMAT},
        {"submask", "255.255.256.0", API_E_INVALID_IP_ADDRESS_FORMAT},
        {"portnumber", "0", nullptr},
        {"portnumber", "65535", nullptr},
        {"portnumber", "65536", API_E_INVALID_PORT_NUMBER_FORMAT},
        {"portnumber", "2147483648", API_E_INVALID_PORT_NUMBER_FORMAT},
        {"portnumber", "-1", API_E_INVALID_INTEGER_FORMAT},
        {"macaddress", "00:1a:2B:ff:00:01", nullptr},
        {"macaddress", "1:2:3:4:5:6", nullptr},
        {"macaddress", "1:2:3:4:5:6:7 rest", nullptr},
        {"macaddress", "1:2:3:4:5", API_E_INVALID_MAC_ADDRESS_FORMAT},
        {"macaddress", "100:2:3:4:5:6", API_E_INVALID_MAC_ADDRESS_FORMAT},
        {"macaddress", "1:2:3:4:5:100", API_E_INVALID_MAC_ADDRESS_FORMAT},
        {"macaddress", "1-2-3-4-5-6", API_E_INVALID_MAC_ADDRESS_FORMAT},
        {"macaddress", "", API_E_INVALID_MAC_ADDRESS_FORMAT},
    });
}

TEST_F(CheckTest, Names)
{
    const std::string label63 = times(63, 'a');
    const std::string labels250 =
        times(62, 'a') + "." + times(62, 'b') + "." + times(62, 'c') + "." + times(61, 'd');
    expect_all({
        {"hostname", "cam-1", nullptr},
        {"hostname", label63, nullptr},
        {"hostname", label63 + "a", API_E_INVALID_HOSTNAME_FORMAT},
        {"hostname", "-cam", API_E_INVALID_HOSTNAME_FORMAT},
        {"hostname", "", API_E_INVALID_HOSTNAME_FORMAT},
        {"hostname", "cam-", API_E_INVALID_DOMAIN_NAME_FORMAT},
        {"hostname", "cam.local", API_E_INVALID_HOSTNAME_FORMAT},
        {"hostname", "local", nullptr},
        {"hostname", "local1", nullptr},
        {"hostname", "mylocal", API_E_INVALID_HOSTNAME_FORMAT},
        {"hostname", "xlocal1", API_E_INVALID_HOSTNAME_FORMAT},
        {"hostname", "xlocal12", nullptr},
        {"domainname", "example.org", nullptr},
        {"domainname", "10.0.0.1", nullptr},
        {"domainname", "", API_E_INVALID_DOMAIN_NAME_FORMAT},
        {"domainname", "a-.b", API_E_INVALID_DOMAIN_NAME_FORMAT},
        {"domainname", "a.b-", API_E_INVALID_DOMAIN_NAME_FORMAT},
        {"domainname", "a..b", API_E_INVALID_DOMAIN_NAME_FORMAT},
        {"domainname", "a_b.org", API_E_INVALID_DOMAIN_NAME_FORMAT},
        {"domainname", label63 + ".org", nullptr},
        {"domainname", label63 + "a.org", API_E_INVALID_DOMAIN_NAME_FORMAT},
        {"domainname", labels250 + ".de", nullptr},
        {"domainname", labels250 + ".com", API_E_INVALID_DOMAIN_NAME_FORMAT},
        {"domainname", "cam.local", API_E_INVALID_HOSTNAME_FORMAT},
        {"domainname", "cam.local.", API_E_INVALID_HOSTNAME_FORMAT},
        {"domainname", "cam.local-", API_E_INVALID_HOSTNAME_FORMAT},
        {"domainname_list", "", nullptr},
        {"domainname_list", " a.org:10.0.0.1  b ", nullptr},
        {"domainname_list", "a.org cam.local", API_E_INVALID_DOMAIN_NAME_FORMAT},
        {"domainname_list", "a.org b-", API_E_INVALID_DOMAIN_NAME_FORMAT},
        {"ssid", "\x01 \"\xff", nullptr},
        {"ssid", times(32, 'x'), nullptr},
        {"ssid", times(33, 'x'), API_E_INVALID_STRING_LENGTH_TOO_LONG},
        {"ssid", "", API_E_INVALID_STRING},
    });
}

TEST_F(CheckTest, Timecode)
{
    expect_all({
        {"timecode", "19700101T00:00:00", nullptr},
        {"timecode", "20371231T23:59:59", nullptr},
        {"timecode", "20230231T00:00:00", nullptr},
        {"timecode", "19691231T23:59:59", API_E_INVALID_DATE_RANGE},
        {"timecode", "20380101T00:00:00", API_E_INVALID_DATE_RANGE},
        {"timecode", "20370001T00:00:00", API_E_INVALID_DATE_RANGE},
        {"timecode", "20371301T00:00:00", API_E_INVALID_DATE_RANGE},
        {"timecode", "20370100T00:00:00", API_E_INVALID_DATE_RANGE},
        {"timecode", "20370132T00:00:00", API_E_INVALID_DATE_RANGE},
        {"timecode", "20370101T24:00:00", API_E_INVALID_DATE_RANGE},
        {"timecode", "20370101T00:60:00", API_E_INVALID_DATE_RANGE},
        {"timecode", "20370101T00:00:60", API_E_INVALID_DATE_RANGE},
        {"timecode", "2037010aT00:00:00", API_E_INVALID_DATE_RANGE},
        {"timecode", "2037-01-01T00:00", API_E_INVALID_DATE_FORMAT},
        {"timecode", "20370101 00:00:00", API_E_INVALID_DATE_FORMAT},
        {"timecode", "20370101T00:00:000", API_E_INVALID_DATE_FORMAT},
        {"timecode", "", API_E_INVALID_DATE_FORMAT},
    });
}

TEST_F(CheckTest, Profiles)
{
    const TempFolder root;
    setenv("QV_SYSROOT", root.path().c_str(), 1);
    ASSERT_EQ(qv_sysroot(), root.path());
    root.write("etc/profiles/studio.hdf", "Encoder.Profiles.name = studio\n");
    root.write("etc/profiles/other.hdf", "Decoder.Profiles.name = other\n");
    root.write("etc/profiles/plain.hdf", "Encoder.rate = 1\n");
    ASSERT_EQ(profiledb_load(), 0);
    expect_all({
        {"profile", "studio", nullptr},
        {"profile", "plain", nullptr},
        {"profile", "default", nullptr},
        {"profile", "missing", "##Invalid profile#"},
        {"profile", "", "##Invalid profile#"},
        {"profile", "current", "##Invalid profile#"},
        {"profile2", "studio", nullptr},
        {"profile2", "other", "##Invalid profile#"},
        {"profile2", "plain", "##Invalid profile#"},
        {"profile2", "default", "##Invalid profile#"},
        {"profile2", "missing", "##Invalid profile#"},
        {"profile2", "../profiles/studio", "##Invalid profile#"},
    });
    profiledb_destroy();
}

TEST_F(CheckTest, AlternativesInOrderAndTheLastErrorIsReported)
{
    expect_all({
        {"ipaddress,blank", "", nullptr},
        {"ipaddress,blank", "10.0.0.1", nullptr},
        {"integer_range 1 10,blank", "", nullptr},
        {"integer_range 1 10,blank", "11", API_E_INVALID_OPTION},
        {"blank,integer_range 1 10", "11", API_E_INVALID_INTEGER_RANGE},
        {"integer_set 1 , integer_set 2", "2", nullptr},
        {"integer_range\r\n1 10", "5", nullptr},
        {"no_such_type", "1", "Undefined check function"},
        {"undefined", "1", "Undefined check function"},
        {"no_such_type,boolean", "1", nullptr},
        {"boolean,no_such_type", "2", "Undefined check function"},
        {",", "1", "Undefined check function"},
        {"Boolean", "1", "Undefined check function"},
    });
}

TEST_F(CheckTest, WithoutATypeEverythingPasses)
{
    EXPECT_EQ(cfuncmap_check("Unknown.api", "\x01"), std::nullopt);
    EXPECT_EQ(check("", "\x01"), std::nullopt);
}

TEST_F(CheckTest, TypeIsInherited)
{
    metaDB.set("Group.type", "boolean");
    metaDB.set("Group.member.perm", "0666");
    EXPECT_EQ(cfuncmap_check("Group.member", "x"), "##Invalid boolean value#: x");
}

TEST_F(CheckTest, ArgumentsBeyondFiftyAreIgnored)
{
    std::string type = "string_set";
    for (int i = 1; i <= 51; ++i)
        type += " m" + std::to_string(i);
    EXPECT_EQ(check(type, "m50"), std::nullopt);
    EXPECT_EQ(check(type, "m51"), "##Invalid string format#: m51");
}

TEST_F(CheckTest, ErrorLineIsCutTo255Bytes)
{
    const std::optional<std::string> line = check("boolean", times(1023, 'v'));
    ASSERT_TRUE(line);
    EXPECT_EQ(*line, std::string(API_E_INVALID_BOOLEAN_VALUE) + ": " + times(255 - 24 - 2, 'v'));
}

TEST_F(CheckTest, LogHoldsNoPassword)
{
    const TempFolder folder;
    qv_log_start(4, false, false, folder.path("log").c_str(), false, "test");
    check("password 8 63", "Secret");
    check("password_old", "Secret");
    check("boolean", "Public");
    qv_log_stop();
    const std::string log = folder.read("log");
    EXPECT_NE(log.find("   Encoder.Profiles.name: password fail [##Password too short#: *******]"),
              std::string::npos);
    EXPECT_NE(log.find("Undefined check function: param:Encoder.Profiles.name value:*******"),
              std::string::npos);
    EXPECT_NE(log.find("boolean fail [##Invalid boolean value#: Public]"), std::string::npos);
    EXPECT_EQ(log.find("Secret"), std::string::npos);
}

TEST_F(CheckTest, SubtypesWithoutARow)
{
    const std::string args[] = {"8", "10"};
    EXPECT_STREQ(check_string_types(kApi, kStringPassword, args, "short"), API_E_INVALID_PASSWORD_TOO_SHORT);
    EXPECT_STREQ(check_string_types(kApi, kStringPassword, args, "much too long"),
                 API_E_INVALID_PASSWORD_TOO_LONG);
    EXPECT_STREQ(check_string_types(kApi, kStringPassword, args, ""), API_E_INVALID_STRING);
    EXPECT_EQ(check_string_types(kApi, kStringPassword, args, "good pass"), nullptr);
    EXPECT_EQ(check_string_types(kApi, kStringAny, args, "\""), nullptr);
    EXPECT_EQ(check_string_types(kApi, 99, args, ""), nullptr);
    EXPECT_EQ(check_integer_types(kApi, 99, args, "x"), nullptr);
    EXPECT_EQ(check_network_types(kApi, 99, args, "x"), nullptr);
}

TEST(CheckRegexp, PatternThatDoesNotCompileMatchesNothing)
{
    EXPECT_EQ(check_regexp("a", "^a+$"), 0);
    EXPECT_EQ(check_regexp("b", "^a+$"), 1);
    EXPECT_EQ(check_regexp("a", "a("), 1);
    EXPECT_EQ(check_regexp("a", "a("), 1);
}

} // namespace
} // namespace qvcd
