#pragma once

#include <cstdio>
#include <span>
#include <string>
#include <string_view>

namespace qvcd {

// The describers behind introspect_map.cpp.

/// What a describer is told.
struct Description {
    std::string_view prefix;             ///< in front of the API's name in every key
    std::string_view api;                ///< full name
    std::span<const std::string> args{}; ///< the words after the type's name
    bool compact = false;
    int index = 0; ///< number of the next choice, counted across the alternatives of one API
    std::FILE *out = nullptr;
};

/// Writes its lines and returns the next index.
using Describer = int (*)(const Description &what);

int introspect_undefined(const Description &what);
int introspect_blank(const Description &what);
int introspect_boolean(const Description &what);
int introspect_set(const Description &what);
int introspect_range(const Description &what);
int introspect_profile(const Description &what);
int introspect_profile2(const Description &what);
int introspect_quality(const Description &what);

/// Takes one line off the front of `text`, at most kMaxFileLineBytes of it, and returns its length, 0 at the
/// end. A line "key=value" fills both strings: the key is what stands before the first "=" (left alone when
/// that is nothing); the value begins after all of "=", blank, tab and ":" that follow. Other lines leave
/// them alone.
std::size_t kv_readline(std::string_view &text, std::string &key, std::string &value);

} // namespace qvcd
