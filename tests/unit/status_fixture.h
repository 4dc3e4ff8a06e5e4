#pragma once

#include "base/request.h"
#include "trees_fixture.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qvcd {

using StatusTest = TreesTest;

using Values = std::vector<std::pair<std::string, std::string>>;

inline void set_values(const Values &settings)
{
    for (const auto &[name, value] : settings)
        ASSERT_TRUE(hdfDB.set(name, value)) << name;
}

/// The settings tree holds these and nothing else.
inline void only_values(const Values &settings)
{
    hdfdb_destroy();
    hdfdb_init();
    set_values(settings);
}

inline constexpr char kNothing[] = "(none)";

using Reader = std::optional<std::string> (*)(Request &request, const char *file, const char *attr);

/// What a read function gives a request; kNothing when it gives none.
inline std::string read_for(Request &request, Reader reader, const char *attr, const char *file = nullptr)
{
    return reader(request, file, attr).value_or(kNothing);
}

/// What it gives a request of its own.
inline std::string read_with(Reader reader, const char *file, const char *attr)
{
    Request request(0xffff);
    return read_for(request, reader, attr, file);
}

inline std::string or_null(const char *text)
{
    return text ? text : "null";
}

struct Reading {
    const char *attr;
    const char *text;
    const char *file = nullptr;
};

/// Each gives a request of its own this text.
inline void expect_reads(Reader reader, const std::vector<Reading> &readings, const std::string &what = {})
{
    for (const auto &[attr, text, file] : readings)
        EXPECT_EQ(read_with(reader, file, attr), text)
            << what << " " << or_null(attr) << " " << or_null(file);
}

} // namespace qvcd
