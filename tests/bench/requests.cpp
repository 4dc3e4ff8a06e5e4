#include "requests.h"

#include <algorithm>
#include <initializer_list>
#include <numeric>
#include <random>
#include <string_view>

namespace qvcd::bench {

namespace {

constexpr std::size_t kMostAsked = 10000;
constexpr std::size_t kBatch = 100;

std::string line_of(const Api &api, const std::string &value)
{
    return api.name + "=" + value + "\n";
}

Exchange qvcd_get(const Api &api)
{
    return {"get " + api.name + "\n", line_of(api, api.value)};
}

Exchange qvcd_visit(const Api &api)
{
    return {kHello + ("get " + api.name) + "\n\n", line_of(api, api.value) + "@\n0\n"};
}

Exchange qvcd_set(const Api &api, const std::string &value)
{
    return {"set " + line_of(api, value), line_of(api, value)};
}

Exchange qvcd_tree(const Model &model)
{
    Exchange exchange{"get\n", {}};
    for (const Api &api : model.apis)
        exchange.reply += line_of(api, api.value);
    return exchange;
}

std::string bulk(std::string_view text)
{
    return "$" + std::to_string(text.size()) + "\r\n" + std::string(text) + "\r\n";
}

std::string redis_command(std::initializer_list<std::string_view> words)
{
    std::string text = "*" + std::to_string(words.size()) + "\r\n";
    for (const std::string_view word : words)
        text += bulk(word);
    return text;
}

Exchange redis_get(const Api &api)
{
    return {redis_command({"GET", api.name}), bulk(api.value)};
}

Exchange redis_set(const Api &api, const std::string &value)
{
    return {redis_command({"SET", api.name, value}), "+OK\r\n"};
}

Exchange redis_tree(const Model &model)
{
    Exchange exchange{redis_command({"HGETALL", "tree"}),
                      "*" + std::to_string(2 * model.apis.size()) + "\r\n"};
    for (const Api &api : model.apis)
        exchange.reply += bulk(api.name) + bulk(api.value);
    return exchange;
}

std::vector<const Api *> sample(const Model &model)
{
    std::vector<std::size_t> order(model.apis.size());
    std::iota(order.begin(), order.end(), 0);
    std::shuffle(order.begin(), order.end(), std::mt19937(1));
    std::vector<const Api *> apis;
    for (std::size_t i = 0; i < std::min(order.size(), kMostAsked); ++i)
        apis.push_back(&model.apis[order[i]]);
    return apis;
}

std::vector<Exchange> in_batches(const std::vector<Exchange> &exchanges)
{
    std::vector<Exchange> batches;
    for (std::size_t i = 0; i + kBatch <= exchanges.size(); ++i) {
        if (i % kBatch == 0)
            batches.emplace_back();
        batches.back().request += exchanges[i].request;
        batches.back().reply += exchanges[i].reply;
    }
    return batches;
}

} // namespace

const Language kQvcdLanguage = {qvcd_get, qvcd_visit, qvcd_set, qvcd_tree};
const Language kRedisLanguage = {redis_get, redis_get, redis_set, redis_tree};

std::vector<Exchange> make_script(Kind kind, const Language &language, const Model &model)
{
    if (kind == Kind::tree)
        return {language.tree(model)};
    std::vector<Exchange> script;
    const std::vector<const Api *> apis = sample(model);
    for (const Api *api : apis)
        script.push_back(kind == Kind::set     ? language.set(*api, api->other)
                         : kind == Kind::visit ? language.visit(*api)
                                               : language.get(*api));
    if (kind == Kind::set) {
        for (const Api *api : apis)
            script.push_back(language.set(*api, api->value));
    }
    return kind == Kind::pipelined ? in_batches(script) : script;
}

std::vector<Exchange> echo_script(std::vector<Exchange> script)
{
    for (Exchange &exchange : script)
        exchange.request.front() = static_cast<char>('@' + static_cast<int>(exchange.reply.size()) -
                                                     static_cast<int>(exchange.request.size()));
    return script;
}

std::size_t values_of(Kind kind, const Model &model)
{
    return kind == Kind::tree ? model.apis.size() : kind == Kind::pipelined ? kBatch : 1;
}

void load_redis(const std::string &socket, const Model &model)
{
    Connection connection({"redis", socket, {}, {}});
    for (const Api &api : model.apis) {
        connection.ask(redis_set(api, api.value));
        connection.ask({redis_command({"HSET", "tree", api.name, api.value}), ":1\r\n"});
    }
}

} // namespace qvcd::bench
