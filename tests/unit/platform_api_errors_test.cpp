#include "platform/api_errors.h"

#include <gtest/gtest.h>
#include <string_view>

namespace qvcd {
namespace {

struct Row {
    std::string_view text;
    std::size_t length;
};

constexpr Row kRows[] = {
    {API_E_IMPORT_FAILED, 16},
    {API_E_APPLY_FAILED, 15},
    {API_E_INVALID_IP_ADDRESS_FORMAT, 28},
    {API_E_INVALID_STRING_LENGTH_TOO_LONG, 34},
    {API_E_INVALID_FLOAT_RANGE, 22},
    {API_E_INVALID_STRING, 17},
    {API_E_INVALID_INTEGER_RANGE, 24},
    {API_E_INVALID_DATE_RANGE, 20},
    {API_E_INVALID_STRING_FORMAT, 24},
    {API_E_INVALID_DATE_FORMAT, 22},
    {API_E_INVALID_HOSTNAME_FORMAT, 26},
    {API_E_INVALID_PORT_NUMBER_FORMAT, 29},
    {API_E_INVALID_CHARACTER, 20},
    {API_E_INVALID_CMD, 18},
    {API_E_INVALID_SIGNED_INTEGER_RANGE, 31},
    {API_E_INVALID_CMD_ARGS, 28},
    {API_E_INVALID_PASSWORD, 19},
    {API_E_INVALID_STRING_LENGTH_TOO_SHORT, 35},
    {API_E_PARAM_NOT_FOUND, 22},
    {API_E_INVALID_INTEGER_FORMAT, 25},
    {API_E_INVALID_SIGNED_INTEGER_FORMAT, 32},
    {API_E_INVALID_USER, 15},
    {API_E_INVALID_SUBMASK_FORMAT, 29},
    {API_E_INVALID_OPTION, 17},
    {API_E_INVALID_PASSWORD_TOO_SHORT, 21},
    {API_E_INVALID_PERMISSION, 21},
    {API_E_INVALID_MAC_ADDRESS_FORMAT, 29},
    {API_E_INVALID_DOMAIN_NAME_FORMAT, 29},
    {API_E_INVALID_PASSWORD_CHARACTER, 29},
    {API_E_INVALID_MULTICAST_IP_ADDRESS_FORMAT, 38},
    {API_E_INVALID_PASSWORD_TOO_LONG, 20},
    {API_E_INVALID_HEXADECIMAL, 28},
    {API_E_INVALID_BOOLEAN_VALUE, 24},
    {API_E_INVALID_FORMAT, 17},
    {API_E_INVALID_GROUP, 16},
    {API_E_INVALID_FLOAT, 22},
};

TEST(ApiErrors, HaveTheirLengthsAndFrames)
{
    EXPECT_EQ(std::size(kRows), 36U);
    for (const Row &row : kRows) {
        EXPECT_EQ(row.text.size(), row.length) << row.text;
        EXPECT_TRUE(row.text.starts_with("##") && row.text.ends_with('#')) << row.text;
        EXPECT_EQ(row.text.substr(2, row.text.size() - 3).find('#'), std::string_view::npos) << row.text;
    }
}

TEST(ApiErrors, TextsThatAreQuotedElsewhere)
{
    EXPECT_STREQ(API_E_APPLY_FAILED, "##Apply failed#");
    EXPECT_STREQ(API_E_PARAM_NOT_FOUND, "##Parameter not found#");
}

} // namespace
} // namespace qvcd
