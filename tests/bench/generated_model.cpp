#include "generated_model.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace qvcd::bench {

namespace {

constexpr const char *kAreas[] = {"VideoEncoder", "AudioEncoder", "VideoDecoder", "VideoStreamer", "Recorder",
                                  "Network",      "Services",     "System",       "Bond",          "Cloud"};
constexpr const char *kUnits[] = {"Configuration", "Outputs", "Inputs",  "Channels",  "Transport",
                                  "Monitoring",    "Routing", "Storage", "Schedules", "Alarms"};

struct Leaf {
    const char *name;
    const char *type;
    const char *fallback;
    const char *value;
    const char *other;
};
constexpr Leaf kLeaves[] = {
    {"label", "label", "Channel", "Camera1", "Camera2"},
    {"enabled", "boolean", "1", "0", "1"},
    {"description", "blank,string_length 1 80", "", "second-floor", "ground-floor"},
    {"mode", "string_set auto manual off", "auto", "manual", "off"},
    {"bitrate", "integer_range 64 60000", "8000", "12000", "13000"},
    {"framerate", "integer_set 24 25 30 50 60", "25", "50", "60"},
    {"address", "ipaddress", "0.0.0.0", "10.20.30.40", "10.20.30.41"},
    {"port", "portnumber", "5004", "5006", "5008"},
    {"host", "blank,hostname", "", "encoder-7", "encoder-8"},
    {"gain", "signed_integer_range -60 20", "0", "-3", "-4"},
};

void write_file(const std::string &path, const std::string &text)
{
    std::ofstream file(path, std::ios::binary);
    file << text;
    if (!file.flush())
        throw std::runtime_error("cannot write " + path);
}

std::string metadata_of(const Leaf &leaf, const std::string &key, const std::string &file)
{
    return std::string(leaf.name) + " {\ntype = " + leaf.type + "\ndefault = " + leaf.fallback +
           "\nperm = 7774\nfile = /etc/bench/" + file + "\nattr = " + key +
           "\nread = quotedkv_rfunc\nwrite = quotedkv_wfunc\napply = initd_restart encoder\n}\n";
}

} // namespace

Model write_model(const std::string &root, std::size_t count)
{
    constexpr std::size_t kApisOfOneChannelEach = std::size(kAreas) * std::size(kUnits) * std::size(kLeaves);
    const std::size_t channels = (count + kApisOfOneChannelEach - 1) / kApisOfOneChannelEach;
    const std::string folder = root + "/etc/bench/";
    std::filesystem::create_directories(folder);

    Model model;
    std::string text;
    std::string values;
    const auto add = [&](const std::string &channel, const Leaf &leaf) {
        const std::string number = std::to_string(model.apis.size());
        const std::string file = std::to_string(model.apis.size() / kApisOfOneFile) + ".conf";
        text += metadata_of(leaf, leaf.name + number, file);
        values += leaf.name + number + "=\"" + leaf.value + "\"\n";
        model.apis.push_back({channel + leaf.name, leaf.value, leaf.other, file});
        if (model.apis.size() % kApisOfOneFile == 0 || model.apis.size() == count) {
            write_file(folder + file, values);
            values.clear();
        }
    };
    for (std::size_t i = 0; i < std::size(kAreas) * std::size(kUnits) * channels; ++i) {
        const std::string area = kAreas[i / channels / std::size(kUnits)];
        const std::string unit = kUnits[i / channels % std::size(kUnits)];
        const std::string channel = area + "." + unit + ".Channel" + std::to_string(i % channels + 1);
        text += channel + " {\n";
        for (const Leaf &leaf : kLeaves) {
            if (model.apis.size() < count)
                add(channel + ".", leaf);
        }
        text += "}\n";
    }
    model.metadata = root + "/model.hdf";
    write_file(model.metadata, text);
    return model;
}

} // namespace qvcd::bench
