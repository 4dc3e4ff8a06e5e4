#pragma once

#include <map>
#include <string>

namespace qvcd {

/// Publishes what a command changed of users and groups: event "user", "User.<name>.<field>=<value>", an
/// empty value for what is gone. Passwords are hidden. What was before is kept only while somebody listens.
class UserEvents {
  public:
    UserEvents();
    void publish() const;

  private:
    std::map<std::string, std::string> before_;
};

} // namespace qvcd
