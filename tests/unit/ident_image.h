#pragma once

#include <initializer_list>
#include <string>
#include <utility>

namespace qvcd {

/// A record of the identity memory: group, length, data.
inline std::string ident_record(int group, const std::string &data)
{
    return std::string{static_cast<char>(group), static_cast<char>(data.size())} + data;
}

/// An identity memory with these records, ended by 0xff and filled up with it as an erased memory is.
inline std::string ident_image(std::initializer_list<std::pair<int, std::string>> records)
{
    std::string image;
    for (const auto &[group, data] : records)
        image += ident_record(group, data);
    image.resize(125, '\xff');
    return image;
}

/// Group 5 in its binary form.
inline std::string binary_build(unsigned build, unsigned serial)
{
    std::string data{'\x01', '\x00'};
    for (const unsigned number : {build, serial}) {
        for (unsigned shift = 0; shift < 32; shift += 8)
            data += static_cast<char>(number >> shift & 0xffU);
    }
    return data;
}

constexpr char kIdentFile[] = "sys/bus/nvmem/devices/ident0/nvmem";

} // namespace qvcd
