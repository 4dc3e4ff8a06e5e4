#pragma once

#include "base/change_notes.h"
#include "change/proposal.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace qvcd {

/// What the commands of changes answer, as text or as one line of JSON (docs/changes.md). What is empty is
/// not printed.
struct Report {
    struct File {
        std::string file;
        std::string diff; ///< hunks (change/unified_diff.h)
    };

    std::vector<ValueChange> values; ///< as the caller may see them
    std::vector<File> files;
    std::vector<ActionRun> actions; ///< that ran, or would run
    std::vector<ActionRun> undone;  ///< that ran again with the old values
    std::vector<Refusal> errors;
    std::string entry_name = "Commit"; ///< of the command
    std::int64_t entry = -1;           ///< of the history; 0: it could not be written; below: there is none
    std::string end;                   ///< how it ended, where it is not what was asked for
    std::optional<std::chrono::seconds> left; ///< to confirm it
    std::string problem;                      ///< with the history

    void print_text(std::FILE *out) const;
    void print_json(std::FILE *out) const;
    void print(bool as_json, std::FILE *out) const { as_json ? print_json(out) : print_text(out); }
};

/// The parts of it that the history prints too.
std::string line_of(const ActionRun &run); ///< "action", and how it failed
/// The same behind `front`, and below it what the action said of errors, behind four blanks.
void print_run(const std::string &front, const ActionRun &run, std::FILE *out);
std::string time_text(std::int64_t time); ///< "2026-11-23T10:42:12Z"
nlohmann::ordered_json json_of(const std::vector<ActionRun> &runs);
nlohmann::ordered_json json_of(const std::vector<ValueChange> &values);
void reply_json(std::FILE *out,
                const nlohmann::ordered_json &json); ///< one line; what is no UTF-8 is replaced

/// A change as the caller may see it.
ValueChange shown_change(const Proposed &proposed);

} // namespace qvcd
