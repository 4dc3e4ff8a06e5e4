// Rows that ask servers: qvcd, the echo server and Redis.

#include "requests.h"
#include "rows.h"

#include <stdexcept>
#include <thread>

namespace qvcd::bench {

namespace {

using namespace std::chrono_literals;

constexpr auto kSettle = 50ms; // while qvcd notices that a thousand connections are gone

Contender qvcd_contender(Kind kind, const Daemon &daemon)
{
    return {"qvcd", daemon.socket(), kind == Kind::visit ? "" : kHello,
            make_script(kind, kQvcdLanguage, daemon.model()), daemon.process()};
}

std::string with_size(const std::string &name, const Model &model)
{
    return name + ", " + std::to_string(model.apis.size());
}

Goal at_least(double bound)
{
    return bound > 0 ? Goal{Goal::ratio_at_least, bound} : Goal{};
}

struct RequestRow {
    const char *name;
    Kind kind;
    Drive drive;
    double echo; // ratio to reach; 0 for one that does not compete
    double redis;
};

void compare(const RequestRow &row, const Settings &settings, std::size_t apis, const Report &report)
{
    const Daemon daemon(settings, apis);
    const std::string &folder = daemon.root().path();
    const Model &model = daemon.model();
    std::vector<Contender> contenders = {qvcd_contender(row.kind, daemon)};
    std::vector<std::unique_ptr<Child>> servers;
    if (row.echo > 0) {
        servers.push_back(start_echo(settings, folder));
        contenders.push_back({"echo",
                              folder + "/echo.sock",
                              {},
                              echo_script(contenders.front().script),
                              servers.back()->id(),
                              false});
    }
    if (auto redis = start_redis(folder)) {
        load_redis(folder + "/redis.sock", model);
        contenders.push_back(
            {"redis", folder + "/redis.sock", {}, make_script(row.kind, kRedisLanguage, model), redis->id()});
        servers.push_back(std::move(redis));
    }
    if (row.kind == Kind::tree) { // compared once; Redis has an order of its own
        Connection(contenders.front()).ask(contenders.front().next());
        for (Contender &contender : contenders)
            contender.exact = false;
    }
    Comparison comparison(settings);
    for (Contender &contender : contenders)
        comparison.add([&] { return rate_of(row.drive, contender, settings.slice); });
    comparison.run();

    const auto values = static_cast<double>(values_of(row.kind, model));
    const std::string name = with_size(row.name, model);
    for (std::size_t i = 1; i < contenders.size(); ++i) {
        const std::string &other = contenders[i].name;
        report(comparison.line(name, i, other, at_least(other == "echo" ? row.echo : row.redis), values));
    }
    if (contenders.back().name != "redis")
        report(
            {name, comparison.value(0).wall * values, "/s", "no redis-server", {}, {}, at_least(row.redis)});
}

// Connections that have said who they are and then nothing.
class IdleConnections {
  public:
    IdleConnections(const Contender &server, std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            connections_.emplace_back(server);
    }
    void expect_open()
    {
        for (Connection &connection : connections_)
            connection.expect_silence();
    }

  private:
    std::vector<Connection> connections_;
};

} // namespace

void measure_get(const Settings &settings, const Report &report)
{
    compare({"single get", Kind::get, one_client, 0.90, 1.2}, settings, settings.apis[1], report);
}

void measure_clients(const Settings &settings, const Report &report)
{
    compare({"10 clients, get", Kind::get, ten_clients, 0.85, 1.2}, settings, settings.apis[1], report);
}

void measure_connection(const Settings &settings, const Report &report)
{
    compare({"connect, get, close", Kind::visit, connection_each, 1.0, 1.4}, settings, settings.apis[1],
            report);
}

void measure_pipelined(const Settings &settings, const Report &report)
{
    compare({"100 gets a write", Kind::pipelined, one_client, 0, 1.5}, settings, settings.apis[1], report);
    compare({"100 gets a write", Kind::pipelined, one_client, 0, 1.2}, settings, settings.apis[2], report);
}

void measure_tree(const Settings &settings, const Report &report)
{
    for (const std::size_t apis : {settings.apis[1], settings.apis[2]})
        compare({"whole tree, leaves", Kind::tree, one_client, 0, 1.5}, settings, apis, report);
}

void measure_set(const Settings &settings, const Report &report)
{
    compare({"validated set", Kind::set, one_client, 0.80, 1.1}, settings, settings.apis[1], report);
}

void measure_sizes(const Settings &settings, const Report &report)
{
    const Daemon small(settings, settings.apis[0]);
    const Daemon large(settings, settings.apis[2]);
    Contender few = qvcd_contender(Kind::get, small);
    Contender many = qvcd_contender(Kind::get, large);
    Comparison comparison(settings);
    comparison.add([&] { return rate_of(one_client, many, settings.slice); });
    comparison.add([&] { return rate_of(one_client, few, settings.slice); });
    comparison.run();
    report(comparison.line(with_size("single get", large.model()), 1, with_size("single get", small.model()),
                           at_least(0.9)));
}

// apply says nothing when it finds nothing; the get behind it tells that it is done.
void measure_apply(const Settings &settings, const Report &report)
{
    const Daemon daemon(settings, settings.apis[1]);
    Contender get = qvcd_contender(Kind::get, daemon);
    Contender apply = get;
    for (Exchange &exchange : get.script) {
        exchange.request += exchange.request;
        exchange.reply += exchange.reply;
    }
    for (Exchange &exchange : apply.script)
        exchange.request.insert(0, "apply\n");
    Comparison comparison(settings);
    comparison.add([&] { return rate_of(one_client, apply, settings.slice); });
    comparison.add([&] { return rate_of(one_client, get, settings.slice); });
    comparison.run();
    report(comparison.line(with_size("apply of nothing, get", daemon.model()), 1, "two gets", at_least(0.9)));
}

void measure_idle(const Settings &settings, const Report &report)
{
    constexpr RequestRow kIdleRows[] = {{"single get", Kind::get, one_client, 0, 0},
                                        {"10 clients, get", Kind::get, ten_clients, 0, 0},
                                        {"connect, get, close", Kind::visit, connection_each, 0, 0}};
    const Daemon daemon(settings, settings.apis[1]);
    const Contender silent{"qvcd", daemon.socket(), kHello, {}};
    for (const RequestRow &row : kIdleRows) {
        Contender qvcd = qvcd_contender(row.kind, daemon);
        Comparison comparison(settings);
        comparison.add([&] {
            IdleConnections idle(silent, settings.connections);
            const Sample rate = rate_of(row.drive, qvcd, settings.slice);
            idle.expect_open();
            return rate;
        });
        comparison.add([&] {
            std::this_thread::sleep_for(kSettle);
            return rate_of(row.drive, qvcd, settings.slice);
        });
        comparison.run();
        const std::string name = row.name + (", " + std::to_string(settings.connections)) + " idle";
        report(comparison.line(name, 1, "without them", at_least(0.95)));
    }
}

} // namespace qvcd::bench
