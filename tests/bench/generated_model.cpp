#include "generated_model.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>

namespace qvcd::bench {

namespace {

constexpr const char *kAreas[] = {"VideoEncoder", "AudioEncoder", "VideoDecoder", "VideoStreamer", "Recorder",
                                  "Network",      "Services",     "System",       "Bond",          "Cloud"};
constexpr const char *kUnits[] = {"Configuration", "Outputs",    "Inputs",  "Channels",
                                  "Transport",     "Monitoring", "Routing", "Storage"};

struct Leaf {
    const char *group; // below the channel; empty for the channel itself
    const char *name;
    const char *type;
    const char *fallback;
    const char *value; // in the configuration file
    const char *more;  // further attributes
};
constexpr Leaf kLeaves[] = {
    {"", "label", "label", "Channel", "Studio camera", ""},
    {"", "enabled", "boolean", "1", "0", "apply = initd_restart encoder\n"},
    {"", "description", "blank,string_length 1 80", "", "second floor", ""},
    {"", "mode", "string_set auto manual off", "auto", "manual", "apply = initd_restart encoder\n"},
    {"Settings", "bitrate", "integer_range 64 60000", "8000", "12000", ""},
    {"Settings", "framerate", "integer_set 24 25 30 50 60", "25", "50", ""},
    {"Settings", "address", "ipaddress", "0.0.0.0", "10.20.30.40", ""},
    {"Settings", "port", "portnumber", "5004", "5006", ""},
    {"Settings", "host", "blank,hostname", "", "encoder-7", ""},
    {"Settings", "secret", "blank,password 4 32", "", "letmein77", "perm = 7700\n"},
    {"Settings", "gain", "signed_integer_range -60 20", "0", "-3", ""},
    {"Status", "state", "string", "", "", "dynamic = true\nperm = 4444\nread = na_rfunc\nwrite = no_wfunc\n"},
};
constexpr std::size_t kChannelsOfOneFile = 10;

void write_file(const std::string &path, const std::string &text)
{
    std::ofstream file(path, std::ios::binary);
    file << text;
    if (!file.flush())
        throw std::runtime_error("cannot write " + path);
}

// Collects the text of the metadata and of the configuration files.
class Writer {
  public:
    explicit Writer(std::size_t count) : left_(count) {}

    void unit(const std::string &area, const std::string &unit, std::size_t channels, bool from_template)
    {
        const std::string file = area + "_" + unit;
        text_ += unit + " {\nread = quotedkv_rfunc\nwrite = quotedkv_wfunc\n";
        if (from_template && left_ >= channels * std::size(kLeaves)) {
            text_ += "__d {\nrange = 1 " + std::to_string(channels) + "\n";
            channel(file + "__d", std::size(kLeaves), "__d");
            text_ += "}\n";
            for (std::size_t i = 1; i <= channels; ++i)
                publish(area + "." + unit + "." + std::to_string(i), file + std::to_string(i),
                        std::to_string(i), std::size(kLeaves));
        } else {
            for (std::size_t i = 1; i <= channels && left_ > 0; ++i)
                single_channel(area + "." + unit, file, i);
        }
        text_ += "}\n";
    }

    void open_area(const std::string &area, const char *perm) { text_ += area + " {\nperm = " + perm + "\n"; }
    void close_area() { text_ += "}\n"; }
    bool done() const { return left_ == 0; }

    void store(const std::string &root, GeneratedModel &model)
    {
        const std::filesystem::path folder = root + "/etc/bench";
        std::filesystem::create_directories(folder);
        for (const auto &[name, text] : files_)
            write_file((folder / (name + ".conf")).string(), text);
        model.metadata = root + "/model.hdf";
        write_file(model.metadata, text_);
        model.apis = std::move(apis_);
        model.settable = std::move(settable_);
    }

  private:
    void single_channel(const std::string &unit, const std::string &file, std::size_t number)
    {
        const std::string name = "Channel" + std::to_string(number);
        const std::string shared = file + "_" + std::to_string(number / kChannelsOfOneFile);
        const std::size_t leaves = std::min(left_, std::size(kLeaves));
        text_ += name + " {\n";
        channel(shared, leaves, std::to_string(number));
        text_ += "}\n";
        publish(unit + "." + name, shared, std::to_string(number), leaves);
    }

    // The metadata of one channel, or of a template of channels.
    void channel(const std::string &file, std::size_t leaves, const std::string &number)
    {
        text_ += "file = /etc/bench/" + file + ".conf\n";
        for (std::size_t i = 0; i < leaves; ++i) {
            const Leaf &leaf = kLeaves[i];
            text_ += *leaf.group ? std::string(leaf.group) + "." + leaf.name : leaf.name;
            text_ += std::string(" {\ntype = ") + leaf.type + "\ndefault = " + leaf.fallback;
            text_ += std::string("\nattr = ") + leaf.name + number + "\n" + leaf.more + "}\n";
        }
    }

    void publish(const std::string &channel, const std::string &file, const std::string &number,
                 std::size_t leaves)
    {
        std::string &values = files_[file];
        for (std::size_t i = 0; i < leaves; ++i) {
            const Leaf &leaf = kLeaves[i];
            apis_.push_back(channel + "." + (*leaf.group ? std::string(leaf.group) + "." : "") + leaf.name);
            values += std::string(leaf.name) + number + "=\"" + leaf.value + "\"\n";
            if (std::string_view(leaf.name) == "bitrate")
                settable_.push_back(apis_.back());
        }
        left_ -= leaves;
    }

    std::size_t left_;
    std::string text_;
    std::map<std::string, std::string> files_;
    std::vector<std::string> apis_;
    std::vector<std::string> settable_;
};

} // namespace

GeneratedModel write_model(const std::string &root, std::size_t count)
{
    const std::size_t units = std::size(kAreas) * std::size(kUnits);
    const std::size_t channels = count / std::size(kLeaves) / units + 1;
    Writer writer(count);
    std::size_t number = 0;
    for (const char *area : kAreas) {
        writer.open_area(area, number % 2 ? "7744" : "7774");
        for (const char *unit : kUnits) {
            if (!writer.done())
                writer.unit(area, unit, channels, number++ % 2 == 1);
        }
        writer.close_area();
    }
    GeneratedModel model;
    writer.store(root, model);
    return model;
}

GeneratedModel write_save_model(const std::string &root, std::size_t count)
{
    GeneratedModel model;
    std::map<std::string, std::string> files;
    std::string text = "Recorder {\nperm = 7777\nread = kv_rfunc\nwrite = kv_wfunc\n";
    const auto add_group = [&](const std::string &group, std::size_t spread) {
        text += group + " {\n";
        for (std::size_t i = 0; i < count; ++i) {
            const std::string file = group + std::to_string(i % spread) + ".conf";
            const std::string key = "title" + std::to_string(i);
            text += "Slot" + std::to_string(i) + ".title {\ntype = string\nattr = " + key +
                    "\nfile = /etc/bench/" + file + "\n}\n";
            files[file] += key + "=Recording " + std::to_string(i) + "\n";
        }
        text += "}\n";
    };
    add_group("Single", 1);
    add_group("Spread", kSpreadFiles);
    const std::filesystem::path folder = root + "/etc/bench";
    std::filesystem::create_directories(folder);
    for (const auto &[name, content] : files)
        write_file((folder / name).string(), content);
    model.metadata = root + "/model.hdf";
    write_file(model.metadata, text + "}\n");
    return model;
}

} // namespace qvcd::bench
