#include "base/file_text.h"
#include "generated_model.h"
#include "line_client.h"
#include "measures.h"
#include "platform/fd.h"
#include "processes.h"
#include "timing.h"

#include <cstdio>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace qvcd::bench {

namespace {

constexpr char kHello[] = "bench 0 0\n";
constexpr std::size_t kAmounts[] = {1, 100, 1000};

struct Spread {
    const char *group;
    std::size_t files;
};
constexpr Spread kSpreads[] = {{"Single", 1}, {"Spread", kSpreadFiles}};

std::string slot(const Spread &spread, std::size_t i)
{
    return std::string("Recorder.") + spread.group + ".Slot" + std::to_string(i) + ".title";
}

class SaveBench {
  public:
    SaveBench(const Settings &settings, std::vector<Figure> &figures)
        : settings_(settings), figures_(figures), root_(settings.folder),
          daemon_(settings.program, root_.path(),
                  write_save_model(root_.path(), settings.saved_apis).metadata),
          client_(daemon_.socket())
    {
        client_.send(kHello);
    }

    void measure(const Spread &spread, std::size_t amount)
    {
        std::vector<double> ours;
        std::vector<double> bare;
        for (int i = 0; i < settings_.rounds; ++i) {
            set(spread, amount);
            ours.push_back(seconds_of([&] { save(spread, amount); }));
            bare.push_back(rewrite(spread, std::min(amount, spread.files)));
        }
        const std::size_t files = std::min(amount, spread.files);
        figures_.push_back({"save in groups of " + std::to_string(settings_.saved_apis) + " APIs and " +
                                std::to_string(spread.files) + " file(s)",
                            std::to_string(amount) + " APIs, " + std::to_string(files) + " file(s)",
                            median(ours) * 1e3, "ms", median(bare) * 1e3, "write, fsync, rename; sync(2)"});
    }

  private:
    void set(const Spread &spread, std::size_t amount)
    {
        ++generation_;
        std::string lines;
        for (std::size_t i = 0; i < amount; ++i)
            lines += "set " + slot(spread, i) + "=Take+" + std::to_string(generation_) + "\n";
        client_.send(lines);
        client_.skip_lines(amount);
    }

    void save(const Spread &spread, std::size_t amount)
    {
        client_.send(std::string("save Recorder.") + spread.group + "\nget " + slot(spread, 0) + "\n");
        client_.skip_lines(amount);
        if (client_.line() != slot(spread, 0) + "=Take " + std::to_string(generation_))
            throw std::runtime_error("wrong answer to save");
        const auto text = read_file(path(spread, 0));
        if (!text || text->find("title0=Take " + std::to_string(generation_) + "\n") == std::string::npos)
            throw std::runtime_error("save has not changed " + path(spread, 0));
    }

    // Gives the same files the same bytes, as briefly as is safe.
    double rewrite(const Spread &spread, std::size_t files) const
    {
        std::vector<std::string> texts;
        for (std::size_t i = 0; i < files; ++i)
            texts.push_back(read_file(path(spread, i)).value_or(""));
        return seconds_of([&] {
            for (std::size_t i = 0; i < files; ++i)
                rewrite_file(path(spread, i), texts[i]);
            sync();
        });
    }

    static void rewrite_file(const std::string &path, const std::string &text)
    {
        const std::string temporary = path + ".new";
        const Fd fd(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
        if (!fd || ::write(fd.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
            ::fsync(fd.get()) != 0 || std::rename(temporary.c_str(), path.c_str()) != 0)
            throw std::runtime_error("cannot write " + path);
    }

    std::string path(const Spread &spread, std::size_t i) const
    {
        return root_.path() + "/etc/bench/" + spread.group + std::to_string(i % spread.files) + ".conf";
    }

    const Settings &settings_;
    std::vector<Figure> &figures_;
    Root root_;
    Daemon daemon_;
    LineClient client_;
    int generation_ = 0;
};

} // namespace

void measure_save(const Settings &settings, std::vector<Figure> &figures)
{
    SaveBench bench(settings, figures);
    for (const Spread &spread : kSpreads) {
        for (const std::size_t amount : kAmounts) {
            if (amount <= settings.saved_apis)
                bench.measure(spread, amount);
        }
    }
}

} // namespace qvcd::bench
