#include "store/hdf_file.h"

#include "base/file_text.h"
#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/hdf_scan.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

#include <util/neo_hdf.h>
#include <util/neo_str.h>

namespace qvcd {

namespace {

constexpr std::size_t kMaxForeignBytes = std::size_t{4} << 20;
constexpr std::size_t kMaxOwnBytes = std::size_t{1} << 30;

std::string take_error(NEOERR *error)
{
    STRING text;
    string_init(&text);
    nerr_error_string(error, &text);
    std::string result = text.buf ? text.buf : "unknown error";
    string_clear(&text);
    nerr_ignore(&error);
    return result;
}

HdfRead parse_into(const std::string &text, Tree &into)
{
    into.root().note_changes();
    if (NEOERR *error = hdf_read_string(into.root().raw(), text.c_str()))
        return {HdfResult::error, take_error(error)};
    return {};
}

// A regular file's text; FIFOs, folders and devices are no files of ours.
HdfRead load(const std::string &path, std::size_t limit, std::string &text)
{
    struct stat st {};
    if (stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode))
        return {HdfResult::error, "not a regular file"};
    FileText content = read_whole_file(path, limit);
    if (content.error)
        return {content.missing() ? HdfResult::missing : HdfResult::error, std::strerror(content.error)};
    text = std::move(content.text);
    if (!text.empty() && text.back() != '\n')
        text += '\n'; // the library does not see a block's end on an unfinished last line
    return {};
}

HdfRead load_whole(const std::string &path, std::size_t limit, std::string &text)
{
    HdfRead read = load(path, limit, text);
    if (read.result != HdfResult::ok)
        return read;
    const HdfScan scan = hdf_scan(text);
    return scan.error.empty() ? read : HdfRead{HdfResult::error, scan.error};
}

// Equal in everything that a text can carry: a leaf without a value leaves no trace in it.
bool same_content(Node a, Node b)
{
    if (a.value() != b.value())
        return false;
    const auto next_with_content = [](Node n) {
        while (n && !n.value() && !n.first_child())
            n = n.next();
        return n;
    };
    Node x = next_with_content(a.first_child());
    Node y = next_with_content(b.first_child());
    while (x && y) {
        if (x.name() != y.name() || !same_content(x, y))
            return false;
        x = next_with_content(x.next());
        y = next_with_content(y.next());
    }
    return !x && !y;
}

bool reads_back(const std::string &text, Node node)
{
    if (!hdf_scan(text).error.empty())
        return false;
    Tree copy = Tree::make();
    if (parse_into(text, copy).result != HdfResult::ok)
        return false;
    if (const auto value = node.value()) // the node's own value is not part of its text
        copy.set("", *value);
    return same_content(node, copy.root());
}

FileResult replace_named(const std::string &path, const std::string &text, unsigned mode)
{
    const int error = replace_named_file(path, text, mode);
    return {error, error == 0};
}

FileResult replace(const std::string &path, const std::string &text, FileKind kind)
{
    switch (kind) {
    case FileKind::open:
        return replace_file(path, text);
    case FileKind::secret:
        return replace_secret_file(path, text);
    case FileKind::named:
        return replace_named(path, text, 0666);
    case FileKind::named_secret:
        return replace_named(path, text, 0600);
    }
    return {EINVAL, false};
}

} // namespace

HdfRead hdf_read_own_file(const std::string &path, Tree &into)
{
    std::string text;
    HdfRead read = load(path, kMaxOwnBytes, text);
    if (read.result != HdfResult::ok)
        return read;
    const HdfScan scan = hdf_scan(text);
    text.resize(scan.good_bytes);
    read = parse_into(text, into);
    if (read.result == HdfResult::ok && !scan.error.empty())
        return {HdfResult::error, scan.error};
    return read;
}

HdfRead hdf_read_own_file_whole(const std::string &path, Tree &into)
{
    std::string text;
    const HdfRead read = load_whole(path, kMaxOwnBytes, text);
    return read.result == HdfResult::ok ? parse_into(text, into) : read;
}

HdfRead hdf_read_foreign_file(const std::string &path, Tree &fresh)
{
    std::string text;
    HdfRead read = load_whole(path, kMaxForeignBytes, text);
    if (read.result != HdfResult::ok)
        return read;
    Tree tree = Tree::make();
    read = parse_into(text, tree);
    if (read.result == HdfResult::ok)
        fresh = std::move(tree);
    return read;
}

std::string hdf_text(Node node)
{
    if (!node)
        return {};
    STRING text;
    string_init(&text);
    std::string result;
    if (NEOERR *error = hdf_dump_str(node.raw(), nullptr, 2, &text))
        qv_log_print(kLogError, "Can not turn a tree into text: %s\n", take_error(error).c_str());
    else if (text.buf)
        result.assign(text.buf, static_cast<std::size_t>(text.len));
    string_clear(&text);
    return result;
}

FileResult hdf_write_file(const std::string &path, Node node, FileKind kind)
{
    const std::string text = hdf_text(node);
    if (!reads_back(text, node)) {
        qv_log_print(kLogError, "Can not write %s: a value does not fit into the file's syntax\n",
                     qv_device_path(path).c_str());
        return {EINVAL, false};
    }
    const FileResult result = replace(path, text, kind);
    if (result.error)
        qv_log_print(kLogError, "Can not write %s: %s\n", qv_device_path(path).c_str(),
                     std::strerror(result.error));
    return result;
}

} // namespace qvcd
