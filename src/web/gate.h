#pragma once

#include <set>
#include <string>
#include <string_view>

namespace qvcd::web {

/// What a request's header says of where it comes from.
struct Origin {
    std::string_view host;       ///< Host
    std::string_view origin;     ///< Origin
    std::string_view fetch_site; ///< Sec-Fetch-Site
    std::string_view fetch_mode; ///< Sec-Fetch-Mode
    bool changes = false;        ///< its method is neither GET nor HEAD
    bool is_page = false;        ///< it asks for a file, and not for the API
    bool is_public = false;      ///< other sites may ask for it
    bool has_cookie = false;     ///< its session is from a cookie, which browsers send unasked
};

/// Keeps out what other sites make a browser ask, also by giving their name our address.
class Gate {
  public:
    /// By these names, beside its addresses and its host name, this machine is known; "any": by all.
    Gate(std::set<std::string> names, bool is_encrypted);

    /// Throws Problem: 421 for a name that is not ours, 403 for what another site asks.
    void check(const Origin &origin) const;

  private:
    bool is_our_name(std::string_view host) const;

    std::set<std::string> names_; // lower-case
    bool any_;
    std::string scheme_;
};

} // namespace qvcd::web
