#pragma once

#include <stdexcept>
#include <string>

namespace qvcd {

// Parts of the daemon whose libraries take longer to load than the rest of its start, and which most runs
// never need. Each is a file of its own, "../lib/qvcd/NAME.so" from the program's folder, that is loaded at
// the first use and stays. A module needs nothing of the program; what it offers is a table of functions, and
// the struct in NAME_module.h says which:
//
//   struct DiskModule {
//       static constexpr char kName[] = "disk";
//       bool (*spin_down)(const std::string &device, std::string &problem);
//   };
//
// The module's source ends with QVCD_MODULE(DiskModule, spin_down), the program calls
// module<DiskModule>().spin_down(...), and src/CMakeLists says qvcd_module(NAME disk ...).

/// The module is not there or cannot be used; the text says which file, and why.
struct ModuleError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The table of the module `name`; loads it when need be. May wait for the disk. Throws ModuleError, also for
/// a module of another release of the program, another module's file, and one that was cut short.
const void *module_table(const char *name);

template <class Table>
const Table &module()
{
    static const auto *const table = static_cast<const Table *>(module_table(Table::kName));
    return *table;
}

} // namespace qvcd

#define QVCD_MODULE(Table, ...)                                                                              \
    extern "C" const char *qvcd_module_release()                                                             \
    {                                                                                                        \
        return QVCD_RELEASE;                                                                                 \
    }                                                                                                        \
    extern "C" const char *qvcd_module_name()                                                                \
    {                                                                                                        \
        return Table::kName;                                                                                 \
    }                                                                                                        \
    extern "C" const void *qvcd_module_table()                                                               \
    {                                                                                                        \
        static constexpr Table table{__VA_ARGS__};                                                           \
        return &table;                                                                                       \
    }
