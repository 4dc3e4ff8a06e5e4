#pragma once

#include "base/text.h"

#include <string>
#include <string_view>

namespace qvcd {

/// A metadata file from lines "API: attribute = value; attribute = value".
inline std::string model_text(std::string_view lines)
{
    std::string text;
    for (const std::string &line : split_words(lines, "\n")) {
        const std::size_t colon = line.find(':');
        for (const std::string &attribute : split_words(line.substr(colon + 1), ";"))
            text += line.substr(0, colon) + "." + attribute.substr(attribute.find_first_not_of(' ')) + "\n";
    }
    return text;
}

} // namespace qvcd
