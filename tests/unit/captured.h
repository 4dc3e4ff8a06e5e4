#pragma once

#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <string>

namespace qvcd {

/// What a function writes to the stream that it is given.
template <class Write>
std::string captured(Write &&write)
{
    char *text = nullptr;
    std::size_t size = 0;
    std::FILE *out = open_memstream(&text, &size);
    write(out);
    std::fclose(out);
    std::string result(text, size);
    std::free(text);
    return result;
}

/// A command's result and its reply.
struct Answer {
    int result;
    std::string text;
    bool operator==(const Answer &) const = default;
};

inline void PrintTo(const Answer &answer, std::ostream *out)
{
    *out << answer.result << " \"" << answer.text << "\"";
}

/// The answer of a command that is called with a stream.
template <class Command>
Answer answer_of(Command &&command)
{
    Answer answer{};
    answer.text = captured([&](std::FILE *out) { answer.result = command(out); });
    return answer;
}

} // namespace qvcd
