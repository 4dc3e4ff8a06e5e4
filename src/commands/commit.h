#pragma once

#include "change/commit.h"
#include "commands/command.h"
#include "commands/option_words.h"

#include <optional>

namespace qvcd {

extern const CommandRecord commitRecord;
extern const CommandRecord confirmRecord;
extern const CommandRecord abortRecord;

/// The options -n, -c and -m as an order; nothing when one of them, or another option, is no good.
std::optional<CommitOrder> commit_order(const OptionWords &options);

/// Carries the order out and prints the report. Returns the result.
int carry_out(Request &request, const CommitOrder &order, Report &report, bool as_json, std::FILE *out);

/// Prints a report; `result`, for return.
int print_end(const Report &report, int result, bool as_json, std::FILE *out);

} // namespace qvcd
