#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qvcd::web {

/// What a client asks, as far as the API looks at it.
struct Request {
    std::string method;
    std::string path;                                   ///< decoded, without the query
    std::multimap<std::string, std::string> query = {}; ///< decoded
    std::string body = "";
    std::string client = "";        ///< the address it came from
    std::string token = "";         ///< of the session, from the cookie or as a bearer
    std::string authorization = ""; ///< the header, where it is no bearer's
    bool has_cookie = false;        ///< the token is from the cookie
    std::string last_event_id = ""; ///< of a stream of events that is taken up again
    std::string known_version = ""; ///< If-None-Match
};

/// What it gets.
struct Answer {
    int status = 200;
    std::string type = "application/json";
    std::string body = "";
    std::vector<std::pair<std::string, std::string>> headers = {};
    bool is_stream = false; ///< the events of the session follow
};

/// One refused value.
struct FieldError {
    std::string name;
    std::string detail;
};

/// Ends a request with an answer of RFC 9457.
struct Problem {
    int status;
    std::string detail; ///< the daemon's own words where it has some
    std::string name = "";
    std::vector<FieldError> errors = {};
    std::optional<int> retry_after = std::nullopt; ///< seconds
    std::string allowed = "";                      ///< the methods that there are
    std::string more = "";                         ///< further members: the text of a JSON object
};

Answer answer_of(const Problem &problem);

/// "Not Found" of 404.
std::string_view status_title(int status);

} // namespace qvcd::web
