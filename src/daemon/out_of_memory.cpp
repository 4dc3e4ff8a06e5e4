#include "daemon/out_of_memory.h"

#include "platform/log.h"

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

} // namespace

void end_in_order()
{
    std::set_terminate(end_by_exception);
}

} // namespace qvcd
