#pragma once

namespace qvcd {

/// From here on the process ends in order where it cannot go on: with one line on the log and on stderr that
/// says why ("out of memory", or what an exception says that nobody caught), and SIGABRT, so that a service
/// manager starts it again. A command that runs out of memory fails alone, by std::bad_alloc; a thread that
/// serves everybody cannot. Files are whole at every moment (base/replace_files.h).
void end_in_order();

} // namespace qvcd
