#include "web/files.h"

#include "platform/fd.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace qvcd::web {

namespace {

constexpr off_t kLargest = off_t{16} << 20;

struct TypeRow {
    std::string_view ending;
    const char *type;
};
constexpr TypeRow kTypes[] = {
    {".html", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".mjs", "text/javascript; charset=utf-8"},
    {".json", "application/json"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
    {".ico", "image/x-icon"},
    {".woff2", "font/woff2"},
    {".txt", "text/plain; charset=utf-8"},
    {".webmanifest", "application/manifest+json"},
};

// The frame probe.html knows nothing, and asks other addresses whether the appliance answers there now. What
// it asks for is the icon, which says nothing either.
struct OwnHeader {
    std::string_view path;
    const char *name;
    const char *value;
};
constexpr OwnHeader kOwnHeaders[] = {
    {"/probe.html", "Content-Security-Policy",
     "default-src 'self'; connect-src http: https:; base-uri 'none'; form-action 'none'; "
     "frame-ancestors 'self'; object-src 'none'"},
    {"/probe.html", "X-Frame-Options", "SAMEORIGIN"},
    {kPublicFile, "Cross-Origin-Resource-Policy", "cross-origin"},
};

const char *type_of(const std::string &path)
{
    const auto *row =
        std::ranges::find_if(kTypes, [&](const TypeRow &r) { return path.ends_with(r.ending); });
    return row == std::end(kTypes) ? nullptr : row->type;
}

// Plain parts, none of which begins with a dot: nothing above the folder, nothing hidden.
bool is_plain(const std::string &path)
{
    const auto is_good = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' ||
               c == '-' || c == '.' || c == '/';
    };
    return path.starts_with('/') && std::ranges::all_of(path, is_good) &&
           path.find("/.") == std::string::npos && path.find("//") == std::string::npos;
}

std::string read_all(int fd, off_t size)
{
    std::string text(static_cast<std::size_t>(size), '\0');
    std::size_t got = 0;
    while (got < text.size()) {
        const ssize_t n = ::read(fd, text.data() + got, text.size() - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        got += static_cast<std::size_t>(n);
    }
    text.resize(got);
    return text;
}

} // namespace

Answer Files::get(const Request &request) const
{
    const std::string path = request.path == "/" ? "/index.html" : request.path;
    const char *type = type_of(path);
    const Problem nothing{404, "there is no such page"};
    if (!type || !is_plain(path))
        throw nothing;
    const Fd file(::open((folder_ + path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat facts {};
    if (!file || ::fstat(file.get(), &facts) != 0 || !S_ISREG(facts.st_mode) || facts.st_size > kLargest)
        throw nothing;
    const std::string version = "\"" + std::to_string(facts.st_mtim.tv_sec) + "." +
                                std::to_string(facts.st_mtim.tv_nsec) + "." + std::to_string(facts.st_size) +
                                "\"";
    Answer answer{.type = type, .headers = {{"ETag", version}, {"Cache-Control", "no-cache"}}};
    for (const OwnHeader &own : kOwnHeaders) {
        if (own.path == path)
            answer.headers.emplace_back(own.name, own.value);
    }
    if (request.known_version == version)
        answer.status = 304;
    else
        answer.body = read_all(file.get(), facts.st_size);
    return answer;
}

} // namespace qvcd::web
