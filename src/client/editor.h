#pragma once

#include <string>

#include "client/signal_input.h"

namespace qvcd::client {

/// Runs $VISUAL or $EDITOR, else vi, on a file and waits for its end. When one of the signals comes the
/// editor is told to end, too. Throws UsageError when it fails, std::runtime_error for a signal.
void run_editor(const std::string &path, SignalInput &signals);

} // namespace qvcd::client
