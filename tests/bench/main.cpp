// The benchmark of the whole daemon; see docs/performance.md.

#include "report.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <getopt.h>
#include <sched.h>
#include <sys/resource.h>

namespace qvcd::bench {

namespace {

constexpr char kUsage[] =
    "Usage: qvcd_bench [options]\n"
    "  --only ROW[,ROW...]  these rows\n"
    "  --rounds N           rounds of each contender (9)\n"
    "  --slice SECONDS      length of one round (0.15)\n"
    "  --folder PATH        where the roots are made; its disk is what `save` is measured on (/tmp)\n"
    "  --programs PATH      the folder of qvcd and qvc (that of this program)\n"
    "  --write PATH         only write the middle model below PATH, to profile the daemon by hand\n"
    "  --quick              tiny models, one short round: does everything work? Its figures mean nothing\n"
    "  --json               JSON in place of a table\n"
    "Rows:\n";

constexpr option kOptions[] = {
    {"only", required_argument, nullptr, 'o'},  {"rounds", required_argument, nullptr, 'r'},
    {"slice", required_argument, nullptr, 's'}, {"folder", required_argument, nullptr, 'f'},
    {"write", required_argument, nullptr, 'w'}, {"programs", required_argument, nullptr, 'p'},
    {"quick", no_argument, nullptr, 'q'},       {"json", no_argument, nullptr, 'j'},
    {nullptr, no_argument, nullptr, 0},
};

struct Options {
    Settings settings;
    std::vector<std::string> only;
    std::string write;
    bool json = false;
};

bool is_row(const std::string &id)
{
    return std::ranges::any_of(rows(), [&](const Row &row) { return id == row.id; });
}

bool add_rows(std::string_view text, std::vector<std::string> &only)
{
    while (!text.empty()) {
        const std::size_t comma = std::min(text.find(','), text.size());
        only.emplace_back(text.substr(0, comma));
        text.remove_prefix(std::min(comma + 1, text.size()));
    }
    return std::ranges::all_of(only, is_row);
}

bool parse_options(int argc, char **argv, Options &options)
{
    Settings &settings = options.settings;
    for (int c = 0; (c = getopt_long(argc, argv, "", kOptions, nullptr)) != -1;) {
        switch (c) {
        case 'o':
            if (!add_rows(optarg, options.only))
                return false;
            break;
        case 'r':
            settings.rounds = std::max(1, std::atoi(optarg));
            break;
        case 's':
            settings.slice = std::atof(optarg);
            break;
        case 'f':
            settings.folder = optarg;
            break;
        case 'p':
            settings.programs = optarg;
            break;
        case 'w':
            options.write = optarg;
            break;
        case 'q':
            settings = {settings.programs, settings.folder, {100, 200, 400}, 50, 1, 0.001};
            break;
        case 'j':
            options.json = true;
            break;
        default:
            return false;
        }
    }
    return optind == argc;
}

// Clients and servers share one processor: what counts is the work that a request makes.
void pin_to_one_processor()
{
    cpu_set_t allowed;
    sched_getaffinity(0, sizeof allowed, &allowed);
    int last = CPU_SETSIZE - 1;
    while (last > 0 && !CPU_ISSET(last, &allowed))
        --last;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(last, &one);
    sched_setaffinity(0, sizeof one, &one);
}

void allow_many_descriptors()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

int run(const Options &options)
{
    if (!options.write.empty()) {
        std::puts(write_model(options.write, options.settings.apis[1]).metadata.c_str());
        return 0;
    }
    pin_to_one_processor();
    allow_many_descriptors();
    std::vector<Line> lines;
    if (!options.json)
        print_heading(stdout);
    const Report report = [&](Line line) {
        if (options.settings.rounds == 1)
            line.goal = {}; // too short to be judged
        if (!options.json)
            print_line(line, stdout);
        lines.push_back(std::move(line));
    };
    int result = 0;
    for (const Row &row : rows()) {
        if (!options.only.empty() && std::ranges::find(options.only, row.id) == options.only.end())
            continue;
        try {
            row.measure(options.settings, report);
        } catch (const std::exception &error) {
            std::fprintf(stderr, "qvcd_bench: %s: %s\n", row.id, error.what());
            result = 1;
        }
    }
    if (options.json)
        print_json(lines, stdout);
    return result;
}

} // namespace

} // namespace qvcd::bench

int main(int argc, char **argv)
{
    using namespace qvcd::bench;
    Options options;
    options.settings.programs = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    if (parse_options(argc, argv, options))
        return run(options);
    std::fputs(kUsage, stderr);
    for (const Row &row : rows())
        std::fprintf(stderr, "  %-12s %s\n", row.id, row.what);
    return 2;
}
