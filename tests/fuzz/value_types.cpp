// Coverage-guided fuzzing of types and values (libFuzzer, clang only; see CMakeLists.txt). The input's first
// line is a type, the rest is the value of an API of this type. An error is one line of bounded length, and
// what introspection offers is accepted.

#include "base/limits.h"
#include "base/text.h"
#include "funcs/check_map.h"
#include "funcs/introspect_map.h"
#include "store/database.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

constexpr std::string_view kApi = "Api.Profiles.name";

void require(bool good)
{
    if (!good)
        std::abort();
}

std::string described()
{
    char *text = nullptr;
    std::size_t size = 0;
    std::FILE *out = open_memstream(&text, &size);
    qvcd::Request request(qvcd::kReadBits);
    qvcd::ifuncmap_introspect(request, "", kApi, false, out);
    std::fclose(out);
    std::string result(text, size);
    std::free(text);
    return result;
}

// Members are the lines "<api>.<number>=<value>".
void check_members(std::string_view text)
{
    for (const std::string &line : qvcd::split_words(text, "\n")) {
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos || !line.starts_with(kApi) || equals < kApi.size() + 2)
            continue;
        const std::string_view word =
            std::string_view(line).substr(kApi.size() + 1, equals - kApi.size() - 1);
        if (qvcd::parse_int64(word))
            require(!qvcd::cfuncmap_check(kApi, std::string_view(line).substr(equals + 1)));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    // Profiles are looked for in a folder that does not exist.
    static const bool ready = setenv("QV_SYSROOT", "/nonexistent", 1) == 0 && qvcd::hdfdb_init() == 0;
    require(ready);
    const std::string input(reinterpret_cast<const char *>(data), size);
    const std::size_t newline = input.find('\n');
    const std::string type = input.substr(0, newline);
    const std::string value = newline == std::string::npos ? "" : input.substr(newline + 1);
    if (!qvcd::metaDB.set(std::string(kApi) + ".type", type))
        return 0; // a NUL byte
    qvcd::metaDB.set("Api.perm", "4444");
    if (const auto error = qvcd::cfuncmap_check(kApi, value))
        require(error->size() <= qvcd::kMaxErrorLineBytes && qvcd::is_one_line(*error));
    if (qvcd::is_one_line(type))
        check_members(described());
    return 0;
}
