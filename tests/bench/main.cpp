// The benchmark of the whole daemon; see README.md beside it.

#include "generated_model.h"
#include "measures.h"
#include "store/tree.h"

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <getopt.h>

namespace qvcd::bench {

namespace {

constexpr char kUsage[] =
    "Usage: qvcd_bench [options]\n"
    "  --apis N[,N...]   sizes of the generated models (1000,10000,100000)\n"
    "  --rounds N        rounds of each measure; the least disturbed one counts (5)\n"
    "  --slice SECONDS   length of one round (0.1)\n"
    "  --folder PATH     where the roots are made; its disk is what `save` is measured on (/tmp)\n"
    "  --qvcd PATH       the daemon (qvcd beside this program)\n"
    "  --share PATH      the shipped model\n"
    "  --write PATH      only write the first generated model below PATH, to profile the daemon by hand\n"
    "  --smoke           the smallest model, shortest rounds: does everything work?\n"
    "  --json            JSON instead of a table\n";

constexpr option kOptions[] = {
    {"apis", required_argument, nullptr, 'a'},  {"rounds", required_argument, nullptr, 'r'},
    {"slice", required_argument, nullptr, 's'}, {"folder", required_argument, nullptr, 'f'},
    {"qvcd", required_argument, nullptr, 'q'},  {"share", required_argument, nullptr, 'm'},
    {"write", required_argument, nullptr, 'w'}, {"smoke", no_argument, nullptr, 'k'},
    {"json", no_argument, nullptr, 'j'},        {nullptr, no_argument, nullptr, 0},
};

std::vector<std::size_t> parse_sizes(const char *text)
{
    std::vector<std::size_t> sizes;
    for (char *end = nullptr; *text; text = *end ? end + 1 : end) {
        sizes.push_back(std::strtoul(text, &end, 10));
        if (end == text)
            break;
    }
    return sizes;
}

void smoke(Settings &settings)
{
    settings.sizes = {200};
    settings.rounds = 1;
    settings.slice = 0.001;
    settings.saved_apis = 100;
}

bool parse_options(int argc, char **argv, Settings &settings)
{
    for (int c = 0; (c = getopt_long(argc, argv, "", kOptions, nullptr)) != -1;) {
        switch (c) {
        case 'a':
            settings.sizes = parse_sizes(optarg);
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
        case 'q':
            settings.program = optarg;
            break;
        case 'm':
            settings.share = optarg;
            break;
        case 'w':
            settings.write = optarg;
            break;
        case 'k':
            smoke(settings);
            break;
        case 'j':
            settings.json = true;
            break;
        default:
            return false;
        }
    }
    return optind == argc && !settings.sizes.empty();
}

int run(const Settings &settings)
{
    if (!settings.write.empty()) {
        std::puts(write_model(settings.write, settings.sizes.front()).metadata.c_str());
        return 0;
    }
    std::vector<Figure> figures;
    for (const std::size_t size : settings.sizes)
        measure_model(settings, size, figures);
    measure_save(settings, figures);
    measure_shipped(settings, figures);
    if (settings.json)
        print_json(figures, stdout);
    else
        print_table(figures, stdout);
    return 0;
}

} // namespace

} // namespace qvcd::bench

int main(int argc, char **argv)
{
    using namespace qvcd::bench;
    Settings settings;
    settings.program = (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "qvcd").string();
    settings.share = QVCD_SHARE;
    if (!parse_options(argc, argv, settings)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    try {
        qvcd::tree_library_init();
        return run(settings);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "qvcd_bench: %s\n", error.what());
        return 1;
    }
}
