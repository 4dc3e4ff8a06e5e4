#include "daemon/out_of_memory.h"

#include "platform/log.h"

#include <cstddef>
#include <cstdlib>
#include <exception>
#include <new>

namespace qvcd {

namespace {

constexpr char kOutOfMemory[] = "out of memory: the daemon ends";

[[noreturn]] void end(const char *why)
{
    qv_log_last_line(why);
    std::abort();
}

[[noreturn]] void end_by_exception()
{
    try {
        if (std::current_exception())
            throw;
    } catch (const std::bad_alloc &) {
        end(kOutOfMemory);
    } catch (const std::exception &error) {
        end(error.what());
    } catch (...) { // NOLINT(bugprone-empty-catch): of unknown kind
    }
    end("the daemon ends: an exception that nobody caught");
}

void *or_end(void *memory, std::size_t size)
{
    if (!memory && size)
        end(kOutOfMemory);
    return memory;
}

} // namespace

void end_in_order()
{
    std::set_terminate(end_by_exception);
}

} // namespace qvcd

// What the linker's --wrap makes of the calls in the program and the libraries that are part of it.
extern "C" {
// NOLINTBEGIN: the linker gives the names
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *old, std::size_t size);
char *__real_strdup(const char *text);

void *__wrap_malloc(std::size_t size)
{
    return qvcd::or_end(__real_malloc(size), size);
}

void *__wrap_calloc(std::size_t count, std::size_t size)
{
    return qvcd::or_end(__real_calloc(count, size), count * size);
}

void *__wrap_realloc(void *old, std::size_t size)
{
    return qvcd::or_end(__real_realloc(old, size), size);
}

char *__wrap_strdup(const char *text)
{
    return static_cast<char *>(qvcd::or_end(__real_strdup(text), 1));
}
// NOLINTEND
}
