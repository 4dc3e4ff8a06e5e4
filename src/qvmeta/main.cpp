#include "base/lookup.h"
#include "qvmeta/commands.h"

#include <cstdio>
#include <exception>
#include <string_view>

namespace qvcd {

namespace {

struct CommandRow {
    std::string_view name;
    int (*run)(Words words);
    const char *usage;
    const char *about;
};

constexpr CommandRow kCommands[] = {
    {"check", check_command, "check FILE... [--root DIR] [--json] | --kinds",
     "tells what is wrong with metadata, or all that it looks for"},
    {"doc", doc_command, "doc FILE... [--html]",
     "writes a reference of all APIs, in Markdown or as one page of HTML"},
    {"diff", diff_command, "diff OLD NEW", "tells what an upgrade changes for what users have saved"},
    {"new", new_command, "new NAME", "asks for what an API is, and writes its metadata"},
};

int help(std::FILE *out, int status)
{
    std::fputs("Usage: qvmeta COMMAND ...\n\n", out);
    for (const CommandRow &row : kCommands)
        std::fprintf(out, "  qvmeta %s\n      %s\n", row.usage, row.about);
    return status;
}

int run(Words words)
{
    const std::string_view name = words.empty() ? "" : words.front();
    if (name == "help" || name == "--help" || name == "-h")
        return help(stdout, 0);
    const CommandRow *row = find_row(kCommands, name);
    return row ? row->run(words.subspan(1)) : help(stderr, kUsageStatus);
}

} // namespace

int usage_error(const std::string &what)
{
    std::fprintf(stderr, "qvmeta: %s\n", what.c_str());
    return kUsageStatus;
}

} // namespace qvcd

int main(int argc, char **argv)
{
    try {
        const int status = qvcd::run(qvcd::Words(argv, static_cast<std::size_t>(argc)).subspan(argc ? 1 : 0));
        if (std::fflush(stdout) == 0 && !std::ferror(stdout))
            return status;
        std::fprintf(stderr, "qvmeta: cannot write all of it\n");
        return 1;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "qvmeta: %s\n", error.what());
        return 1;
    }
}
