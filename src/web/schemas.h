#pragma once

namespace qvcd::web {

/// The schemas of what is sent and answered: the text of a JSON object.
extern const char *const kSchemas;

} // namespace qvcd::web
