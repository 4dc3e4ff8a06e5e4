#pragma once

#include "web/message.h"
#include "web/sessions.h"

#include <span>
#include <string>
#include <string_view>

namespace qvcd::web {

class EventHub;
class Types;

/// What handlers work with. For several threads.
struct Services {
    Daemon &daemon;
    Sessions &sessions;
    EventHub &events;
    Types &types;
    bool is_encrypted = true; ///< cookies go over TLS only
};

/// One request on its way.
struct Call {
    Services &services;
    const Request &request;
    Who who = {};          ///< whoever has the session, where the route needs one
    std::string tail = ""; ///< what stands for the last part, in braces, of the route's path

    Reply run(const Words &words) const { return services.daemon.run(who, words); }
};

using Handler = Answer (*)(Call &call);

enum class Access { open, session, metrics };

/// Which threads do it: what takes long must not hold up the rest.
enum class Lane { quick, slow, login };

inline constexpr char kApi[] = "/api/v1";

struct Route {
    const char *method;
    const char *path; ///< below `base`; the last part may be in braces, and stands for any text
    Access access;
    Handler handler;
    const char *summary;
    const char *rights;          ///< who may, in the daemon's words; what is refused is the daemon's
    const char *takes = nullptr; ///< the body's schema (web/schemas.h)
    const char *gives = nullptr; ///< the answer's; none: a text
    const char *query = ""; ///< the parameters of the query, "*" behind one: several times, "#": a number
    Lane lane = Lane::quick;
    int status = 200;
    const char *gives_type = "application/json";
    bool takes_document = false; ///< the body may be as large as a document
    const char *base = kApi;
};

std::span<const Route> routes();

/// The route of a request, and what its path has in place of the part in braces. Throws Problem: 404, 405.
struct Found {
    const Route *route;
    std::string tail;
};
Found find_route(std::string_view method, std::string_view path);

/// True where a route is asked for, whether there is one or not, and false for a file.
bool is_api_path(std::string_view path);

/// Nothing when there is no such route.
const Route *route_of(std::string_view method, std::string_view path) noexcept;

/// The answer, whatever happens: problems and exceptions are answers too.
Answer answer(Services &services, const Request &request) noexcept;

} // namespace qvcd::web
