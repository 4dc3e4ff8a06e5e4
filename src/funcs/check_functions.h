#pragma once

#include <span>
#include <string>
#include <string_view>

namespace qvcd {

// The validators behind check_map.cpp. Each is a pure function of its arguments, except for the profile
// rules, which ask about profile files, and returns null when the value is acceptable, else a constant error
// text. A function that gets a subtype it does not know accepts the value.

/// The words after the type's name.
using CheckArgs = std::span<const std::string>;

/// The API's full name, the rule within the family, the arguments, the value without NUL bytes.
using CheckFunction = const char *(*)(std::string_view api, int subtype, CheckArgs args,
                                      std::string_view value);

/// Subtypes of check_string_types. No type name leads to kStringPassword and kStringAny.
enum StringRule : int {
    kString = 0,
    kStringSet = 1,
    kAlphaNumeric = 2,
    kLabel = 3,
    kStringLength = 4,
    kStringPassword = 5,
    kFilename = 6,
    kBase64 = 7,
    kStringAny = 8,
    kStringExt = 9,
};

/// Subtypes of check_integer_types.
enum IntegerRule : int {
    kInteger = 0,
    kIntegerSet = 1,
    kIntegerRange = 2,
    kSignedInteger = 3,
    kSignedIntegerSet = 4,
    kSignedIntegerRange = 5,
    kFloat = 6,
    kFloatRange = 7,
    kHexadecimal = 8,
};

/// Subtypes of check_network_types.
enum NetworkRule : int {
    kIpAddress = 0,
    kPortNumber = 1,
    kMacAddress = 2,
    kDomainName = 3,
    kDomainNameList = 4,
    kHostname = 5,
    kMulticastIpAddress = 6,
    kSubmask = 7,
    kSsid = 8,
};

// check_strings.cpp
const char *check_string_types(std::string_view api, int subtype, CheckArgs args, std::string_view value);
const char *check_password(std::string_view api, int subtype, CheckArgs args, std::string_view value);
const char *check_serial_flags(std::string_view api, int subtype, CheckArgs args, std::string_view value);

// check_numbers.cpp
const char *check_integer_types(std::string_view api, int subtype, CheckArgs args, std::string_view value);
const char *check_boolean(std::string_view api, int subtype, CheckArgs args, std::string_view value);
const char *check_timecode(std::string_view api, int subtype, CheckArgs args, std::string_view value);

// check_network.cpp
const char *check_network_types(std::string_view api, int subtype, CheckArgs args, std::string_view value);

// check_others.cpp
const char *check_undefined(std::string_view api, int subtype, CheckArgs args, std::string_view value);
const char *check_blank(std::string_view api, int subtype, CheckArgs args, std::string_view value);
const char *check_profile(std::string_view api, int subtype, CheckArgs args, std::string_view value);
const char *check_profile2(std::string_view api, int subtype, CheckArgs args, std::string_view value);

/// 0 when the POSIX extended regular expression is found in the value, 1 when not or when it does not
/// compile. A compiled expression is kept for the life of the process: patterns are constants of the rules.
/// Thread-safe.
int check_regexp(std::string_view value, std::string_view pattern); // check_regexp.cpp

/// Null for an unsigned decimal number, else the error text.
const char *check_integer(std::string_view value);

/// Number `at` of the arguments as the C library reads it, or `missing`.
int int_argument(CheckArgs args, std::size_t at, int missing);

/// One length rule: bounds of a text in bytes, from the arguments; 1 and 256 where they are missing.
const char *check_length(CheckArgs args, std::string_view value, const char *too_short, const char *too_long);

} // namespace qvcd
