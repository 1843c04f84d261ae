#pragma once

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <vector>

namespace brindlemark::bench {

// Thrown when a figure cannot be measured; its row then says why instead of showing a number.
struct Unmeasurable : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A program started directly (no shell, this process's environment) in a process group of its
// own, so that stopping it also stops whatever it started and did not move to a session of its
// own. Stopped when destroyed.
class ChildProcess {
public:
    explicit ChildProcess(const std::vector<std::string>& command);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return m_pid; }
    // Its exit status once it has ended, or nothing when it is still running after `timeout`.
    std::optional<int> waitForExit(std::chrono::milliseconds timeout);
    // Kills its process group and reaps it.
    void stop();

private:
    pid_t m_pid = -1;
    bool m_reaped = false;
};

// Runs the command to its end (bounded by a minute); throws Unmeasurable unless it exits with 0.
void runToSuccess(const std::vector<std::string>& command);

// Kills a process that is not necessarily this one's child, and waits (bounded) until it is gone.
void killAndWaitUntilGone(pid_t pid);

// The process's resident memory (VmRSS) in MiB; throws Unmeasurable when it cannot be read.
double residentMebibytes(pid_t pid);

} // namespace brindlemark::bench
