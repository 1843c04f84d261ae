#include "XDisplay.h"

#include "ChildProcess.h"

#include <xcb/xcb.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace brindlemark::bench {

namespace {

template <typename T> using Reply = std::unique_ptr<T, decltype(&std::free)>;

template <typename T> Reply<T> reply(T* pointer) {
    return Reply<T>(pointer, &std::free);
}

// Reads what Xvfb writes to its -displayfd descriptor: the display number and a newline.
std::string readDisplayNumber(int fd, std::chrono::milliseconds timeout) {
    std::string number;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    char c = 0;
    while (number.empty() || number.back() != '\n') {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd readable{fd, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&readable, 1, int(left.count())) <= 0 ||
            ::read(fd, &c, 1) != 1)
            return {};
        number += c;
    }
    number.pop_back();
    return number;
}

// The last line of Xvfb's messages: why it did not start, when it says.
std::string lastLine(const std::string& path) {
    std::ifstream log(path);
    std::string line, last = "no message";
    while (std::getline(log, line))
        if (!line.empty())
            last = line;
    return last;
}

} // namespace

VirtualDisplay::VirtualDisplay(const std::string& logPath) {
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0)
        throw Unmeasurable("cannot make a pipe for Xvfb");
    // Xvfb writes its display number to this copy, the one end that is not closed on exec; it is
    // made before the fork so that the child only opens its log and execs.
    const int displayFd = ::fcntl(pipeFds[1], F_DUPFD, 3);
    const std::string displayFdText = std::to_string(displayFd);
    m_pid = displayFd >= 0 ? ::fork() : -1;
    if (m_pid == 0) {
        // Xvfb ends with the benchmark, however the benchmark ends.
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        const int log = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (log >= 0) {
            ::dup2(log, STDOUT_FILENO);
            ::dup2(log, STDERR_FILENO);
        }
        // -noreset: Xvfb would otherwise reset when its last client leaves, and a connection
        // made during the reset fails; between two measured starts there may be no client.
        ::execlp("Xvfb", "Xvfb", "-displayfd", displayFdText.c_str(), "-noreset", "-nolisten",
                 "tcp", "-screen", "0", "1280x1024x24", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::close(displayFd);
    ::close(pipeFds[1]);
    const std::string number =
        m_pid > 0 ? readDisplayNumber(pipeFds[0], std::chrono::seconds(20)) : std::string();
    ::close(pipeFds[0]);
    if (number.empty()) {
        stop();
        throw Unmeasurable("Xvfb did not start (Debian package xvfb): " + lastLine(logPath));
    }
    m_name = ":" + number;
}

VirtualDisplay::~VirtualDisplay() {
    stop();
}

void VirtualDisplay::stop() {
    if (m_pid <= 0)
        return;
    ::kill(m_pid, SIGTERM);
    ::waitpid(m_pid, nullptr, 0);
    m_pid = -1;
}

WindowMapWatch::WindowMapWatch(const std::string& display) {
    int screenNumber = 0;
    m_connection = xcb_connect(display.c_str(), &screenNumber);
    if (xcb_connection_has_error(m_connection)) {
        xcb_disconnect(m_connection);
        throw Unmeasurable("cannot connect to the X display " + display);
    }
    xcb_screen_iterator_t screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection));
    for (int i = 0; i < screenNumber; ++i)
        xcb_screen_next(&screen);
    const std::uint32_t events = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(m_connection, screen.data->root, XCB_CW_EVENT_MASK, &events);
    static const char pidName[] = "_NET_WM_PID";
    const auto atom = reply(xcb_intern_atom_reply(
        m_connection, xcb_intern_atom(m_connection, 0, sizeof pidName - 1, pidName), nullptr));
    m_pidAtom = atom ? atom->atom : 0;
}

WindowMapWatch::~WindowMapWatch() {
    xcb_disconnect(m_connection);
}

void WindowMapWatch::forgetEarlierMaps() {
    // A round trip first: every event the server sent before it has then arrived.
    std::free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    while (xcb_generic_event_t* event = xcb_poll_for_event(m_connection))
        std::free(event);
}

std::optional<WindowMapWatch::Mapped>
WindowMapWatch::waitForWindow(std::chrono::milliseconds timeout, pid_t ignoredPid) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    pollfd readable{xcb_get_file_descriptor(m_connection), POLLIN, 0};
    for (;;) {
        auto event = reply(xcb_poll_for_event(m_connection));
        if (!event) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0 || xcb_connection_has_error(m_connection))
                return std::nullopt;
            ::poll(&readable, 1, int(left.count()));
            continue;
        }
        if ((event->response_type & 0x7f) != XCB_MAP_NOTIFY)
            continue;
        const auto arrived = std::chrono::steady_clock::now();
        const auto* map = reinterpret_cast<const xcb_map_notify_event_t*>(event.get());
        if (map->override_redirect)
            continue;
        const Mapped mapped{map->window, windowPid(map->window), arrived};
        if (ignoredPid <= 0 || mapped.pid != ignoredPid)
            return mapped;
    }
}

pid_t WindowMapWatch::windowPid(std::uint32_t window) {
    if (!m_pidAtom)
        return 0;
    const auto property = reply(xcb_get_property_reply(
        m_connection, xcb_get_property(m_connection, 0, window, m_pidAtom, XCB_ATOM_CARDINAL, 0, 1),
        nullptr));
    if (!property || xcb_get_property_value_length(property.get()) != 4)
        return 0;
    return pid_t(*static_cast<const std::uint32_t*>(xcb_get_property_value(property.get())));
}

} // namespace brindlemark::bench
