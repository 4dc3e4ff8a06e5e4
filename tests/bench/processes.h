#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <sys/types.h>

namespace qvcd::bench {

/// A folder under `parent` that stands for "/", removed with everything in it.
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

/// The real daemon on a root of its own, from construction to destruction. Throws when it does not come up.
class Daemon {
  public:
    /// `program`: path of qvcd. Returns when the daemon has answered the liveness probe.
    Daemon(const std::string &program, const std::string &root, const std::string &metadata);
    ~Daemon();
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    std::string socket() const;
    std::chrono::duration<double> start_time() const { return start_time_; } ///< exec to first answer
    double resident_bytes() const;

  private:
    void wait_for_answer();

    std::string root_;
    pid_t pid_ = -1;
    std::chrono::duration<double> start_time_{};
};

/// The bare machine: a process that sends back what it reads from a Unix stream socket, or, for a line
/// "=<n>", n bytes.
class EchoServer {
  public:
    explicit EchoServer(const std::string &root);
    ~EchoServer();
    EchoServer(const EchoServer &) = delete;
    EchoServer &operator=(const EchoServer &) = delete;
    const std::string &socket() const { return path_; }

  private:
    std::string path_;
    pid_t pid_ = -1;
};

} // namespace qvcd::bench
