#include "client/type_words.h"

#include <algorithm>

#include "client/short_question.h"

namespace qvcd::client {

namespace {

constexpr std::size_t kMostMembers = 20;

enum class Arguments { none, lengths, bounds, members, count, schemes };

struct TypeRow {
    std::string_view name;
    std::string_view words; // "%" stands for what the arguments say
    Arguments arguments = Arguments::none;
};

// Settings of another release may have further types.
constexpr TypeRow kTypes[] = {
    {"blank", "empty"},
    {"boolean", "0 or 1"},
    {"string", "printable ASCII without double quotes"},
    {"string_set", "one of %", Arguments::members},
    {"alpha_numeric", "letters and digits"},
    {"label", "up to 40 characters"},
    {"string_length", "% characters", Arguments::lengths},
    {"filename", "up to 40 letters, digits, blanks and . _ $ -"},
    {"base64", "Base64 text"},
    {"string_ext", "any text without double quotes"},
    {"password", "a password of % characters", Arguments::lengths},
    {"integer", "a whole number"},
    {"integer_set", "one of %", Arguments::members},
    {"integer_range", "%", Arguments::bounds},
    {"signed_integer", "a whole number, also a negative one"},
    {"signed_integer_set", "one of %", Arguments::members},
    {"signed_integer_range", "%", Arguments::bounds},
    {"float", "a number such as 1.5"},
    {"float_range", "%", Arguments::bounds},
    {"hexadecimal", "hexadecimal digits"},
    {"ipaddress", "an IPv4 address"},
    {"portnumber", "a port, 0 to 65535"},
    {"macaddress", "a MAC address such as 00:11:22:aa:bb:cc"},
    {"domainname", "a domain name or an IPv4 address"},
    {"domainname_list", "domain names with blanks between"},
    {"hostname", "up to 63 letters, digits and -"},
    {"multicast_ipaddress", "224.0.0.0 to 239.255.255.255"},
    {"submask", "a subnet mask such as 255.255.255.0"},
    {"ssid", "1 to 32 bytes"},
    {"timecode", "a time such as 20240229T12:00:00"},
    {"profile", "one of %", Arguments::members},
    {"serial_flags", "letters, digits, blanks and -"},
    {"profile2", "the name of a profile"},
    {"ip6address", "an IPv6 address"},
    {"ip_prefix", "an address and its length, such as 192.0.2.1/24"},
    {"address_list", "up to % addresses with blanks between", Arguments::count},
    {"host_list", "up to % addresses or domain names with blanks between", Arguments::count},
    {"url", "an address that begins with %", Arguments::schemes},
    {"timezone", "a time zone such as Europe/Rome"},
};

std::vector<std::string> split(std::string_view text, char separator)
{
    std::vector<std::string> parts;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find(separator, start), text.size());
        if (end > start)
            parts.emplace_back(text.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

std::string joined(const std::vector<std::string> &parts, const char *between)
{
    std::string text;
    for (std::size_t i = 0; i < parts.size() && i < kMostMembers; ++i)
        text += (text.empty() ? "" : between) + parts[i];
    return parts.size() > kMostMembers ? text + between + "..." : text;
}

std::string range(const std::string &min, const std::string &max)
{
    return min.empty() ? "up to " + max : min + " to " + max;
}

std::string argument(const std::vector<std::string> &words, std::size_t i, const char *fallback)
{
    return i < words.size() ? words[i] : fallback;
}

// `choices` are those that are no arguments: the names of profiles.
std::string said_by_arguments(Arguments arguments, std::vector<std::string> words, std::string_view choices)
{
    switch (arguments) {
    case Arguments::none:
        break;
    case Arguments::lengths: {
        const std::string min = argument(words, 1, "1");
        return range(min == "0" ? "" : min, argument(words, 2, "256"));
    }
    case Arguments::bounds:
        return range(argument(words, 1, "0"), argument(words, 2, "0"));
    case Arguments::members:
        words.erase(words.begin());
        if (words.empty() && choices.size() > 2)
            words = split(choices.substr(1, choices.size() - 2), ',');
        return joined(words, ", ");
    case Arguments::count:
        return argument(words, 1, "any number of");
    case Arguments::schemes:
        words.erase(words.begin());
        for (std::string &word : words)
            word += "://";
        return joined(words, " or ");
    }
    return {};
}

// One alternative of a type: "integer_range 1 9".
std::string in_words(const std::string &alternative, std::string_view choices)
{
    const std::vector<std::string> words = split(alternative, ' ');
    if (words.empty())
        return {};
    const auto *row = std::ranges::find(kTypes, std::string_view(words[0]), &TypeRow::name);
    if (row == std::end(kTypes))
        return "a value of type " + words[0];
    const std::size_t place = row->words.find('%');
    if (place == std::string_view::npos)
        return std::string(row->words);
    const std::string filled = said_by_arguments(row->arguments, words, choices);
    return filled.empty() ? filled : std::string(row->words).replace(place, 1, filled);
}

} // namespace

std::string allowed_values(const std::vector<std::string> &lines, const std::string &name)
{
    const std::string choices = value_in(lines, name + ".choices").value_or("");
    std::string said;
    for (const std::string &one : split(value_in(lines, name + ".type").value_or(""), ',')) {
        const std::string words = in_words(one, choices);
        if (!words.empty())
            said += (said.empty() ? "" : ", or ") + words;
    }
    return said;
}

std::string sentence_on(std::string_view name, const std::string &allowed)
{
    if (allowed.empty())
        return {};
    return std::string(name) + (allowed.starts_with("empty") ? " may be " : " takes ") + allowed;
}

} // namespace qvcd::client
