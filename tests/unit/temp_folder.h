#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace qvcd {

/// A folder of the test's own, removed with everything in it.
class TempFolder {
  public:
    TempFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "qvcd-test-XXXXXX").string();
        if (!mkdtemp(name.data()))
            throw std::runtime_error("mkdtemp: " + name);
        path_ = name;
    }
    ~TempFolder() { std::filesystem::remove_all(path_); }
    TempFolder(const TempFolder &) = delete;
    TempFolder &operator=(const TempFolder &) = delete;

    std::string path(const std::string &name = {}) const
    {
        return name.empty() ? path_.string() : (path_ / name).string();
    }

    /// Writes a file, with the folders it needs, and returns its path.
    std::string write(const std::string &name, const std::string &text) const
    {
        const std::filesystem::path file = path_ / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
        return file.string();
    }

    std::string read(const std::string &name) const
    {
        std::ifstream file(path_ / name, std::ios::binary);
        std::stringstream text;
        text << file.rdbuf();
        return text.str();
    }

  private:
    std::filesystem::path path_;
};

} // namespace qvcd
