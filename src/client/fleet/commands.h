#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "client/fleet/arguments.h"
#include "client/fleet/fleet.h"
#include "client/fleet/where.h"

namespace qvcd::client::fleet {

/// What all sub-commands have.
struct Task {
    Fleet &fleet;
    bool json = false;
    bool yes = false;
    std::chrono::seconds patience{30}; ///< with an appliance
};

// The sub-commands: what they take is in fleet_main.cpp. They return the exit status: 0 only when all went
// well.
int run_list(Task &task, Arguments arguments);
int run_get(Task &task, Arguments arguments);
int run_diff(Task &task, Arguments arguments);
int run_watch(Task &task, Arguments arguments);
int run_backup(Task &task, Arguments arguments);
int run_commit(Task &task, Arguments arguments);

// ---- What they share ----

using Values = std::map<std::string, std::string>;

/// Asks each of the appliances the same, with progress, and hands each answer on as it comes. True when all
/// answered with result 0; the others are told on standard error.
bool ask_all(Task &task, const std::vector<std::string> &ids, const std::string &lines,
             const std::function<void(const std::string &id, const Answer &answer)> &take);

/// Lines of the wire that get these names; as many on each as the daemon takes.
std::string get_lines(const std::vector<std::string> &names);

/// The "NAME=VALUE" lines of an answer.
Values values_in(const Answer &answer);

/// The settings of an export.
std::optional<Values> exported_values(const std::vector<std::string> &lines);

/// Those of an export in a file of this machine. Throws UsageError.
Values golden_values(const std::string &file);

/// Why it did not go well, in words; empty when it did.
std::string problem_of(const Answer &answer);

void tell_problem(const std::string &id, const std::string &problem);

/// A line of it on standard output.
void print_json(const Json &json);

} // namespace qvcd::client::fleet
