#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace qvcd {

/// The identity memory: records of {group, length, data}, ended by group 0x00 or 0xff.
inline constexpr std::size_t kIdentBytes = 125;
using IdentData = std::array<std::uint8_t, kIdentBytes>;
using IdentBytes = std::span<const std::uint8_t>;

/// Turns a group's data into text.
using IdentDecoder = std::string (*)(IdentBytes data);

/// Reads the memory "/sys/bus/nvmem/devices/ident0/nvmem" below the sysroot into `data`; what the file lacks
/// reads as 0. False when it cannot be read; `data` is then all zero.
bool qv_ident_read_data(IdentData &data);

/// The data bytes of the first record of `group`; nothing when there is none. A length that runs past the end
/// of the memory is cut. The view points into `data`.
std::optional<IdentBytes> qv_ident_find_group(const IdentData &data, int group);

enum class IdentText {
    none,   ///< there is no such group
    text,   ///< decoded
    binary, ///< the group is no text and there is no decoder
};

/// Decodes one group into `out`, which is left alone unless the result is `text`. Without a decoder a text
/// group is taken up to its first NUL byte. Groups 1, 6, 7 and 23 are text; group 5 is text unless its first
/// byte is below 0x20; all others are binary.
IdentText qv_ident_read_group_using_data(const IdentData &data, int group, IdentDecoder decoder,
                                         std::string &out);

/// Reads the memory and one text group of it; false and an untouched `out` when there is none.
bool qv_ident_read_group(int group, std::string &out);

/// The unsigned 32-bit little-endian number that starts at byte `offset`; bytes that `data` lacks count as 0.
std::uint32_t ident_read_number(IdentBytes data, std::size_t offset);

inline constexpr std::size_t kIdentBuildOffset = 2;  ///< in a binary group 5
inline constexpr std::size_t kIdentSerialOffset = 6; ///< in a binary group 5

/// Group 5: the text, or the build number of the binary form in decimal.
std::string ident_read_build(IdentBytes data);
/// Groups 4, 3, 9, 8: one byte per connector, as names with commas between, "hdmi,sdi".
std::string ident_read_outputs(IdentBytes data);
std::string ident_read_inputs(IdentBytes data);
std::string ident_read_audio_outputs(IdentBytes data);
std::string ident_read_audio_inputs(IdentBytes data);

} // namespace qvcd
