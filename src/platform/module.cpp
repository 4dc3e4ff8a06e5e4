#include "platform/module.h"

#include <dlfcn.h>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace qvcd {

namespace {

std::string module_file(const std::string &name)
{
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) // a relative path would be looked for in the working folder
        throw ModuleError("/proc/self/exe: " + error.message());
    return (program.parent_path() / "../lib/qvcd" / (name + ".so")).lexically_normal().string();
}

template <class Function>
Function *function_of(void *library, const char *name)
{
    return reinterpret_cast<Function *>(::dlsym(library, name));
}

} // namespace

const void *module_table(const char *name)
{
    const std::string file = module_file(name);
    void *const library = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library)
        throw ModuleError(::dlerror());
    const auto release = function_of<const char *()>(library, "qvcd_module_release");
    const auto table = function_of<const void *()>(library, "qvcd_module_table");
    // Somebody may have installed another release since this one was started.
    if (!release || !table || std::string_view(release()) != QVCD_RELEASE) {
        ::dlclose(library);
        throw ModuleError(file + ": not of this release, " QVCD_RELEASE);
    }
    return table();
}

} // namespace qvcd
