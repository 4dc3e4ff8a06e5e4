#include "generated_model.h"
#include "line_client.h"
#include "measures.h"
#include "processes.h"
#include "store/hdf_file.h"
#include "timing.h"

#include <cstdlib>
#include <random>
#include <stdexcept>
#include <unistd.h>

namespace qvcd::bench {

namespace {

constexpr std::size_t kRequests = 1000;    // different ones of one kind, and of one pipelined batch
constexpr std::size_t kFirstValue = 13000; // no API starts with one from here on
constexpr char kHello[] = "bench 0 0\n";
constexpr double kMillion = 1e6;

std::string count_text(std::size_t apis)
{
    return std::to_string(apis) + " APIs";
}

// Everything that the measures of one model share.
class ModelBench {
  public:
    ModelBench(const Settings &settings, std::size_t apis, std::vector<Figure> &figures)
        : settings_(settings), root_(settings.folder), echo_server_(root_.path()),
          model_(write_model(root_.path(), apis)), figures_(figures)
    {
    }

    void run();

  private:
    void measure_start();
    void measure_memory();
    void measure_get();
    void measure_pipelined();
    void measure_whole_tree();
    void measure_idle(const char *command);
    void measure_set();

    double parse_seconds() const;
    std::vector<std::string> some_gets();
    Pair rates(const std::function<void()> &ours, const std::function<void()> &bare) const;
    void add(std::string name, double value, std::string unit)
    {
        add(std::move(name), value, std::move(unit), {}, {});
    }
    void add(std::string name, double value, std::string unit, std::optional<double> bare,
             std::string bare_name)
    {
        figures_.push_back({count_text(model_.apis.size()), std::move(name), value, std::move(unit), bare,
                            std::move(bare_name)});
    }

