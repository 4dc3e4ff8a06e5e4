// Single functions of the store and of the command framework, in this process.

#include "base/args.h"
#include "base/text.h"
#include "funcs/check_map.h"
#include "generated_model.h"
#include "model/populate.h"
#include "platform/sysroot.h"
#include "store/database.h"
#include "store/flags.h"
#include "store/hdf_scan.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace qvcd::bench {

namespace {

constexpr std::size_t kApis = 10000;

std::vector<std::string> &apis()
{
    static std::vector<std::string> names;
    return names;
}

std::string &metadata_text()
{
    static std::string text;
    return text;
}

void load_model()
{
    std::string root = "/tmp/qvb.XXXXXX";
    if (!mkdtemp(root.data()))
        std::abort();
    Model model = write_model(root, kApis);
    for (const Api &api : model.apis)
        apis().push_back(api.name);
    std::stringstream text;
    text << std::ifstream(model.metadata, std::ios::binary).rdbuf();
    metadata_text() = text.str();
    hdfdb_init();
    Request request(kInternalMask);
    hdfdb_load_meta_file(request, qv_host_file(model.metadata));
    for (const std::string &api : apis())
        hdfDB.set(api, "12000");
    std::filesystem::remove_all(root);
}

// Calls `work` with one API after the other.
template <class Work>
void over_apis(benchmark::State &state, Work work)
{
    std::size_t at = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(work(apis()[at++ * 7919 % apis().size()]));
}

void tree_find(benchmark::State &state)
{
    over_apis(state, [](const std::string &api) { return hdfDB.find(api); });
}

void tree_set(benchmark::State &state)
{
    over_apis(state, [](const std::string &api) { return hdfDB.set(api, "12000"); });
}

void meta_inherited(benchmark::State &state)
{
    over_apis(state, [](const std::string &api) { return meta_get_perm(api); });
}

void meta_three_attributes(benchmark::State &state)
{
    over_apis(state, [](const std::string &api) {
        MetaApi meta(api);
        return meta.perm() + (meta.is_true("private") ? 1U : 0U) + (meta.is_true("dynamic") ? 1U : 0U);
    });
}

void check_value(benchmark::State &state)
{
    over_apis(state, [](const std::string &api) { return cfuncmap_check(api, "12000"); });
}

void find_flags(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(flagged_apis(metaDB.root(), "", flag_apply_pending));
}

void scan_text(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(hdf_scan(metadata_text()));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(metadata_text().size()));
}

void split_line(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(
            split_words("get VideoEncoder.Configuration.Channel1.Settings.bitrate\n", kListSeparators));
}

void unescape_value(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(url_unescape("Studio+camera%20on+the%2Bsecond+floor"));
}

BENCHMARK(tree_find);
BENCHMARK(tree_set);
BENCHMARK(meta_inherited);
BENCHMARK(meta_three_attributes);
BENCHMARK(check_value);
BENCHMARK(find_flags);
BENCHMARK(scan_text);
BENCHMARK(split_line);
BENCHMARK(unescape_value);

} // namespace

} // namespace qvcd::bench

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    qvcd::tree_library_init();
    qvcd::bench::load_model();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
