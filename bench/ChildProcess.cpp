#include "ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <limits>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace brindlemark::bench {

using namespace std::chrono_literals;

ChildProcess::ChildProcess(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0); // a group of its own, led by the child
    const int error =
        posix_spawn(&m_pid, arguments[0], nullptr, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0)
        throw Unmeasurable("cannot start " + command[0] + ": " + std::strerror(error));
}

ChildProcess::~ChildProcess() {
    stop();
}

std::optional<int> ChildProcess::waitForExit(std::chrono::milliseconds timeout) {
    // A pid file descriptor wakes the wait the moment the child ends, where polling would add
    // its own interval to every measured time.
    const int pidFd = int(::syscall(SYS_pidfd_open, m_pid, 0));
    if (pidFd >= 0) {
        pollfd ended{pidFd, POLLIN, 0};
        int ready = 0;
        while ((ready = ::poll(&ended, 1, int(timeout.count()))) < 0 && errno == EINTR) {
        }
        ::close(pidFd);
        if (ready == 0)
            return std::nullopt;
    }
    int status = 0;
    while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
    }
    m_reaped = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void ChildProcess::stop() {
    if (m_reaped || m_pid <= 0)
        return;
    ::kill(-m_pid, SIGKILL);
    waitForExit(std::chrono::minutes(1));
}

void runToSuccess(const std::vector<std::string>& command) {
    ChildProcess child(command);
    const std::optional<int> status = child.waitForExit(std::chrono::minutes(1));
    if (status != 0)
        throw Unmeasurable(command[0] + (status ? " failed" : " did not end within a minute"));
}

void killAndWaitUntilGone(pid_t pid) {
    if (pid <= 0)
        return;
    ::kill(pid, SIGKILL);
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    // Not a child of this process: whoever reaps it, it is gone once the pid no longer exists.
    while (::kill(pid, 0) == 0 || errno != ESRCH) {
        if (std::chrono::steady_clock::now() > deadline)
            throw Unmeasurable("process " + std::to_string(pid) + " did not end when killed");
        std::this_thread::sleep_for(1ms);
    }
}

double residentMebibytes(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string key;
    while (status >> key) {
        if (key == "VmRSS:") {
            double kibibytes = 0;
            if (status >> kibibytes)
                return kibibytes / 1024.0;
            break;
        }
        status.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    throw Unmeasurable("no VmRSS for process " + std::to_string(pid));
}

} // namespace brindlemark::bench
