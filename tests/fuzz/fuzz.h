// What the fuzz targets share.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>

/// A property of the code that an input broke: the fuzzer shows the input.
inline void require(bool good)
{
    if (!good)
        std::abort();
}

inline std::string_view view_of(const std::uint8_t *data, std::size_t size)
{
    return {reinterpret_cast<const char *>(data), size};
}

/// Cuts the text up to the next newline off.
inline std::string_view take_line(std::string_view &text)
{
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    return line;
}

/// An appliance's "/" below the folder for temporary files, which the runner removes. Make it before anything
/// asks for the sysroot.
class FuzzRoot {
  public:
    FuzzRoot()
    {
        std::string path = std::filesystem::temp_directory_path() / "qvfuzz.XXXXXX";
        require(mkdtemp(path.data()) != nullptr && setenv("QV_SYSROOT", path.c_str(), 1) == 0);
        path_ = path;
    }
    ~FuzzRoot()
    {
        std::error_code error; // somebody tidied up before
        std::filesystem::remove_all(path_, error);
    }
    FuzzRoot(const FuzzRoot &) = delete;
    FuzzRoot &operator=(const FuzzRoot &) = delete;

    void write(std::string_view name, std::string_view text) const
    {
        const std::filesystem::path path = path_.string() + std::string(name);
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << text;
    }

    /// Removes all files of the appliance.
    void clear() const
    {
        for (const auto &entry : std::filesystem::directory_iterator(path_))
            std::filesystem::remove_all(entry.path());
    }

  private:
    std::filesystem::path path_;
};
