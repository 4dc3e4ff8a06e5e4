#include "servers.h"

#include "client.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace qvcd::bench {

namespace {

using namespace std::chrono_literals;

constexpr double kStartPatience = 300; // seconds
constexpr auto kPollPause = 100us;

// A connection to a server that is coming up.
Fd connect_to_starting(Child &child, const std::string &socket)
{
    for (const auto start = Clock::now(); seconds_since(start) < kStartPatience;) {
        if (Fd connection = try_connect(socket))
            return connection;
        if (child.ended())
            break;
        std::this_thread::sleep_for(kPollPause);
    }
    throw std::runtime_error("no server comes up at " + socket);
}

} // namespace

Root::Root(const std::string &parent) : path_(parent + "/qvb.XXXXXX")
{
    if (!mkdtemp(path_.data()))
        throw std::runtime_error("cannot make a folder in " + parent + ": " + std::strerror(errno));
    for (const char *folder : {"/etc", "/tmp", "/var/run"})
        std::filesystem::create_directories(path_ + folder);
}

Root::~Root()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

Child::Child(const std::vector<std::string> &arguments, const std::string &environment, int output)
{
    std::vector<const char *> argv;
    for (const std::string &argument : arguments)
        argv.push_back(argument.c_str());
    argv.push_back(nullptr);
    const pid_t parent = getpid();
    id_ = fork();
    if (id_ < 0)
        throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    if (id_ != 0)
        return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(1);
    if (output >= 0)
        dup2(output, STDOUT_FILENO);
    if (const std::size_t equals = environment.find('='); equals != std::string::npos)
        setenv(environment.substr(0, equals).c_str(), environment.c_str() + equals + 1, 1);
    execvp(argv.front(), const_cast<char *const *>(argv.data()));
    _exit(127);
}

Child::~Child()
{
    if (id_ <= 0)
        return;
    kill(id_, SIGKILL);
    waitpid(id_, nullptr, 0);
}

bool Child::ended()
{
    if (id_ > 0 && waitpid(id_, nullptr, WNOHANG) == id_)
        id_ = -1;
    return id_ < 0;
}

int Child::wait()
{
    int status = 0;
    waitpid(id_, &status, 0);
    id_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

Daemon::Daemon(const Settings &settings, std::size_t apis, const std::vector<std::string> &options)
    : root_(settings.folder), model_(write_model(root_.path(), apis))
{
    std::vector<std::string> arguments = {settings.programs + "/qvcd", "-g", "-w", "-f", model_.metadata};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const auto start = Clock::now();
    child_.emplace(arguments, "QV_SYSROOT=" + root_.path());
    const Api &api = model_.apis.back();
    Contender probe{
        "qvcd", socket(), kHello, {{"get " + api.name + "\n", api.name + "=" + api.value + "\n"}}};
    Connection(probe, connect_to_starting(*child_, socket())).ask(probe.next());
    start_seconds_ = seconds_since(start);
}

// In order, as a device stops it.
Daemon::~Daemon()
{
    kill(child_->id(), SIGINT);
    child_->wait();
}

double Daemon::resident_bytes() const
{
    std::ifstream file("/proc/" + std::to_string(child_->id()) + "/statm");
    double total = 0;
    double resident = 0;
    file >> total >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

std::unique_ptr<Child> start_echo(const Settings &settings, const std::string &folder)
{
    const std::string socket = folder + "/echo.sock";
    auto child =
        std::make_unique<Child>(std::vector<std::string>{settings.programs + "/qvcd_bench_echo", socket});
    connect_to_starting(*child, socket);
    return child;
}

std::unique_ptr<Child> start_redis(const std::string &folder)
{
    if (std::system("command -v redis-server >/dev/null") != 0)
        return nullptr;
    const std::string socket = folder + "/redis.sock";
    auto child = std::make_unique<Child>(std::vector<std::string>{
        "redis-server", "--port", "0", "--unixsocket", socket, "--save", "", "--appendonly", "no", "--dir",
        folder, "--daemonize", "no", "--logfile", folder + "/redis.log"});
    connect_to_starting(*child, socket);
    return child;
}

} // namespace qvcd::bench
