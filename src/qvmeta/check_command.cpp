#include "check/check.h"
#include "platform/sysroot.h"
#include "qvmeta/commands.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace qvcd {

namespace {

struct CheckWords {
    std::vector<std::string> files;
    CheckOptions options;
    bool json = false;
};

void print_lines(const std::vector<Finding> &findings)
{
    for (const Finding &one : findings)
        std::printf("%s\n", finding_line(one).c_str());
    const std::size_t errors = count_errors(findings);
    std::fflush(stdout); // the sum stands below what it counts
    if (!findings.empty())
        std::fprintf(stderr, "%zu error(s), %zu warning(s)\n", errors, findings.size() - errors);
}

void print_json(const std::vector<Finding> &findings)
{
    nlohmann::json list = nlohmann::json::array();
    for (const Finding &one : findings) {
        const KindRow &row = row_of(one.kind);
        list.push_back({{"severity", row.severity == Severity::error ? "error" : "warning"},
                        {"kind", row.word},
                        {"file", one.file},
                        {"line", one.line},
                        {"api", one.api},
                        {"what", one.what}});
    }
    const std::size_t errors = count_errors(findings);
    const nlohmann::json all = {
        {"errors", errors}, {"warnings", findings.size() - errors}, {"findings", std::move(list)}};
    std::printf("%s\n", all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

int print_kinds()
{
    for (const KindRow &row : finding_kinds())
        std::printf("%-23s %-8s %s\n", std::string(row.word).c_str(),
                    row.severity == Severity::error ? "error" : "warning", std::string(row.about).c_str());
    return 0;
}

bool is_folder(const char *path)
{
    struct stat status {};
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

// Why the words cannot be taken; empty: they were.
std::string take_words(Words words, CheckWords &taken)
{
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string_view word = words[i];
        if (word == "--json") {
            taken.json = true;
        } else if (word == "--root") {
            if (++i == words.size() || !is_folder(words[i]))
                return "--root wants the folder that is the appliance's /";
            taken.options.root = words[i];
        } else if (word.starts_with('-')) {
            return "check does not know " + std::string(word);
        } else {
            taken.files.emplace_back(word);
        }
    }
    return taken.files.empty() ? "check wants metadata files" : "";
}

} // namespace

int check_command(Words words)
{
    if (words.size() == 1 && std::string_view(words[0]) == "--kinds")
        return print_kinds();
    CheckWords taken;
    if (const std::string why = take_words(words, taken); !why.empty())
        return usage_error(why);
    Source source;
    for (const std::string &file : taken.files)
        source.load(file);
    const std::vector<Finding> findings = check_model(source, taken.options);
    taken.json ? print_json(findings) : print_lines(findings);
    return count_errors(findings) ? 1 : 0;
}

} // namespace qvcd
