#include "client/fleet/journal.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/errors.h"
#include "client/private_file.h"
#include "platform/crypto.h"

namespace qvcd::client::fleet {

namespace {

using nlohmann::json;

constexpr std::time_t kOldest = 24 * 3600;
constexpr std::array<const char *, 5> kStates = {"open", "asked", "done", "failed", "undone"};

// FNV-1a: runs are told apart, nothing is kept secret by it.
std::string name_of(const std::string &what)
{
    std::uint64_t hash = 14695981039346656037U;
    for (const char c : what)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    std::ostringstream text;
    text << std::hex << hash;
    return text.str();
}

[[noreturn]] void refuse(const std::string &file)
{
    throw UsageError("cannot keep a journal in " + file + ": " + std::strerror(errno));
}

std::string text_of(int fd)
{
    std::string text;
    std::array<char, 65536> buffer;
    for (ssize_t n = 0; (n = ::read(fd, buffer.data(), buffer.size())) > 0;)
        text.append(buffer.data(), static_cast<std::size_t>(n));
    return text;
}

} // namespace

Journal::Journal(const std::string &what)
{
    const std::string folder = state_folder();
    if (folder.empty() || !make_private_folder(folder))
        refuse(folder.empty() ? "a home folder that is not there" : folder);
    file_ = folder + "/fleet-" + name_of(what) + ".journal";
    fd_.reset(::open(file_.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!fd_)
        refuse(file_);
    if (::flock(fd_.get(), LOCK_EX | LOCK_NB) != 0)
        throw UsageError("the same commit runs already, says " + file_);
    struct stat st {};
    if (::fstat(fd_.get(), &st) == 0 && std::time(nullptr) - st.st_mtime < kOldest)
        read(text_of(fd_.get()));
    resumed_ = !run_.empty();
    if (resumed_) {
        if (!write_all(fd_.get(), "\n")) // behind a line that was cut off
            refuse(file_);
        return;
    }
    run_ = std::to_string(qvcrypto_random31());
    if (::ftruncate(fd_.get(), 0) != 0 || !write_all(fd_.get(), json{{"run", run_}}.dump() + "\n"))
        refuse(file_);
}

// A last line that was cut off says nothing.
void Journal::read(const std::string &text)
{
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        const json entry = json::parse(line, nullptr, false);
        const auto word = [&](const char *name) {
            const auto found = entry.is_object() ? entry.find(name) : entry.end();
            return found != entry.end() && found->is_string() ? found->get<std::string>() : "";
        };
        if (!word("run").empty())
            run_ = word("run");
        const auto *const state = std::ranges::find(kStates, word("state"));
        if (!word("id").empty() && state != kStates.end())
            states_[word("id")] = static_cast<State>(state - kStates.begin());
    }
}

Journal::State Journal::state(const std::string &id) const
{
    const auto found = states_.find(id);
    return found == states_.end() ? State::open : found->second;
}

void Journal::note(const std::string &id, State state)
{
    states_[id] = state;
    const std::string line =
        json{{"id", id}, {"state", kStates.at(static_cast<std::size_t>(state))}}.dump() + "\n";
    if (!write_all(fd_.get(), line) || ::fdatasync(fd_.get()) != 0)
        refuse(file_);
}

void Journal::end()
{
    ::unlink(file_.c_str());
}

} // namespace qvcd::client::fleet
