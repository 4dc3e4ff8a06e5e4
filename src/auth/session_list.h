#pragma once

namespace qvcd {

// The file "/tmp/current_sessions", from which other programs of the appliance read the numbers of the live
// sessions: one a line, decimal, in the order in which they were added. A file that cannot be read or written
// is passed over. Call under the command lock.

/// Appends the number, unless it is there.
void session_add_to_list(int n);

/// Removes the number, and with it all lines that hold no number; a file without it stays as it is.
void session_remove_from_list(int n);

/// Empties the file, creating it when needed.
void session_clear_list();

} // namespace qvcd
