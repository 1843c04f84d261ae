#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>

struct xcb_connection_t;

namespace brindlemark::bench {

// An X server of the benchmark's own (Xvfb, no window manager), so that windows are mapped on a
// display nobody looks at. Started before any Qt connection is made; stopped when destroyed.
class VirtualDisplay {
public:
    // Xvfb's messages go to `logPath`. Throws Unmeasurable, with Xvfb's last message, when it
    // does not start.
    explicit VirtualDisplay(const std::string& logPath);
    ~VirtualDisplay();
    VirtualDisplay(const VirtualDisplay&) = delete;
    VirtualDisplay& operator=(const VirtualDisplay&) = delete;

    const std::string& name() const { return m_name; } // ":N", for DISPLAY

private:
    void stop();

    pid_t m_pid = -1;
    std::string m_name;
};

// Watches the root window of a display for top-level windows being mapped. Without a window
// manager, the MapNotify of a top-level window is the moment the X server shows it.
class WindowMapWatch {
public:
    explicit WindowMapWatch(const std::string& display);
    ~WindowMapWatch();
    WindowMapWatch(const WindowMapWatch&) = delete;
    WindowMapWatch& operator=(const WindowMapWatch&) = delete;

    struct Mapped {
        std::uint32_t window = 0;
        pid_t pid = 0;                            // its _NET_WM_PID; 0 when the window does not say
        std::chrono::steady_clock::time_point at; // when the event arrived
    };

    // Drops the events of everything mapped so far, so that the next wait sees only new windows.
    void forgetEarlierMaps();
    // The next top-level window mapped that is not override-redirect (menus, tooltips) and not
    // one of `ignoredPid`'s; nothing when none is mapped within `timeout`.
    std::optional<Mapped> waitForWindow(std::chrono::milliseconds timeout, pid_t ignoredPid);

private:
    pid_t windowPid(std::uint32_t window);

    xcb_connection_t* m_connection = nullptr;
    std::uint32_t m_pidAtom = 0;
};

} // namespace brindlemark::bench
