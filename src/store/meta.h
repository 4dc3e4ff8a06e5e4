#pragma once

#include "base/text.h"
#include "store/hdfutils.h"
#include "store/tree.h"

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

// Attributes and flags of APIs, docs/model.md. "Inherited" means that the nearest ancestor that defines the
// attribute wins.

inline constexpr unsigned kReadBits = 0x4444;
inline constexpr unsigned kWriteBits = 0x2222;
inline constexpr unsigned kApplyBits = 0x1111;
inline constexpr unsigned kLevel0Bits = 0xf000; // private APIs, unlisted commands
inline constexpr unsigned kLevel1Bits = 0x0f00; // administration

/// Several lookups of one API's attributes for one search of its node. Views are good as for Node.
class MetaApi {
  public:
    explicit MetaApi(std::string_view api);
    MetaApi(Node metadata, std::string_view api); ///< of other metadata than the daemon's
    explicit operator bool() const { return depth_ != 0; }
    Node node() const { return depth_ != 0 ? chain_[depth_ - 1] : Node(); } ///< the API's own

    /// Inherited; an empty value gives none.
    std::optional<std::string_view> get(std::string_view attribute) const;

    /// The node that get() takes the value from, which may be empty; none where there is no such attribute.
    Node source(std::string_view attribute) const;

    /// How many levels above the own node that is.
    std::size_t level_of(std::string_view attribute) const;

    /// Own node only; an empty value is returned as such.
    std::optional<std::string_view> own(std::string_view attribute) const;

    /// Inherited from the grandparent or above, past the own node and the parent's: what listings of the
    /// metadata show as if it stood on the own node.
    std::optional<std::string_view> adopted(std::string_view attribute) const;

    unsigned perm() const;
    bool is_true(std::string_view attribute) const { return get(attribute) == "true"; }
    /// The inherited "type", or that of an API to which "link" leads, over others too, speaks of a password:
    /// no reply shows it.
    bool is_password() const;

    /// A password, or what a reader built from one and marked with the API's own "secret": not for logs and
    /// open files, and in replies for those who may read it.
    bool is_secret() const { return is_password() || own("secret") == "true"; }

    bool readable_by(unsigned mask) const { return (mask & perm() & kReadBits) != 0; }

    /// Readable, and not private for a caller without a level-0 bit: what listings show.
    bool visible_to(unsigned mask) const;

  private:
    std::optional<std::string_view> find(std::string_view attribute, std::size_t &levels) const;

    std::array<Node, kMaxTreeDepth> chain_; // from the first component's node to the API's own
    std::size_t depth_ = 0;
};

/// What outlives the command lock and changes of the tree.
inline std::optional<std::string> own_copy(std::optional<std::string_view> view)
{
    return view ? std::optional<std::string>(*view) : std::nullopt;
}

std::optional<std::string> meta_get(std::string_view api, std::string_view attribute);
std::optional<std::string> meta_get_this_level(std::string_view api, std::string_view attribute);

/// Sets an attribute or a flag; 1 when the API has no node in the metadata, or the name is that of an
/// attribute.
int meta_set(std::string_view api, std::string_view attribute, std::string_view value);

/// The inherited "perm", hexadecimal; 0 when absent.
unsigned meta_get_perm(std::string_view api);

/// The inherited attribute is exactly "true".
bool meta_is_true(std::string_view api, std::string_view attribute);

/// Calls `visit(attribute, value)` for what the API adopted, of the attributes that the system itself asks
/// for.
void meta_visit_adopted(std::string_view api,
                        const std::function<void(std::string_view, std::string_view)> &visit);

/// A.B.C gives A.B; none for a name without a dot.
std::optional<std::string> meta_get_parent(std::string_view name);

/// The value is not for logs, events and open files: MetaApi::is_secret().
bool meta_is_password(std::string_view api);

/// What is shown of a value that may be a secret: seven asterisks in place of one of two bytes or more.
inline std::string_view hide(std::string_view value, bool secret)
{
    return secret && value.size() > 1 ? kHiddenPassword : value;
}

/// What others than its owner see of a value: seven asterisks for a password, but a password of one byte,
/// which clients have always seen, and an empty one.
std::string shown_value(std::string_view api, std::string_view value);

/// What a log line shows of a value that somebody gave for `api`: seven asterisks, unless the name is that of
/// an API that holds no secret. A misspelt name may be meant for one that does.
std::string value_for_log(std::string_view api, std::string_view value);

/// What a log line shows of a name that somebody gave: seven asterisks, unless there is such an API or group.
/// Who forgets a "=" gives the value as the name.
std::string name_for_log(std::string_view name);

/// The API is private and the mask has no level-0 bit.
bool meta_is_hidden(unsigned mask, std::string_view api);

// Classifiers of flags; what they take is the flag's node, whose parent is the API.
Walk flag_apply_pending(Node node);         ///< "noapp" is not 0
Walk flag_modified(Node node);              ///< "mod" is not 0
Walk flag_modified_or_unapplied(Node node); ///< either
Walk meta_has_default(Node node);           ///< the attribute "default"

} // namespace qvcd
