#include "line_client.h"
#include "measures.h"
#include "processes.h"
#include "timing.h"

#include <filesystem>
#include <stdexcept>

namespace qvcd::bench {

namespace {

constexpr const char *kCommands[] = {"get Network", "get System", "get"};

} // namespace

void measure_shipped(const Settings &settings, std::vector<Figure> &figures)
{
    const std::string metadata = settings.share + "/apimeta.hdf";
    if (!std::filesystem::exists(metadata))
        return;
    const Root root(settings.folder);
    std::filesystem::copy(settings.share + "/root", root.path(),
                          std::filesystem::copy_options::recursive |
                              std::filesystem::copy_options::copy_symlinks |
                              std::filesystem::copy_options::skip_existing);
    const Daemon daemon(settings.program, root.path(), metadata);
    const char *const model = "the shipped model";
    figures.push_back({model, "exec to first answer", daemon.start_time().count() * 1e3, "ms", {}, {}});
    for (const char *command : kCommands) {
        const Pair seconds = best_of(
            settings.rounds, settings.slice,
            [&] {
                LineClient client(daemon.socket());
                client.send("bench 0 0\n" + std::string(command) + "\n\n");
                if (client.count_to_end() < 100)
                    throw std::runtime_error(std::string("wrong answer to ") + command);
            },
            [&] {
                LineClient client(daemon.socket());
                client.send("bench 0 0\n\n");
                client.count_to_end();
            });
        figures.push_back(
            {model, command, seconds.ours * 1e3, "ms", seconds.bare * 1e3, "a connection without a command"});
    }
}

} // namespace qvcd::bench