    const Settings &settings_;
    Root root_;
    EchoServer echo_server_;
    GeneratedModel model_;
    std::vector<Figure> &figures_;
    std::optional<Daemon> daemon_;
    std::mt19937 random_{1}; // the same requests in every run
};

void ModelBench::run()
{
    measure_start();
    measure_memory();
    measure_get();
    measure_pipelined();
    measure_whole_tree();
    measure_idle("checkapp");
    measure_idle("apply");
    measure_set();
}

// What no daemon could do without: reading the metadata into a tree.
double ModelBench::parse_seconds() const
{
    return seconds_of([&] {
        Tree tree = Tree::make();
        hdf_read_own_file(model_.metadata, tree);
    });
}

void ModelBench::measure_start()
{
    double best = 1e9;
    double parse = 1e9;
    const int rounds = std::max(1, std::min(settings_.rounds, 3));
    for (int i = 0; i < rounds; ++i) {
        daemon_.reset();
        daemon_.emplace(settings_.program, root_.path(), model_.metadata);
        best = std::min(best, daemon_->start_time().count());
        parse = std::min(parse, parse_seconds());
    }
    add("exec to first answer", best * 1e3, "ms", parse * 1e3, "parsing the metadata");
}

void ModelBench::measure_memory()
{
    const double with_model = daemon_->resident_bytes();
    const Root other(settings_.folder);
    const GeneratedModel empty = write_model(other.path(), 0);
    const Daemon bare(settings_.program, other.path(), empty.metadata);
    const double without = bare.resident_bytes();
    add("resident memory", with_model / kMillion, "MB", without / kMillion, "a daemon without APIs");
    add("resident memory per API", (with_model - without) / static_cast<double>(model_.apis.size()), "B");
}

std::vector<std::string> ModelBench::some_gets()
{
    std::uniform_int_distribution<std::size_t> any(0, model_.apis.size() - 1);
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < kRequests; ++i)
        lines.push_back("get " + model_.apis[any(random_)] + "\n");
    return lines;
}

// A hundred calls make the clock's own cost small.
Pair ModelBench::rates(const std::function<void()> &ours, const std::function<void()> &bare) const
{
    const auto often = [](const std::function<void()> &work) {
        return [&work] {
            for (int i = 0; i < 100; ++i)
                work();
        };
    };
    const Pair seconds = best_of(settings_.rounds, settings_.slice, often(ours), often(bare));
    return {100 / seconds.ours, 100 / seconds.bare};
}

void ModelBench::measure_get()
{
    const std::vector<std::string> lines = some_gets();
    LineClient daemon(daemon_->socket());
    LineClient echo(echo_server_.socket());
    daemon.send(kHello);
    std::size_t at = 0;
    const auto next = [&]() -> const std::string & { return lines[at++ % lines.size()]; };
    const Pair rate = rates(
        [&] {
            const std::string &line = next();
            daemon.send(line);
            const std::string_view name = std::string_view(line).substr(4, line.size() - 5);
            if (!daemon.line().starts_with(name))
                throw std::runtime_error("wrong answer to " + line);
        },
        [&] {
            echo.send(next());
            echo.line();
        });
    add("get, round trips", rate.ours, "/s", rate.bare, "echo");
}

void ModelBench::measure_pipelined()
{
    std::string batch;
    for (const std::string &line : some_gets())
        batch += line;
    LineClient daemon(daemon_->socket());
    LineClient echo(echo_server_.socket());
    daemon.send(kHello);
    const Pair seconds = best_of(
        settings_.rounds, settings_.slice,
        [&] {
            daemon.send(batch);
            daemon.skip_lines(kRequests);
        },
        [&] {
            echo.send(batch);
            echo.skip_lines(kRequests);
        });
    const auto rate = [](double s) { return static_cast<double>(kRequests) / s; };
    add("get, pipelined", rate(seconds.ours), "/s", rate(seconds.bare), "echo");
}

void ModelBench::measure_whole_tree()
{
    std::size_t bytes = 0;
    LineClient echo(echo_server_.socket());
    const auto get_all = [&] {
        LineClient daemon(daemon_->socket());
        daemon.send(std::string(kHello) + "get\n\n");
        bytes = daemon.count_to_end();
    };
    get_all();
    if (bytes < model_.apis.size() * 20)
        throw std::runtime_error("get of the whole tree gave " + std::to_string(bytes) + " bytes");
    const Pair seconds = best_of(settings_.rounds, settings_.slice, get_all, [&] {
        echo.send("=" + std::to_string(bytes) + "\n");
        echo.skip_bytes(bytes);
    });
    const auto rate = [&](double s) { return static_cast<double>(bytes) / kMillion / s; };
    add("get of the whole tree", seconds.ours * 1e3, "ms");
    add("get of the whole tree", rate(seconds.ours), "MB/s", rate(seconds.bare), "sending as much");
}

// These print nothing when nothing is pending; the answer to a get behind them tells that they are done.
void ModelBench::measure_idle(const char *command)
{
    const std::string get = "get " + model_.apis.front() + "\n";
    LineClient daemon(daemon_->socket());
    daemon.send(kHello);
    const bool syncs = std::string_view(command) == "apply";
    const Pair seconds = best_of(
        settings_.rounds, settings_.slice,
        [&] {
            daemon.send(command + ("\n" + get));
            if (!daemon.line().starts_with(model_.apis.front()))
                throw std::runtime_error(std::string(command) + " found something");
        },
        [&] {
            if (syncs)
                sync();
            daemon.send(get);
            daemon.line();
        });
    add(std::string(command) + " with nothing pending", seconds.ours * 1e3, "ms", seconds.bare * 1e3,
        syncs ? "get and sync(2)" : "get");
}

void ModelBench::measure_set()
{
    if (model_.settable.empty())
        return;
    LineClient daemon(daemon_->socket());
    LineClient echo(echo_server_.socket());
    daemon.send(kHello);
    std::size_t count = 0;
    std::string line;
    const auto next = [&]() -> const std::string & {
        line = "set " + model_.settable[count % model_.settable.size()];
        line += "=" + std::to_string(kFirstValue + count++ % 40000) + "\n";
        return line;
    };
    const Pair rate = rates(
        [&] {
            daemon.send(next());
            const std::string_view expected = std::string_view(line).substr(4, line.size() - 5);
            if (const std::string_view answer = daemon.line(); answer != expected)
                throw std::runtime_error("wrong answer to " + line + std::string(answer));
        },
        [&] {
            echo.send(next());
            echo.line();
        });
    add("set, round trips", rate.ours, "/s", rate.bare, "echo");
}

} // namespace

void measure_model(const Settings &settings, std::size_t apis, std::vector<Figure> &figures)
{
    ModelBench(settings, apis, figures).run();
}

} // namespace qvcd::bench
