// Coverage-guided fuzzing of the guard in front of the HDF parser (libFuzzer, clang only; see
// CMakeLists.txt). A text that the guard lets through must parse without a memory fault, and must come back
// the same when it is written.

#include "store/hdf_file.h"
#include "store/hdfutils.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

std::string file_of(const std::uint8_t *data, std::size_t size)
{
    static const int fd = open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size))
        std::abort();
    return "/proc/self/fd/" + std::to_string(fd);
}

// Not the text itself: the library draws the marks of some blocks.
std::string values_of(qvcd::Node node)
{
    char *text = nullptr;
    std::size_t size = 0;
    std::FILE *out = open_memstream(&text, &size);
    qvcd::hdfutils_dump(node, "", out);
    std::fclose(out);
    std::string values(text, size);
    std::free(text);
    return values;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    qvcd::Tree tree;
    if (qvcd::hdf_read_foreign_file(file_of(data, size), tree).result != qvcd::HdfResult::ok)
        return 0;
    const std::string text = qvcd::hdf_text(tree.root());
    if (!qvcd::hdf_parse(text, qvcd::Node()).empty())
        return 0; // a value that the text cannot hold: hdf_write_file refuses it
    qvcd::Tree again;
    const auto *bytes = reinterpret_cast<const std::uint8_t *>(text.data());
    if (qvcd::hdf_read_foreign_file(file_of(bytes, text.size()), again).result != qvcd::HdfResult::ok ||
        values_of(again.root()) != values_of(tree.root()))
        std::abort();
    return 0;
}
