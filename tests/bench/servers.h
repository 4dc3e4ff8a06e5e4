#pragma once

#include "generated_model.h"

#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qvcd::bench {

/// What the command line asks for.
struct Settings {
    std::string programs;        ///< folder of qvcd, qvc and this benchmark's own programs
    std::string folder = "/tmp"; ///< where roots are made
    std::size_t apis[3] = {1000, 10000, 100000};
    std::size_t connections = 1000; ///< of those that are idle, or a nuisance
    int rounds = 9;
    double slice = 0.15; ///< seconds of one round of one contender
};

/// A folder in `parent` that stands for "/", removed with everything in it.
class Root {
  public:
    explicit Root(const std::string &parent);
    ~Root();
    Root(const Root &) = delete;
    Root &operator=(const Root &) = delete;
    const std::string &path() const { return path_; }

  private:
    std::string path_;
};

/// A program of another process, killed at the end; it also ends with this process.
class Child {
  public:
    /// `environment`: "QV_SYSROOT=..." or empty.
    Child(const std::vector<std::string> &arguments, const std::string &environment = {}, int output = -1);
    ~Child();
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    bool ended(); ///< has it ended by itself?
    int wait();   ///< for its end; its exit code
    pid_t id() const { return id_; }

  private:
    pid_t id_ = -1;
};

/// qvcd on a model, on a root of its own. Throws when it does not come up.
class Daemon {
  public:
    Daemon(const Settings &settings, std::size_t apis, const std::vector<std::string> &options = {});
    ~Daemon();

    const Root &root() const { return root_; }
    const Model &model() const { return model_; }
    std::string socket() const { return root_.path() + "/var/run/qv/qvcd.sock"; }
    pid_t process() const { return child_->id(); }
    double start_seconds() const { return start_seconds_; } ///< exec to first answered get
    double resident_bytes() const;

  private:
    Root root_;
    Model model_;
    std::optional<Child> child_;
    double start_seconds_ = 0;
};

/// The bare epoll server, on the socket "echo.sock" of a folder.
std::unique_ptr<Child> start_echo(const Settings &settings, const std::string &folder);

/// redis-server without persistence on the socket "redis.sock" of a folder; nothing where it is not
/// installed.
std::unique_ptr<Child> start_redis(const std::string &folder);

} // namespace qvcd::bench
