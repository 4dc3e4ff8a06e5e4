#pragma once

#include "base/text.h"
#include "store/meta.h"
#include "store/tree.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

/// What an API's metadata says, compiled at its first use, and the way to its value. Whoever changes
/// metadata, or removes settings, need not care: records are made anew after it. Used under the command lock;
/// a record is good until the trees change in that way, and at the latest until the lock is let go. The way
/// to look at attributes that commands seldom ask for: MetaApi.
class alignas(64) Api {
  public:
    Api(std::string_view name, Node setting); ///< for find_api()

    const std::string &name() const { return name_; }
    std::string_view value() const { return setting_.text(); } ///< as it stands in the settings

    unsigned perm() const { return perm_; }

    /// Whether a caller's permission word and "perm" share a bit for this.
    bool readable_by(unsigned mask) const { return (mask & perm_ & kReadBits) != 0; }
    bool writable_by(unsigned mask) const { return (mask & perm_ & kWriteBits) != 0; }
    bool applicable_by(unsigned mask) const { return (mask & perm_ & kApplyBits) != 0; }

    /// Private, for a caller without a level-0 bit.
    bool is_hidden_from(unsigned mask) const { return is_private_ && (mask & kLevel0Bits) == 0; }

    /// What listings show.
    bool visible_to(unsigned mask) const { return readable_by(mask) && !is_hidden_from(mask); }

    bool is_dynamic() const { return is_dynamic_; }
    bool is_password() const { return is_password_; } ///< MetaApi::is_password()
    bool is_secret() const { return is_secret_; }     ///< MetaApi::is_secret()

    /// Stores a value in the settings, and in nothing else.
    void store(std::string_view value) { setting_.set("", value); }

    /// The own flag, "mod" or "noapp", is "1".
    enum class Flag : std::uint8_t { mod, noapp };
    bool is_raised(Flag flag);

    /// The own "default".
    std::optional<std::string_view> fallback() const { return meta_.get("default"); }

    /// The API whose value this one shows and sets, named by its own "link"; null when there is none.
    Api *linked() const;

    /// The inherited "type"; empty when there is none.
    std::string_view type();

    /// The inherited "apply" names an action.
    bool has_action();

    /// What others than its owner see of a value of this API: shown_value().
    std::string_view shown(std::string_view value) const { return hide(value, is_secret_); }

    /// What a log line shows of it.
    std::string for_log(std::string_view value) const
    {
        return std::string(is_secret_ ? kHiddenPassword : value);
    }

  private:
    friend class ApiIndex;
    enum class Asked : std::uint8_t { not_yet, no, yes };

    // What every get asks for comes first, in one line of the cache.
    std::string name_;
    Node setting_;
    std::uint16_t perm_ = 0;
    bool is_private_ = false;
    bool is_dynamic_ = false;
    bool is_password_ = false;
    bool is_secret_ = false;
    bool has_link_ = false;
    Asked has_action_ = Asked::not_yet;
    Node meta_;
    Node flags_[2];              // those that were there when they were asked for
    std::string_view type_;      // without data() until it is asked for
    std::uint32_t position_ = 0; // among all APIs in tree order
};
static_assert(sizeof(Api) <= 128, "100,000 of them are in memory");

/// The API of this name: a leaf with a value in the settings. Null when there is none.
Api *find_api(std::string_view name);

using ApiVisitor = std::function<void(Api &)>;

/// Visits the APIs below a group, or all of them below "", in tree order. A visit may change the trees or let
/// go of the command lock: APIs that are gone when their turn comes are passed over, those that came are
/// visited too.
void visit_apis(std::string_view group, const ApiVisitor &visit);

} // namespace qvcd
