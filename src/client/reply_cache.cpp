#include "client/reply_cache.h"

#include <unistd.h>

#include "client/private_file.h"

namespace qvcd::client {

namespace {

constexpr std::chrono::seconds kKept{5};

std::string cache_folder()
{
    const std::string folder = runtime_folder();
    return folder.empty() ? "/tmp/qvc-" + std::to_string(geteuid()) : folder;
}

// Keys hold blanks and slashes; the file repeats its key, so two keys of one name only miss.
std::string cache_file(const std::string &key)
{
    return cache_folder() + "/" + std::to_string(std::hash<std::string>{}(key));
}

} // namespace

std::optional<std::string> cached_text(const std::string &key)
{
    if (!make_private_folder(cache_folder()))
        return std::nullopt;
    const std::optional<std::string> text = read_private_file(cache_file(key), kKept);
    if (!text || !text->starts_with(key + "\n"))
        return std::nullopt;
    return text->substr(key.size() + 1);
}

void cache_text(const std::string &key, const std::string &text)
{
    if (make_private_folder(cache_folder()))
        replace_private_file(cache_file(key), key + "\n" + text);
}

} // namespace qvcd::client
