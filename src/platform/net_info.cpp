#include "platform/net_info.h"

#include "platform/small_file.h"

namespace qvcd {

std::string qv_info_get_mac_address()
{
    std::string address = read_first_line("/sys/class/net/eth0/address");
    for (char &c : address) {
        if (c >= 'a' && c <= 'f')
            c = static_cast<char>(c - 'a' + 'A');
    }
    return address;
}

} // namespace qvcd
