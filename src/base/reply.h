#pragma once

#include <cstdio>
#include <string_view>

namespace qvcd {

// Reply lines. A null stream swallows them. In keys, values and lines a control character becomes a blank.

/// "key=value\n"
void reply_value(std::FILE *out, std::string_view key, std::string_view value);

/// "text\n"
void reply_line(std::FILE *out, std::string_view text);

/// The text as it stands.
void reply_text(std::FILE *out, std::string_view text);

/// printf format.
void reply_printf(std::FILE *out, const char *format, ...) __attribute__((format(printf, 2, 3)));

} // namespace qvcd
