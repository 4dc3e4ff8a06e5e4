#pragma once

#include "web/message.h"

#include <string>
#include <string_view>

namespace qvcd::web {

/// What pages of other sites may ask for, too.
constexpr std::string_view kPublicFile = "/icon.svg";

/// The pages: files below a folder.
class Files {
  public:
    explicit Files(std::string folder) : folder_(std::move(folder)) {}

    /// The file of the path ("/" is index.html). Never throws anything but Problem: 404.
    Answer get(const Request &request) const;

  private:
    std::string folder_;
};

} // namespace qvcd::web
