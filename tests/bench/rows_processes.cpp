// Rows about processes: start, memory, the one-shot client.

#include "requests.h"
#include "rows.h"

#include <algorithm>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>

namespace qvcd::bench {

namespace {

constexpr double kMilli = 1e3;

double seconds_of(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

// Runs a program again and again and wants the same output each time. Milliseconds of one run.
class OneShot {
  public:
    OneShot(const Daemon &daemon, std::vector<std::string> arguments, std::string output)
        : daemon_(daemon), arguments_(std::move(arguments)), output_(std::move(output))
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        read_end_.reset(ends[0]);
        write_end_.reset(ends[1]);
    }

    Sample run_for(double seconds) const
    {
        const auto start = Clock::now();
        const double before = processor_seconds(0) + processor_seconds(daemon_.process());
        double children = 0;
        double count = 0;
        for (; seconds_since(start) < seconds; ++count)
            children += run();
        const double spent = processor_seconds(0) + processor_seconds(daemon_.process()) - before + children;
        return {kMilli * seconds_since(start) / count, kMilli * spent / count};
    }

  private:
    // Returns the processor time of the child.
    double run() const
    {
        std::string root = "QV_SYSROOT=" + daemon_.root().path();
        std::vector<char *> argv;
        for (const std::string &argument : arguments_)
            argv.push_back(const_cast<char *>(argument.c_str()));
        argv.push_back(nullptr);
        char *environment[] = {root.data(), nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, write_end_.get(), STDOUT_FILENO);
        pid_t child = 0;
        const int error = posix_spawn(&child, argv.front(), &actions, nullptr, argv.data(), environment);
        posix_spawn_file_actions_destroy(&actions);
        int status = -1;
        rusage usage{};
        if (error != 0 || wait4(child, &status, 0, &usage) != child || status != 0)
            throw std::runtime_error("cannot run " + arguments_.front());
        std::string got(output_.size() + 1, '\0');
        got.resize(
            static_cast<std::size_t>(std::max<ssize_t>(0, read(read_end_.get(), got.data(), got.size()))));
        if (got != output_)
            throw std::runtime_error(arguments_.front() + " printed " + got);
        return seconds_of(usage.ru_utime) + seconds_of(usage.ru_stime);
    }

    const Daemon &daemon_;
    std::vector<std::string> arguments_;
    std::string output_;
    Fd read_end_;
    Fd write_end_;
};

void read_everything(const Daemon &daemon)
{
    Contender contender{"qvcd", daemon.socket(), kHello,
                        make_script(Kind::tree, kQvcdLanguage, daemon.model())};
    Connection(contender).ask(contender.next());
    contender.script = make_script(Kind::get, kQvcdLanguage, daemon.model());
    Connection connection(contender);
    for (std::size_t i = 0; i < contender.script.size(); ++i)
        connection.ask(contender.next());
}

} // namespace

void measure_start(const Settings &settings, const Report &report)
{
    constexpr int kMostStarts = 5;
    constexpr double kGoals[] = {8, 60, 500};
    for (std::size_t i = 0; i < std::size(kGoals); ++i) {
        double best = 1e9;
        for (int round = 0; round < std::min(settings.rounds, kMostStarts); ++round)
            best = std::min(best, Daemon(settings, settings.apis[i]).start_seconds());
        report({.name = "exec to first answer, " + std::to_string(settings.apis[i]),
                .value = best * kMilli,
                .unit = "ms",
                .goal = {Goal::value_at_most, kGoals[i]}});
    }
}

void measure_memory(const Settings &settings, const Report &report)
{
    const Daemon small(settings, settings.apis[1]);
    const Daemon large(settings, settings.apis[2]);
    const auto report_bytes = [&](const char *name) {
        const double bytes = large.resident_bytes() - small.resident_bytes();
        report({.name = name,
                .value = bytes / static_cast<double>(settings.apis[2] - settings.apis[1]),
                .unit = "B",
                .goal = {Goal::value_at_most, 1600}});
    };
    report_bytes("resident memory of an API");
    read_everything(small);
    read_everything(large);
    report_bytes("the same after everything was read");
}

void measure_qvc(const Settings &settings, const Report &report)
{
    const Daemon daemon(settings, settings.apis[1]);
    const Api &api = daemon.model().apis.back();
    const std::string output = api.name + "=" + api.value + "\n";
    const OneShot qvc(daemon, {settings.programs + "/qvc", "get", api.name}, output);
    const OneShot bare(daemon, {settings.programs + "/qvcd_bench_client", daemon.socket(), "get " + api.name},
                       output);
    Comparison comparison(settings);
    comparison.add([&] { return qvc.run_for(settings.slice); });
    comparison.add([&] { return bare.run_for(settings.slice); });
    comparison.run();
    report(comparison.line("qvc get", 1, "static C client", {Goal::ratio_at_most, 1.5}, 1, "ms"));
}

} // namespace qvcd::bench
