// To add a reader: a function with the contract of funcs/read_map.h, a row here, a line in docs/model.md.

#include "funcs/read_map.h"

#include "base/limits.h"
#include "base/shell.h"
#include "base/text.h"
#include "funcs/func_map.h"
#include "funcs/generic_readers.h"
#include "platform/log.h"
#include "status/bond_info.h"
#include "status/codec_info.h"
#include "status/identity.h"
#include "status/ifb_info.h"
#include "status/link_state.h"
#include "status/network_addresses.h"
#include "status/network_settings.h"
#include "status/stream_links.h"
#include "status/system_info.h"
#include "status/transmission_rate.h"
#include "status/uplink.h"
#include "status/versions.h"
#include "status/wireless.h"
#include "store/database.h"

#include <set>

namespace qvcd {

namespace {

ReadFunction profile_reader = undefined_rfunc; // the profile commands put theirs here

std::optional<std::string> profile_rfunc(Request &request, const char *file, const char *attr)
{
    return profile_reader(request, file, attr);
}

constexpr ReadRow rfuncCmdMap[] = {
    {"undefined", undefined_rfunc},
    {"na_rfunc", na_rfunc},
    {"hidden_rfunc", hidden_rfunc},
    {"password_rfunc", password_rfunc, ReadFile::path, ReadAttr::text},
    {"no_rfunc", no_rfunc},
    {"zero_rfunc", zero_rfunc},
    {"model_rfunc", model_rfunc, ReadFile::unused, ReadAttr::api},
    {"kv_rfunc", kv_rfunc, ReadFile::path, ReadAttr::text},
    {"quotedkv_rfunc", quoted_rfunc, ReadFile::path, ReadAttr::text},
    {"eeprom_rfunc", na_rfunc},
    {"ipc_rfunc", ipc_rfunc, ReadFile::server, ReadAttr::text},
    {"ipc_attr_rfunc", ipc_attr_rfunc, ReadFile::server, ReadAttr::text},
    {"power_source_rfunc", power_source_rfunc},
    {"battery_level_rfunc", battery_level_rfunc},
    {"hwver_rfunc", hw_version_rfunc},
    {"codec_video_rfunc", codec_video_rfunc, ReadFile::unused, ReadAttr::text},
    {"codec_audio_rfunc", codec_audio_rfunc, ReadFile::unused, ReadAttr::text},
    {"codec_spotout_rfunc", codec_spotout_rfunc, ReadFile::unused, ReadAttr::text},
    {"codec_actual_settings_rfunc", codec_actual_settings_rfunc, ReadFile::unused, ReadAttr::text},
    {"syscall_rfunc", syscall_rfunc, ReadFile::unused, ReadAttr::text},
    {"info_get_currenttime", info_get_currenttime, ReadFile::unused, ReadAttr::words, "string timecode"},
    {"info_get_sysinfo", info_get_sysinfo, ReadFile::unused, ReadAttr::words,
     "all avg1min avg5min avg15min totalram used freeram sharedram bufferram numberprocs"},
    {"info_get_uptime", info_get_uptime, ReadFile::unused, ReadAttr::words, "all day hr min seconds"},
    {"info_get_temperature", info_get_temperature},
    {"uplink_rfunc", uplink_rfunc},
    {"network_rfunc", network_rfunc, ReadFile::unused, ReadAttr::words,
     "hostname IFCONFIG_OPTS CONFIG_NETWORK_IPADDR_DYNAMIC ethaddr"},
    {"ntp_rfunc", ntp_rfunc, ReadFile::path, ReadAttr::words, "server interval"},
    {"gateway_rfunc", gateway_rfunc},
    {"resolv_rfunc", resolv_rfunc, ReadFile::path, ReadAttr::words, "nameserver domain"},
    {"ifconfig_rfunc", ifconfig_rfunc, ReadFile::unused, ReadAttr::device_words,
     "ipaddress broadcast submask mtu macaddress gateway nameserver domain"},
    {"linkstate_rfunc", linkstate_rfunc, ReadFile::unused, ReadAttr::text},
    {"discovery_id_rfunc", discovery_id_rfunc},
    {"ifb_enc_info_rfunc", ifb_enc_info_rfunc, ReadFile::unused, ReadAttr::words, "host port"},
    {"ifb_dec_info_rfunc", ifb_dec_info_rfunc, ReadFile::unused, ReadAttr::words, "host port"},
    {"ifb_bond_info_rfunc", ifb_bond_info_rfunc, ReadFile::unused, ReadAttr::words, "host port"},
    {"bond_info_rfunc", bond_info_rfunc, ReadFile::unused, ReadAttr::words, "mode state status version"},
    {"links_rfunc", links_rfunc, ReadFile::group, ReadAttr::unused},
    {"iwconfig_rfunc", iwconfig_rfunc, ReadFile::unused, ReadAttr::device_words,
     "quality freq channel mode essid"},
    {"iwpassword_rfunc", iwpassword_rfunc},
    {"linux_version_rfunc", linux_version_rfunc, ReadFile::path, ReadAttr::text},
    {"version_rfunc", version_rfunc, ReadFile::path, ReadAttr::text},
    {"qvi_rfunc", qvi_rfunc, ReadFile::unused, ReadAttr::words,
     "brandname productname version buildinfo serialnumber vins vouts ains aouts country"},
    {"profile_rfunc", profile_rfunc, ReadFile::path, ReadAttr::text},
    {"transmission_rate_rfunc", transmission_rate_rfunc},
};

// For the log: whose reader ran before in the same request.
struct CalledRows {
    std::set<const ReadRow *> rows;
};

const char *or_null(const std::optional<std::string> &text)
{
    return text ? text->c_str() : nullptr;
}

const char *for_log(const std::optional<std::string> &text)
{
    return text ? text->c_str() : "(null)";
}

} // namespace

std::span<const ReadRow> read_rows()
{
    return rfuncCmdMap;
}

int cmd_create_rfuncmap_hdf()
{
    return log_func_map("rfunc", rfuncCmdMap);
}

namespace {

// Copies: the function may let go of the command lock.
std::optional<std::string> read_value(Request &request, const std::string &name,
                                      const std::optional<std::string> &file,
                                      const std::optional<std::string> &attr)
{
    const MetaApi meta(name);
    const auto read = own_copy(meta.get("read"));
    const ReadRow &row = row_or_first(rfuncCmdMap, read.value_or(""));
    if (qv_log_wants(kLogTrace)) {
        auto &called = request.once<CalledRows>([] { return CalledRows(); }).rows;
        qv_log_print(kLogTrace, "rfuncmap_read: %s %s(%s, %s, %p, %d)\n", name.c_str(), for_log(read),
                     for_log(file), for_log(attr), static_cast<void *>(&request),
                     called.insert(&row).second ? 0 : 1);
    }
    std::optional<ShellLimits> limits; // a shell command may be given less than its usual time
    if (row.function == syscall_rfunc)
        limits.emplace(shell_time_of(own_copy(meta.get("timeout"))).value_or(kShellReadLimit));
    std::optional<std::string> value = row.function(request, or_null(file), or_null(attr));
    if (value)
        value = one_line(cut(*value, kMaxValueBytes));
    return value;
}

} // namespace

std::optional<std::string> rfuncmap_read(Request &request, std::string_view api)
{
    const MetaApi meta(api);
    return read_value(request, std::string(api), own_copy(meta.get("file")), own_copy(meta.get("attr")));
}

std::optional<std::string> rfuncmap_read_from(Request &request, std::string_view api, const std::string &file,
                                              const std::string &attr)
{
    return read_value(request, std::string(api), file, attr);
}

void rfuncmap_set_profile_reader(ReadFunction reader)
{
    profile_reader = reader;
}

} // namespace qvcd
