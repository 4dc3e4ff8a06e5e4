#include "platform/module.h"

namespace {
struct Nothing {
    static constexpr char kName[] = "of_another_release";
};
} // namespace

QVCD_MODULE(Nothing)
