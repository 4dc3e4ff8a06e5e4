#pragma once

#include <span>
#include <string>
#include <string_view>

namespace qvcd {

/// The words after the type's name.
using CheckArgs = std::span<const std::string>;

/// The validators behind check_map.cpp, one a type, named after it: a pure function of the API's full name,
/// the type's arguments and the value (any bytes), except for the profile types and the time zone, which ask
/// about files. Null when the value is acceptable, else a constant error text.
using CheckFunction = const char *(std::string_view api, CheckArgs args, std::string_view value);

inline const char *error_unless(bool good, const char *error)
{
    return good ? nullptr : error;
}

// check_strings.cpp
CheckFunction check_blank;
CheckFunction check_string;
CheckFunction check_string_set;
CheckFunction check_alpha_numeric;
CheckFunction check_label;
CheckFunction check_string_length;
CheckFunction check_filename;
CheckFunction check_base64;
CheckFunction check_string_ext;
CheckFunction check_password;
CheckFunction check_serial_flags;
CheckFunction check_ssid;

// check_numbers.cpp
CheckFunction check_boolean;
CheckFunction check_integer;
CheckFunction check_integer_set;
CheckFunction check_integer_range;
CheckFunction check_signed_integer;
CheckFunction check_signed_integer_set;
CheckFunction check_signed_integer_range;
CheckFunction check_float;
CheckFunction check_float_range;
CheckFunction check_hexadecimal;
CheckFunction check_portnumber;
CheckFunction check_timecode;

// check_network.cpp
CheckFunction check_ipaddress;
CheckFunction check_macaddress;
CheckFunction check_domainname;
CheckFunction check_domainname_list;
CheckFunction check_hostname;
CheckFunction check_multicast_ipaddress;
CheckFunction check_submask;

// check_addresses.cpp
CheckFunction check_ip6address;
CheckFunction check_ip_prefix;
CheckFunction check_address_list;
CheckFunction check_host_list;
CheckFunction check_url;

// check_map.cpp
CheckFunction check_undefined;
CheckFunction check_timezone;
CheckFunction check_profile;
CheckFunction check_profile2;

} // namespace qvcd
