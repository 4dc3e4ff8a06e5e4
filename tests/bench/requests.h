#pragma once

#include "client.h"
#include "generated_model.h"

#include <vector>

namespace qvcd::bench {

/// The same question in the words of one server.
struct Language {
    Exchange (*get)(const Api &api);
    Exchange (*visit)(const Api &api); ///< get as the only request of a connection
    Exchange (*set)(const Api &api, const std::string &value);
    Exchange (*tree)(const Model &model);
};
extern const Language kQvcdLanguage;
extern const Language kRedisLanguage;

enum class Kind { get, visit, pipelined, tree, set };

/// Exchanges about up to 10,000 APIs in random order, the same in every run. `set` changes the value each
/// time while the script is gone through again and again.
std::vector<Exchange> make_script(Kind kind, const Language &language, const Model &model);

/// What the echo server must be sent so that requests and replies are as long.
std::vector<Exchange> echo_script(std::vector<Exchange> script);

/// How many values one exchange brings.
std::size_t values_of(Kind kind, const Model &model);

/// Fills the server: a key for each API, and a hash "tree" of all.
void load_redis(const std::string &socket, const Model &model);

} // namespace qvcd::bench
