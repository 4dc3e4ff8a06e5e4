#pragma once

#include <new>
#include <string>

#include "qvclient/errors.h"
#include "qvclient/event_stream.h"
#include "qvclient/qvclient.h"

namespace qvcd::client {

/// Nothing but memory can keep a problem from being noted, and then there is none to tell.
inline void note(std::string &problem, const char *text) noexcept
{
    try {
        problem = text;
    } catch (...) {
        problem.clear();
    }
}

inline qvc_status status_of(WireError::Kind kind)
{
    switch (kind) {
    case WireError::Kind::unreachable:
        return QVC_UNREACHABLE;
    case WireError::Kind::untrusted:
        return QVC_UNTRUSTED;
    case WireError::Kind::timeout:
        return QVC_TIMEOUT;
    case WireError::Kind::broken:
        break;
    }
    return QVC_BROKEN;
}

/// The door between C and the rest: what `function` throws becomes a status, and a text in `problem`.
template <class Function>
qvc_status guarded(std::string &problem, Function function) noexcept
{
    problem.clear();
    try {
        return function();
    } catch (const TlsFileError &error) {
        note(problem, error.what());
        return QVC_TLS_FILE;
    } catch (const UsageError &error) {
        note(problem, error.what());
        return QVC_ARGUMENT;
    } catch (const EventsRefused &error) {
        note(problem, error.what());
        return QVC_REFUSED;
    } catch (const WireError &error) {
        note(problem, error.what());
        return status_of(error.kind);
    } catch (const std::bad_alloc &) {
        return QVC_MEMORY;
    } catch (const std::exception &error) {
        note(problem, error.what());
        return QVC_INTERNAL;
    } catch (...) {
        return QVC_INTERNAL;
    }
}

} // namespace qvcd::client
