#pragma once

#include "web/message.h"

#include <string>

namespace qvcd::web {

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
