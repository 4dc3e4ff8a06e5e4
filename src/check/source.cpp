#include "check/source.h"

#include "store/hdf_file.h"
#include "store/meta.h"

namespace qvcd {

void Source::begin(const std::string &name)
{
    files_.push_back(name);
    given_.clear();
}

void Source::add(Kind kind, std::size_t line, std::string api, std::string what)
{
    findings_.push_back({kind, files_.back(), line, std::move(api), std::move(what)});
}

void Source::load(const std::string &path, const std::string &name)
{
    begin(name);
    const std::size_t before = findings_.size();
    const HdfRead read = hdf_read_own_file(path, tree_, this);
    name_repeated();
    if (read.result == HdfResult::ok || findings_.size() != before)
        return;
    add(Kind::unreadable, 0, "", "cannot be read: " + read.detail);
    is_whole_ = false;
}

void Source::load_text(const std::string &name, std::string_view text)
{
    begin(name);
    hdf_parse(text, tree_.root(), this);
    name_repeated();
}

void Source::opened(Node group, std::size_t line)
{
    places_.try_emplace(
        group.id(), Place{static_cast<std::uint32_t>(files_.size() - 1), static_cast<std::uint32_t>(line)});
}

void Source::given(Node node, std::size_t line)
{
    const auto number = static_cast<std::uint32_t>(line);
    const auto [first, is_new] = given_.emplace(node.id(), number);
    if (!is_new) {
        repeated_.emplace(node.id(), findings_.size());
        add(Kind::given_twice, line, "",
            "\"" + std::string(node.name()) + "\" stands in line " + std::to_string(first->second) +
                " already; the later one counts");
    }
    places_[node.id()] = {static_cast<std::uint32_t>(files_.size() - 1), number};
}

bool Source::mistaken(const HdfMistake &mistake)
{
    add(mistake.is_brace ? Kind::missing_brace : Kind::syntax, mistake.line, mistake.group, mistake.what);
    is_whole_ &= !mistake.is_brace && mistake.what.find("brace too many") == std::string::npos;
    return true;
}

const Source::Place *Source::place_of(Node node) const
{
    if (const auto found = places_.find(node.id()); found != places_.end())
        return &found->second;
    for (const Node child : node) {
        if (const Place *place = place_of(child))
            return place;
    }
    return nullptr;
}

Finding Source::at(Kind kind, Node node, std::string api) const
{
    const Place *place = place_of(node);
    return {kind,
            place            ? files_[place->file]
            : files_.empty() ? ""
                             : files_.back(),
            place ? place->line : 0, std::move(api), ""};
}

namespace {

void visit_level(Node below, std::string &path, const std::function<void(Node, const std::string &)> &visit)
{
    for (const Node child : below) {
        const std::size_t size = path.size();
        path.append(size ? "." : "").append(child.name());
        visit(child, path);
        visit_level(child, path, visit);
        path.resize(size);
    }
}

} // namespace

// Nodes do not know their parents: who is named is looked for only now.
void Source::name_repeated()
{
    if (repeated_.empty())
        return;
    visit_nodes(root(), "", [&](Node node, const std::string &name) {
        for (auto [at, end] = repeated_.equal_range(node.id()); at != end; ++at)
            findings_[at->second].api = meta_get_parent(name).value_or("");
    });
    repeated_.clear();
}

void visit_nodes(Node below, const std::string &name,
                 const std::function<void(Node, const std::string &)> &visit)
{
    std::string path = name;
    visit_level(below, path, visit);
}

} // namespace qvcd
