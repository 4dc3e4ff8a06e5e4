#include "client/given_values.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

#include "client/command_shapes.h"
#include "client/errors.h"
#include "client/password_type.h"
#include "client/person.h"
#include "client/plain_command.h"
#include "client/reply.h"
#include "platform/fd.h"

namespace qvcd::client {

namespace {

constexpr std::size_t kMostBytes = std::size_t{1} << 20; // of a line; a value is refused far below

std::string without_newline(std::string text)
{
    if (text.ends_with('\n'))
        text.pop_back();
    if (text.ends_with('\r'))
        text.pop_back();
    return text;
}

std::string read_whole(int fd, const std::string &what)
{
    std::string text;
    std::array<char, 65536> buffer;
    ssize_t got = 0;
    while ((got = read(fd, buffer.data(), buffer.size())) > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(got));
        if (text.size() > kMostBytes)
            throw UsageError(what + " is longer than 1 MiB");
    }
    if (got < 0)
        throw UsageError("cannot read " + what + ": " + std::generic_category().message(errno));
    return without_newline(std::move(text));
}

std::string text_of_file(const std::string &name)
{
    const Fd file(open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!file)
        throw UsageError("cannot read '" + name + "': " + std::generic_category().message(errno));
    return read_whole(file.get(), "'" + name + "'");
}

std::string typed_password(const Options &options, const std::string &name)
{
    switch (kind_of(options, {name})) {
    case Kind::open:
    case Kind::missing:
        return "?";
    case Kind::password:
        hide_value_of(name);
        if (can_ask())
            return ask_new_password(name);
        throw UsageError("no terminal to ask for " + name + " on: give it as " + name + "=- or " + name +
                         "=@FILE");
    case Kind::unknown:
        break;
    }
    throw UsageError("the daemon does not say whether " + name + " is a password: a question mark is " +
                     name + "=\\?");
}

class GivenValues {
  public:
    explicit GivenValues(const Options &options) : options_(options) {}

    std::string value_of(const std::string &name, const std::string &value)
    {
        if (value.starts_with('\\'))
            return value.substr(1);
        if (value == "?")
            return typed_password(options_, name);
        if (const Kind kind = kind_of(options_, {name}); kind == Kind::password || kind == Kind::unknown)
            hide_value_of(name); // the reply has it
        if (value == "-")
            return text_of_input(name);
        return text_of_file(value.substr(1));
    }

  private:
    std::string text_of_input(const std::string &name)
    {
        if (options_.input_is_script)
            throw UsageError(name + "=- cannot be used here: standard input has the commands");
        if (input_is_used_)
            throw UsageError("standard input can be the value of one name only");
        input_is_used_ = true;
        return read_whole(STDIN_FILENO, "standard input");
    }

    const Options &options_;
    bool input_is_used_ = false;
};

} // namespace

Words with_given_values(const Options &options, Words words)
{
    const CommandShape shape = shape_of(words);
    if (shape.first != Takes::assignments)
        return words;
    GivenValues given(options);
    for (std::size_t i = 1; i < words.size(); ++i) {
        if (shape.has_argument(words[i])) {
            ++i;
        } else if (is_special_value(words[i])) {
            const std::string name = words[i].substr(0, words[i].find('='));
            words[i] = name + "=" + given.value_of(name, words[i].substr(name.size() + 1));
        }
    }
    return words;
}

} // namespace qvcd::client
