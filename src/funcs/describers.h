#pragma once

#include <cstdio>
#include <span>
#include <string>
#include <string_view>

namespace qvcd {

// The describers behind introspect_map.cpp. None offers a value that the API's type refuses.

/// What a describer is told.
struct Description {
    std::string_view prefix;             ///< in front of the API's name in every key
    std::string_view api;                ///< full name
    std::span<const std::string> args{}; ///< the words after the type's name
    bool compact = false;
    bool visible = false; ///< the caller may see values
    int index = 0;        ///< number of the next choice, counted across the alternatives of one API
    std::FILE *out = nullptr;
};

/// Writes its lines and returns the next index.
using Describer = int (*)(const Description &what);

int introspect_boolean(const Description &what);
int introspect_set(const Description &what);         ///< the members
int introspect_bounded_set(const Description &what); ///< the members; the first two are bounds as well
int introspect_range(const Description &what);       ///< two bounds; one that the API refuses is empty
int introspect_length(const Description &what);      ///< two bounds of a text's length
int introspect_profile(const Description &what);
int introspect_profile2(const Description &what);

/// The counters of a statistics file, which are values: nothing for a caller who may not see them.
int introspect_quality(const Description &what);

} // namespace qvcd
