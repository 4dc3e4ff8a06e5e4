#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

#include "client/errors.h"
#include "client/fleet/commands.h"
#include "client/local_file.h"

namespace qvcd::client::fleet {

namespace {

constexpr char kExport[] = "export - 2\n"; // with passwords

bool write_export(const std::string &folder, const std::string &id, const Answer &answer)
{
    std::string text;
    for (const std::string &line : answer.lines)
        text += line + "\n";
    try {
        write_local_file(folder + "/" + id + ".hdf", text);
        return true;
    } catch (const UsageError &error) {
        tell_problem(id, error.what());
        return false;
    }
}

} // namespace

int run_backup(Task &task, Arguments arguments)
{
    const Where where(arguments.value("--where"));
    const std::string folder = arguments.rest("fleet backup", 1, 1)[0];
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
        throw UsageError(folder + ": " + std::strerror(errno));
    bool written = true;
    std::size_t count = 0;
    const std::size_t all = where.all(task.fleet).size();
    const bool good =
        ask_all(task, where.online(task.fleet), kExport, [&](const std::string &id, const Answer &a) {
            if (!problem_of(a).empty())
                return;
            if (!exported_values(a.lines)) {
                tell_problem(id, "what it sent is no export of settings");
                written = false;
            } else if (write_export(folder, id, a)) {
                ++count;
            } else {
                written = false;
            }
        });
    if (task.json)
        print_json({{"written", count}, {"appliances", all}});
    else
        std::printf("%zu of %zu appliances are in %s\n", count, all, folder.c_str());
    return good && written && count == all ? 0 : 1;
}

} // namespace qvcd::client::fleet
