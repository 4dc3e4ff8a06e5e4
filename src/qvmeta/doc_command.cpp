#include "qvmeta/commands.h"
#include "qvmeta/pages.h"
#include "qvmeta/print.h"

#include <cstdio>
#include <string_view>

namespace qvcd {

int doc_command(Words words)
{
    bool as_html = false;
    std::vector<const char *> files;
    for (const char *word : words) {
        if (std::string_view(word) == "--html")
            as_html = true;
        else if (*word == '-')
            return usage_error("doc does not know " + std::string(word));
        else
            files.push_back(word);
    }
    if (files.empty())
        return usage_error("doc wants metadata files");
    Source source;
    for (const char *file : files) {
        if (!load_whole(source, file))
            return 1;
    }
    const std::vector<Chapter> chapters = describe_model(source.root());
    std::fputs((as_html ? html(chapters) : markdown(chapters)).c_str(), stdout);
    return 0;
}

} // namespace qvcd
