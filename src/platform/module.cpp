#include "platform/module.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <link.h>
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

// The dynamic linker would map, and touch, what is not there of a module whose installation broke off. The
// table at the end of the file, elf(5), tells how long it was.
bool is_whole(const std::string &file)
{
    std::ifstream stream(file, std::ios::binary | std::ios::ate);
    const auto size = static_cast<std::uint64_t>(std::max<std::streamoff>(stream.tellg(), 0));
    ElfW(Ehdr) header{};
    std::array<char, sizeof header> bytes{};
    stream.seekg(0);
    if (!stream.read(bytes.data(), bytes.size()))
        return false;
    std::memcpy(&header, bytes.data(), sizeof header);
    const std::uint64_t table = std::uint64_t{header.e_shnum} * header.e_shentsize;
    return table <= size && header.e_shoff <= size - table;
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
    if (std::filesystem::exists(file) && !is_whole(file))
        throw ModuleError(file + ": cut short");
    void *const library = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library)
        throw ModuleError(::dlerror());
    const auto release = function_of<const char *()>(library, "qvcd_module_release");
    const auto its_name = function_of<const char *()>(library, "qvcd_module_name");
    const auto table = function_of<const void *()>(library, "qvcd_module_table");
    // Somebody may have installed another release since this one was started.
    if (!release || !its_name || !table || std::string_view(release()) != QVCD_RELEASE ||
        std::string_view(its_name()) != name) {
        ::dlclose(library);
        throw ModuleError(file + ": not of this release, " QVCD_RELEASE);
    }
    return table();
}

} // namespace qvcd
