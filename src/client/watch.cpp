#include "client/local_commands.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <sys/socket.h>

#include "client/errors.h"
#include "client/reply.h"
#include "client/signal_input.h"
#include "qvclient/escape.h"

namespace qvcd::client {

namespace {

enum class Format { text, json };

Format output_format(const Options &options, const Words &words)
{
    if (!options.endpoint.local())
        throw UsageError("watch works on the local socket only, without -H");
    if (words.size() == 1)
        return Format::text;
    if (words.size() == 2 && words[1] == "--json")
        return Format::json;
    throw UsageError("watch takes no argument but --json");
}

void print_event(const std::string &json, Format format)
{
    try {
        print_line(format == Format::json ? json : event_text(json));
    } catch (const std::exception &) {
        std::fprintf(stderr, "qvc: not an event: %s\n", url_escape(json).c_str());
    }
}

void print_whole_lines(std::string &text, Format format)
{
    std::size_t start = 0;
    for (std::size_t end = 0; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
        print_event(text.substr(start, end - start), format);
    text.erase(0, start);
    std::fflush(stdout);
}

} // namespace

std::string event_text(const std::string &json)
{
    const nlohmann::json event = nlohmann::json::parse(json);
    std::string text;
    for (const char c : event.at("event").get<std::string>() + " " + event.at("payload").get<std::string>()) {
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7f)
            text += url_escape({&c, 1});
        else
            text += c;
    }
    return text;
}

int run_watch(const Options &options, const Words &words)
{
    const Format format = output_format(options, words);
    SignalInput interrupt({SIGINT});
    const Fd socket = connect_local(options.endpoint.socket_path("notify"), options.limits(words[0]).connect);
    std::string pending;
    std::array<char, 65536> buffer;
    while (interrupt.wait(socket.get(), -1) != SignalInput::Came::signal) {
        const ssize_t got = recv(socket.get(), buffer.data(), buffer.size(), 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            throw WireError("the daemon ended the stream of events");
        pending.append(buffer.data(), static_cast<std::size_t>(got));
        print_whole_lines(pending, format);
    }
    return 0;
}

} // namespace qvcd::client
