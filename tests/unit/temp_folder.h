#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>

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

    bool exists(const std::string &name) const { return std::filesystem::exists(path_ / name); }

    /// Its permission bits, of what a link leads to; 0 when there is nothing.
    unsigned mode_of(const std::string &name) const
    {
        struct stat st {};
        return stat(path(name).c_str(), &st) == 0 ? st.st_mode & 07777U : 0;
    }

  private:
    std::filesystem::path path_;
};

} // namespace qvcd
