// Rows that write to the disk.

#include "rows.h"

#include <fcntl.h>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

namespace qvcd::bench {

namespace {

constexpr double kMilli = 1e3;

std::string read_text(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

// What durability takes: the file and the entry in its folder.
void rewrite(const std::string &folder, const std::string &file, const std::string &text)
{
    const std::string path = folder + file;
    const std::string temporary = path + ".new";
    const Fd fd(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    const Fd directory(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (write(fd.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        fsync(fd.get()) != 0 || rename(temporary.c_str(), path.c_str()) != 0 || fsync(directory.get()) != 0)
        throw std::runtime_error("cannot write " + path);
}

// Some APIs of a daemon, which are set and saved again and again, and their files.
class Saved {
  public:
    // `model`: that of the daemon, with what was set since.
    Saved(const Daemon &daemon, Model &model, std::size_t count, std::size_t step)
        : connection_({"qvcd", daemon.socket(), kHello, {}}), folder_(daemon.root().path() + "/etc/bench/")
    {
        for (std::size_t i = 0; i < count * step && i < model.apis.size(); i += step) {
            apis_.push_back(&model.apis[i]);
            files_.insert(model.apis[i].file);
        }
    }

    // Each sets all APIs to another value before its time starts.
    Sample save()
    {
        std::string lines;
        for (Api *api : apis_) {
            std::swap(api->value, api->other);
            const std::string line = api->name + "=" + api->value + "\n";
            lines += line;
            connection_.ask({"set " + line, line});
        }
        const std::string name = apis_.size() == 1 ? " " + apis_.front()->name : "";
        const auto start = Clock::now();
        connection_.ask({"save" + name + "\n", lines});
        const double passed = seconds_since(start);
        for (const Api *api : apis_) {
            if (read_text(folder_ + api->file).find("\"" + api->value + "\"") == std::string::npos)
                throw std::runtime_error("save has not changed " + api->file);
        }
        return {passed};
    }

    Sample by_hand() const
    {
        std::vector<std::string> texts;
        for (const std::string &file : files_)
            texts.push_back(read_text(folder_ + file));
        const auto start = Clock::now();
        auto text = texts.begin();
        for (const std::string &file : files_)
            rewrite(folder_, file, *text++);
        return {seconds_since(start)};
    }

  private:
    Connection connection_;
    std::string folder_;
    std::vector<Api *> apis_;
    std::set<std::string> files_;
};

} // namespace

void measure_save(const Settings &settings, const Report &report)
{
    struct Case {
        const char *name;
        std::size_t apis;
        std::size_t step;
        double goal;
    };
    constexpr Case kCases[] = {{"save 1 API", 1, 1, 1.3},
                               {"save 100 APIs, 1 file", kApisOfOneFile, 1, 1.3},
                               {"save 100 APIs, 100 files", 100, kApisOfOneFile, 0.6}};
    const Daemon daemon(settings, settings.apis[1]);
    Model model = daemon.model();
    Settings often = settings;
    often.rounds = 2 * settings.rounds; // a disk is moody
    for (const Case &saved : kCases) {
        Saved apis(daemon, model, saved.apis, saved.step);
        Comparison comparison(often);
        comparison.add([&] { return apis.save(); });
        comparison.add([&] { return apis.by_hand(); });
        comparison.run();
        report(comparison.line(saved.name, 1, "write, fsync, rename", {Goal::ratio_at_most, saved.goal},
                               kMilli, "ms"));
    }
}

} // namespace qvcd::bench
