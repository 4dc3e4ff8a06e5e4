#include "funcs/check_functions.h"

#include <functional>
#include <map>
#include <mutex>
#include <regex.h>

namespace qvcd {

namespace {

class Regexp {
  public:
    explicit Regexp(const std::string &pattern)
        : compiled_(regcomp(&regex_, pattern.c_str(), REG_EXTENDED | REG_NOSUB) == 0)
    {
    }
    ~Regexp()
    {
        if (compiled_)
            regfree(&regex_);
    }
    Regexp(const Regexp &) = delete;
    Regexp &operator=(const Regexp &) = delete;

    bool matches(const std::string &value) const
    {
        return compiled_ && regexec(&regex_, value.c_str(), 0, nullptr, 0) == 0;
    }

  private:
    regex_t regex_{};
    bool compiled_;
};

using RegexpCache = std::map<std::string, Regexp, std::less<>>;

const Regexp &compiled(RegexpCache &cache, std::string_view pattern)
{
    if (const auto known = cache.find(pattern); known != cache.end())
        return known->second;
    const std::string text(pattern);
    return cache.try_emplace(text, text).first->second;
}

} // namespace

int check_regexp(std::string_view value, std::string_view pattern)
{
    static std::mutex lock;
    static RegexpCache cache;
    // The match is made under the lock too: the library works in the compiled expression while it matches.
    const std::lock_guard guard(lock);
    return compiled(cache, pattern).matches(std::string(value)) ? 0 : 1;
}

} // namespace qvcd
