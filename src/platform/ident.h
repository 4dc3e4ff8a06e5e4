#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace qvcd {

/// The identity memory: records of {group, length, data}, ended by group 0x00 or 0xff.
inline constexpr std::size_t kIdentBytes = 125;
using IdentData = std::array<std::uint8_t, kIdentBytes>;

/// Turns a group's data into text.
using IdentDecoder = std::string (*)(std::span<const std::uint8_t> data);

/// Reads the memory "/sys/bus/nvmem/devices/ident0/nvmem" below the sysroot into `data`; what the file lacks
/// reads as 0. False when it cannot be read; `data` is then all zero.
bool qv_ident_read_data(IdentData &data);

/// The data bytes of `group`; empty when there is no such record. Lengths that run past the end are cut.
std::span<const std::uint8_t> qv_ident_find_group(const IdentData &data, int group);

enum class IdentText { none, text, binary };

/// Decodes one group into `out`; without a decoder a text group is taken as it stands. `none`: no such group;
/// `binary`: the group is no text and there is no decoder; `out` is left alone in both cases.
IdentText qv_ident_read_group_using_data(const IdentData &data, int group, IdentDecoder decoder, std::string &out);

/// Reads the memory and one text group of it; false and an untouched `out` when there is none.
bool qv_ident_read_group(int group, std::string &out);

/// Group 5: the text, or the build number (bytes 2 to 5, little-endian) in decimal.
std::string ident_read_build(std::span<const std::uint8_t> data);
/// Groups 4, 3, 9, 8: one byte per connector, as names with commas between, "hdmi,sdi".
std::string ident_read_outputs(std::span<const std::uint8_t> data);
std::string ident_read_inputs(std::span<const std::uint8_t> data);
std::string ident_read_audio_outputs(std::span<const std::uint8_t> data);
std::string ident_read_audio_inputs(std::span<const std::uint8_t> data);

} // namespace qvcd
