#include "store/hdf_file.h"

#include "base/file_text.h"
#include "platform/log.h"
#include "platform/sysroot.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace qvcd {

namespace {

constexpr std::size_t kMaxForeignBytes = std::size_t{4} << 20;
constexpr std::size_t kMaxOwnBytes = std::size_t{1} << 30;

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
    return {};
}

HdfRead result_of(std::string error)
{
    return {error.empty() ? HdfResult::ok : HdfResult::error, std::move(error)};
}

bool has_content(Node node)
{
    if (node.value())
        return true;
    for (const Node child : node) {
        if (has_content(child))
            return true;
    }
    return false;
}

// Equal in everything that a text can carry: what holds no value leaves no trace in it.
bool same_content(Node a, Node b)
{
    if (a.value() != b.value())
        return false;
    const auto next_with_content = [](Node n) {
        while (n && !has_content(n))
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
    Tree copy = Tree::make();
    if (!hdf_parse(text, copy.root()).empty())
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

HdfRead hdf_read_own_file(const std::string &path, Tree &into, HdfListener *listener)
{
    std::string text;
    const HdfRead read = load(path, kMaxOwnBytes, text);
    return read.result == HdfResult::ok ? result_of(hdf_parse(text, into.root(), listener)) : read;
}

HdfRead hdf_read_own_file_whole(const std::string &path, Tree &into)
{
    std::string text;
    HdfRead read = load(path, kMaxOwnBytes, text);
    if (read.result == HdfResult::ok)
        read = result_of(hdf_parse(text, Node()));
    return read.result == HdfResult::ok ? result_of(hdf_parse(text, into.root())) : read;
}

HdfRead hdf_read_foreign_file(const std::string &path, Tree &fresh)
{
    std::string text;
    const HdfRead read = load(path, kMaxForeignBytes, text);
    return read.result == HdfResult::ok ? hdf_read_foreign_text(text, fresh) : read;
}

HdfRead hdf_read_foreign_text(const std::string &text, Tree &fresh)
{
    if (text.size() > kMaxForeignBytes)
        return {HdfResult::error, std::strerror(EFBIG)};
    Tree tree = Tree::make();
    HdfRead read = result_of(hdf_parse(text, tree.root()));
    if (read.result == HdfResult::ok)
        fresh = std::move(tree);
    return read;
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
