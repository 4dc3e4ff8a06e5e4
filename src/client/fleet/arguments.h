#pragma once

#include <optional>
#include <string>
#include <vector>

namespace qvcd::client::fleet {

/// The words behind a sub-command: options stand anywhere, up to "--". All throw UsageError.
class Arguments {
  public:
    explicit Arguments(std::vector<std::string> words);

    bool flag(const std::string &name);
    std::optional<std::string> value(const std::string &name);
    std::optional<int> number(const std::string &name, int least, int most);

    /// What is left, when all options are taken: at least `least` words, at most `most`.
    std::vector<std::string> rest(const std::string &what, std::size_t least,
                                  std::size_t most = ~std::size_t{0});

  private:
    std::vector<std::string> words_;  // options
    std::vector<std::string> behind_; // "--"
};

} // namespace qvcd::client::fleet
