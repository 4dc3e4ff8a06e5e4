#include "store/attributes.h"

namespace qvcd {

namespace {

constexpr AttributeRow kAttributes[] = {
    {"attr", Counts::below},      {"type", Counts::below},    {"default", Counts::own},
    {"read", Counts::below},      {"write", Counts::below},   {"file", Counts::below},
    {"shadow", Counts::below},    {"apply", Counts::below},   {"apply2", Counts::own},
    {"timeout", Counts::below},   {"dynamic", Counts::below}, {"private", Counts::below},
    {"perm", Counts::below},      {"link", Counts::own},      {"range", Counts::below},
    {"add", Counts::below},       {"remove", Counts::below},  {"introspect", Counts::own},
    {"help", Counts::own},        {"desc", Counts::own},      {"was", Counts::own},
    {"metric", Counts::own},      {"mod", Counts::daemon},    {"noapp", Counts::daemon},
    {"inserted", Counts::daemon}, {"secret", Counts::daemon}, {"stream_link", Counts::daemon},
};

} // namespace

std::span<const AttributeRow> attribute_rows()
{
    return kAttributes;
}

} // namespace qvcd
