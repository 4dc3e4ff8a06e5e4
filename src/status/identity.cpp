#include "status/identity.h"

#include "base/lookup.h"
#include "platform/ident.h"

namespace qvcd {

namespace {

struct Field {
    std::string_view name;
    int group;
    IdentDecoder decoder;
};

constexpr Field kFields[] = {
    {"brandname", 6, nullptr},
    {"productname", 1, nullptr},
    {"version", 7, nullptr},
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

std::optional<std::string> qvi_rfunc(Request &request, const char *, const char *attr)
{
    const Field *field = attr ? find_row(kFields, attr) : nullptr;
    if (!field)
        return std::nullopt;
    const auto &memory = request.once<IdentData>([] {
        IdentData data{};
        qv_ident_read_data(data);
        return data;
    });
    std::string text;
    const IdentText kind = qv_ident_read_group_using_data(memory, field->group, field->decoder, text);
    if (field->name == "country" && text.empty())
        return "none";
    if (kind == IdentText::binary)
        return binary_serial_number(memory, field->group);
    return kind == IdentText::none ? std::nullopt : std::optional(text);
}

std::optional<std::string> hw_version_rfunc(Request &request, const char *, const char *)
{
    const std::string version = qvi_rfunc(request, nullptr, "version").value_or("");
    return version.empty() ? "unknown" : version;
}

} // namespace qvcd
