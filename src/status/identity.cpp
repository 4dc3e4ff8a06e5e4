#include "status/identity.h"

#include "platform/ident.h"
#include "status/lookup.h"

#include <string_view>

namespace qvcd {

namespace {

struct Field {
    std::string_view name;
    int group;
    IdentDecoder decoder;
};

constexpr int kHardwareVersionGroup = 7;

constexpr Field kFields[] = {
    {"brandname", 6, nullptr},
    {"productname", 1, nullptr},
    {"version", kHardwareVersionGroup, nullptr},
    {"buildinfo", 5, ident_read_build},
    {"serialnumber", 5, nullptr},
    {"vouts", 4, ident_read_outputs},
    {"vins", 3, ident_read_inputs},
    {"aouts", 9, ident_read_audio_outputs},
    {"ains", 8, ident_read_audio_inputs},
    {"country", 23, nullptr},
};

// The only field without a decoder whose group may be binary.
std::string binary_serial_number(const IdentData &data, int group)
{
    return std::to_string(
        ident_read_number(qv_ident_find_group(data, group).value_or(IdentBytes()), kIdentSerialOffset));
}

} // namespace

bool qvi_rfunc(const char *, const char *attr, std::string &out, bool cached)
{
    static IdentData qvi_data{};
    if (!attr)
        return false;
    if (!cached)
        qv_ident_read_data(qvi_data);
    const Field *field = find_row(kFields, attr);
    if (!field)
        return false;
    std::string text;
    const IdentText kind = qv_ident_read_group_using_data(qvi_data, field->group, field->decoder, text);
    if (field->name == "country" && text.empty())
        text = "none";
    else if (kind == IdentText::none)
        return false;
    else if (kind == IdentText::binary)
        text = binary_serial_number(qvi_data, field->group);
    out = text;
    return true;
}

bool hw_version_rfunc(const char *, const char *, std::string &out, bool)
{
    std::string version;
    qv_ident_read_group(kHardwareVersionGroup, version);
    out = version.empty() ? "unknown" : version;
    return true;
}

} // namespace qvcd
