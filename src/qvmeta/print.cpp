#include "qvmeta/print.h"

#include "base/text.h"

#include <algorithm>

namespace qvcd {

void print_line(std::FILE *out, const std::string &text)
{
    std::fprintf(out, "%s\n", one_line(text).c_str());
}

bool load_whole(Source &source, const std::string &path)
{
    source.load(path);
    bool is_good = true;
    for (const Finding &one : source.findings()) {
        if (one.kind == Kind::given_twice)
            continue;
        is_good = false;
        print_line(stderr, finding_line(one));
    }
    return is_good;
}

} // namespace qvcd
