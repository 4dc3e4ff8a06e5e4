#pragma once

namespace qvcd {

// The error texts of replies. Clients recognise them by the two hash marks in front and the one behind; their
// lengths are part of the interface.
inline constexpr char API_E_IMPORT_FAILED[] = "##Import failed#";
inline constexpr char API_E_APPLY_FAILED[] = "##Apply failed#";
inline constexpr char API_E_INVALID_IP_ADDRESS_FORMAT[] = "##Invalid IP address format#";
inline constexpr char API_E_INVALID_STRING_LENGTH_TOO_LONG[] = "##Invalid string length, too long#";
inline constexpr char API_E_INVALID_FLOAT_RANGE[] = "##Invalid float range#";
inline constexpr char API_E_INVALID_STRING[] = "##Invalid string#";
inline constexpr char API_E_INVALID_INTEGER_RANGE[] = "##Invalid integer range#";
inline constexpr char API_E_INVALID_DATE_RANGE[] = "##Date out of range#";
inline constexpr char API_E_INVALID_STRING_FORMAT[] = "##Invalid string format#";
inline constexpr char API_E_INVALID_DATE_FORMAT[] = "##Invalid date format#";
inline constexpr char API_E_INVALID_HOSTNAME_FORMAT[] = "##Invalid hostname format#";
inline constexpr char API_E_INVALID_PORT_NUMBER_FORMAT[] = "##Invalid port number format#";
inline constexpr char API_E_INVALID_CHARACTER[] = "##Invalid character#";
inline constexpr char API_E_INVALID_CMD[] = "##Invalid command#";
inline constexpr char API_E_INVALID_SIGNED_INTEGER_RANGE[] = "##Invalid signed integer range#";
inline constexpr char API_E_INVALID_CMD_ARGS[] = "##Invalid command arguments#";
inline constexpr char API_E_INVALID_PASSWORD[] = "##Invalid password#";
inline constexpr char API_E_INVALID_STRING_LENGTH_TOO_SHORT[] = "##Invalid string length, too short#";
inline constexpr char API_E_PARAM_NOT_FOUND[] = "##Parameter not found#";
inline constexpr char API_E_INVALID_INTEGER_FORMAT[] = "##Invalid integer format#";
inline constexpr char API_E_INVALID_SIGNED_INTEGER_FORMAT[] = "##Invalid signed integer format#";
inline constexpr char API_E_INVALID_USER[] = "##Invalid user#";
inline constexpr char API_E_INVALID_SUBMASK_FORMAT[] = "##Invalid subnet mask format#";
inline constexpr char API_E_INVALID_OPTION[] = "##Invalid option#";
inline constexpr char API_E_INVALID_PASSWORD_TOO_SHORT[] = "##Password too short#";
inline constexpr char API_E_INVALID_PERMISSION[] = "##Invalid permission#";
inline constexpr char API_E_INVALID_MAC_ADDRESS_FORMAT[] = "##Invalid MAC address format#";
inline constexpr char API_E_INVALID_DOMAIN_NAME_FORMAT[] = "##Invalid domain name format#";
inline constexpr char API_E_INVALID_PASSWORD_CHARACTER[] = "##Invalid password character#";
inline constexpr char API_E_INVALID_MULTICAST_IP_ADDRESS_FORMAT[] = "##Invalid multicast IP address format#";
inline constexpr char API_E_INVALID_PASSWORD_TOO_LONG[] = "##Password too long#";
inline constexpr char API_E_INVALID_HEXADECIMAL[] = "##Invalid hexadecimal value#";
inline constexpr char API_E_INVALID_BOOLEAN_VALUE[] = "##Invalid boolean value#";
inline constexpr char API_E_INVALID_FORMAT[] = "##Invalid format#";
inline constexpr char API_E_INVALID_GROUP[] = "##Invalid group#";
inline constexpr char API_E_INVALID_FLOAT[] = "##Invalid float value#";

} // namespace qvcd
