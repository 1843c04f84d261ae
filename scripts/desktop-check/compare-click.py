#!/usr/bin/env python3
"""compare-click.py MANAGER [N]: times Brindlemark's "New File > Text File" against the file
manager's own "Create Folder" in one real file manager, warm, from the click on the menu entry
until the new entry exists in the folder, and prints the median, min and max of each.

    scripts/desktop-check/compare-click.py nautilus 10
    scripts/desktop-check/compare-click.py dolphin 10 --display 151 --out /tmp/dolphin-shots

BRINDLEMARK_BUILD names the build folder, as for session.sh. It also counts the file manager's
windows on the folder at the start and at the end: Brindlemark shows each new file through
org.freedesktop.FileManager1, and some file managers open a window for every one; with
--close-others those are closed (Ctrl+W) before each round, so that their number does not weigh
on the later rounds.

MANAGER is one of nautilus, dolphin, nemo, caja, thunar. The file manager is opened with
session.sh (a throwaway home /tmp/compare-click-MANAGER, its own Xvfb display, Brindlemark
running), then openbox is started on that display so that a dialog gets the keyboard focus as
on a desktop. One untimed round of each entry warms both up; then N rounds of each, interleaved
(Brindlemark first in rounds 1, 3, 5, ..., the file manager first in the others). Before every
round the folder is emptied, so that the right-click always lands on empty space and the menu
always opens at the same place.

The menu entries are found by their offsets from the right-click point, measured once per file
manager from screenshots (1280x800 display, the file manager's window at the top left, default
themes of Debian 12) and written down in MANAGERS below. A click that misses is noticed: every
round checks that what appeared is what the entry makes (a regular "New Text File*.txt", a
folder), else it stops with a screenshot. With --out, the open menu is shot before each warm-up
click and the logs are kept there.

Where the file manager asks for the folder's name first (Nautilus, Thunar, Dolphin), the timer
keeps running: as soon as that dialog has the keyboard focus the proposed name is accepted with
Return. Nautilus proposes no name and keeps "Create" disabled while the field is empty, so there
one letter is typed before Return. Nemo and Caja make the folder under a proposed name at once
and then let it be renamed in place; the timer stops when the folder exists, and Escape ends the
renaming afterwards.

Times include starting xdotool for the click, as click-time.py's do, for both entries alike; where
a dialog is confirmed they also include polling for its focus (a few ms per poll).

Everything started is stopped at the end: the processes whose environment holds the throwaway
home (D-Bus session, file manager, Brindlemark, openbox) and the display's Xvfb; the home is
removed. Not part of the tests: it needs the file managers', xvfb's, xdotool's, openbox's and
imagemagick's Debian packages.
"""
import argparse
import os
import re
import shutil
import signal
import statistics
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))

# Per file manager: session.sh's desktop and command, where to right-click in the empty folder
# view, and each entry as the steps that open its submenu ("hover" or "click" at an offset from
# the right-click point) followed by the offset of the entry that is timed. "dialog" is the
# title of the window that asks for the folder's name, "type" what is typed into it before
# Return, "after" the keys that end an in-place rename once the folder exists.
MANAGERS = {
    "nautilus": {  # Nautilus 43: a GTK 4 popover menu; its submenus open on a click
        "desktop": "GNOME",
        "command": ["nautilus", "--new-window"],
        "right_click": (400, 120),
        "text_file": {"steps": [("click", 47, 178)], "entry": (46, 56)},
        "folder": {"steps": [], "entry": (60, 24), "dialog": r"^New Folder$", "type": "a"},
    },
    "dolphin": {  # Dolphin 22.12: "Create New > Folder..." asks for the name in a dialog
        "desktop": "KDE",
        "command": ["dolphin"],
        "right_click": (350, 150),
        "text_file": {"steps": [("hover", 55, 168)], "entry": (362, 168)},
        "folder": {"steps": [("hover", 65, 12)], "entry": (360, 12), "dialog": r"^New Folder"},
    },
    "nemo": {  # Nemo: "Create New Folder" makes the folder at once and starts renaming it
        "desktop": "X-Cinnamon",
        "command": ["nemo"],
        "right_click": (300, 150),
        "text_file": {"steps": [("hover", 56, 66)], "entry": (288, 68)},
        "folder": {"steps": [], "entry": (90, 16), "after": ["Escape"]},
    },
    "caja": {  # Caja: "Create Folder" makes the folder at once and starts renaming it
        "desktop": "MATE",
        "command": ["caja"],
        "right_click": (300, 200),
        "text_file": {"steps": [("hover", 60, 68)], "entry": (258, 68)},
        "folder": {"steps": [], "entry": (74, 16), "after": ["Escape"]},
    },
    "thunar": {  # Thunar 4.18: "Create Folder..." asks for the name in a dialog
        "desktop": "XFCE",
        "command": ["thunar"],
        "right_click": (300, 200),
        "text_file": {"steps": [("hover", 60, 94)], "entry": (258, 94)},
        "folder": {"steps": [], "entry": (80, 17), "dialog": r"^Create New Folder$"},
    },
}


def xdotool(*args):
    subprocess.run(["xdotool", *args], check=True)


def focused_window_name():
    result = subprocess.run(["xdotool", "getwindowfocus", "getwindowname"], capture_output=True,
                            text=True)
    return result.stdout.strip()


def move(x, y):
    # Qt's menus react to motion inside them, not to the pointer landing there: a second move by a
    # couple of pixels opens a submenu in Dolphin as it does in the GTK file managers.
    xdotool("mousemove", str(x), str(y))
    time.sleep(0.15)
    xdotool("mousemove", str(x + 2), str(y + 1))


def shoot(path):
    subprocess.run(["import", "-window", "root", path], check=False)


def empty(folder):
    for name in os.listdir(folder):
        path = os.path.join(folder, name)
        if os.path.isdir(path) and not os.path.islink(path):
            shutil.rmtree(path)
        else:
            os.remove(path)


def expected(kind, folder, names):
    """Whether the entries that appeared are what the entry makes: one regular "New Text File"
    with suffix txt, or one folder."""
    if len(names) != 1:
        return False
    path = os.path.join(folder, names[0])
    if kind == "text_file":
        return (os.path.isfile(path) and names[0].startswith("New Text File")
                and names[0].endswith(".txt"))
    return os.path.isdir(path)


class Failure(Exception):
    pass


def folder_windows():
    """The visible windows named after the folder ("a b ü", "a b ü - Thunar", ...)."""
    result = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "^a b ü"],
                            capture_output=True, text=True)
    return result.stdout.split()


def close_other_windows(window):
    """Closes the file manager's windows on the folder other than the first, with Ctrl+W."""
    for other in folder_windows():
        if other != window:
            subprocess.run(["xdotool", "windowactivate", "--sync", other],
                           stderr=subprocess.DEVNULL)
            xdotool("key", "--clearmodifiers", "ctrl+w")
            time.sleep(0.3)


def one_round(manager, kind, folder, window, out=None, label="", close_others=False):
    """Opens the menu in the file manager's first window, clicks the entry and returns
    (milliseconds until the entry exists, milliseconds until the naming dialog had the focus or
    None)."""
    config = MANAGERS[manager]
    entry = config[kind]
    rx, ry = config["right_click"]
    empty(folder)
    if close_others:
        close_other_windows(window)
    # Brindlemark shows each new file through org.freedesktop.FileManager1, for which some file
    # managers open another window: the first one is brought back in front, under the pointer.
    subprocess.run(["xdotool", "windowactivate", "--sync", window], stderr=subprocess.DEVNULL)
    time.sleep(1.0)  # the file manager takes the emptied folder in
    xdotool("mousemove", str(rx), str(ry))
    time.sleep(0.2)
    xdotool("click", "3")
    time.sleep(0.8)
    if out:
        shoot(os.path.join(out, "%s-%s-opened%s.png" % (manager, kind, label)))
    for action, dx, dy in entry["steps"]:
        move(rx + dx, ry + dy)
        if action == "click":
            time.sleep(0.2)
            xdotool("click", "1")
        time.sleep(0.6)
    ex, ey = entry["entry"]
    move(rx + ex, ry + ey)
    time.sleep(0.3)
    if out:
        shoot(os.path.join(out, "%s-%s-menu%s.png" % (manager, kind, label)))

    dialog = entry.get("dialog")
    before = set(os.listdir(folder))
    dialog_ms = None
    start = time.perf_counter()
    subprocess.Popen(["xdotool", "click", "1"])
    while True:
        appeared = set(os.listdir(folder)) - before
        if appeared:
            elapsed = (time.perf_counter() - start) * 1000
            break
        if dialog and dialog_ms is None and re.search(dialog, focused_window_name()):
            dialog_ms = (time.perf_counter() - start) * 1000
            if entry.get("type"):
                xdotool("type", entry["type"])
            xdotool("key", "Return")
        if time.perf_counter() - start > 10:
            raise Failure("%s %s: nothing appeared within 10 s" % (manager, kind))
        time.sleep(0.0005)
    time.sleep(0.3)
    names = sorted(set(os.listdir(folder)) - before)
    for key in entry.get("after", []):
        xdotool("key", key)
    time.sleep(0.3)
    if not expected(kind, folder, names):
        raise Failure("%s %s: the click made %s, not what the entry makes" % (manager, kind, names))
    return elapsed, dialog_ms


def summary(values):
    return "median %7.1f ms  min %7.1f  max %7.1f" % (statistics.median(values), min(values),
                                                      max(values))


def processes_of(home, display):
    """The processes started for this run: those whose environment holds the throwaway home, and
    the Xvfb of its display."""
    found = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        if int(pid) == os.getpid():
            continue
        try:
            with open("/proc/%s/environ" % pid, "rb") as f:
                environ = f.read().split(b"\0")
            with open("/proc/%s/cmdline" % pid, "rb") as f:
                cmdline = f.read().split(b"\0")
        except OSError:
            continue
        xvfb = cmdline[:2] == [b"Xvfb", (":%d" % display).encode()]
        if xvfb or ("HOME=%s" % home).encode() in environ:
            found.append(int(pid))
    return found


def stop(home, display):
    for sig in (signal.SIGTERM, signal.SIGKILL):
        pids = processes_of(home, display)
        for pid in pids:
            try:
                os.kill(pid, sig)
            except ProcessLookupError:
                pass
        if pids and sig == signal.SIGTERM:
            time.sleep(1.5)
    shutil.rmtree(home, ignore_errors=True)


def notable_log_lines(home):
    lines = []
    for log in ("brindlemark.log", "file-manager.log"):
        try:
            with open(os.path.join(home, log), errors="replace") as f:
                lines += ["%s: %s" % (log, line.rstrip()) for line in f if line.strip()]
        except OSError:
            pass
    return lines


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("manager", choices=sorted(MANAGERS))
    parser.add_argument("n", nargs="?", type=int, default=10)
    parser.add_argument("--display", type=int,
                        help="Xvfb display number (default 150 + the manager's place in the list)")
    parser.add_argument("--out", help="folder for the menus' screenshots and the logs")
    parser.add_argument("--close-others", action="store_true",
                        help="close the windows that showing new files opened, before each round")
    args = parser.parse_args()

    manager = args.manager
    display = args.display or 150 + list(MANAGERS).index(manager)
    if os.path.exists("/tmp/.X%d-lock" % display):
        sys.exit("display :%d is in use; choose another with --display" % display)
    home = "/tmp/compare-click-%s" % manager
    folder = os.path.join(home, "a b ü")
    if args.out:
        os.makedirs(args.out, exist_ok=True)
    os.environ["DISPLAY"] = ":%d" % display

    config = MANAGERS[manager]
    env = dict(os.environ, BRINDLEMARK_SESSION_HOME=home)
    # A python of pyenv or of a virtualenv running this script puts its own bin folder first on
    # PATH; the python that the file managers embed for their extensions then takes its modules
    # from there, finds no "gi", and loads no extension: Brindlemark's entries would be missing.
    own = tuple(prefix + "/" for prefix in {sys.prefix, sys.base_prefix} - {"/usr", "/usr/local"})
    if own:
        env["PATH"] = os.pathsep.join(
            p for p in env.get("PATH", "").split(os.pathsep) if not (p + "/").startswith(own))
    try:
        subprocess.run(["bash", os.path.join(HERE, "session.sh"), manager, config["desktop"],
                        str(display), *config["command"], folder], env=env, check=True,
                       stdout=subprocess.DEVNULL)
        openbox_env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=home + "/.config",
                           XDG_DATA_HOME=home + "/.local/share", XDG_RUNTIME_DIR=home + "/run")
        subprocess.Popen(["openbox"], env=openbox_env, stdout=subprocess.DEVNULL,
                         stderr=subprocess.DEVNULL, start_new_session=True)
        time.sleep(2)
        windows = folder_windows()
        if not windows:
            raise Failure("%s shows no window on the folder" % manager)
        window = windows[0]

        times = {"text_file": [], "folder": []}
        dialog_times = []
        for kind in ("text_file", "folder"):  # warm-up, untimed
            one_round(manager, kind, folder, window, args.out, "-warm-up", args.close_others)
        for i in range(args.n):
            order = ("text_file", "folder") if i % 2 == 0 else ("folder", "text_file")
            for kind in order:
                elapsed, dialog_ms = one_round(manager, kind, folder, window,
                                               close_others=args.close_others)
                times[kind].append(elapsed)
                if dialog_ms is not None:
                    dialog_times.append(dialog_ms)
                print("round %2d  %-9s %7.1f ms%s" % (
                    i + 1, kind, elapsed,
                    "" if dialog_ms is None else "  (dialog focused after %.1f ms)" % dialog_ms),
                    flush=True)

        print("%s, %d warm rounds each, click to entry in the folder:" % (manager, args.n))
        print("  Brindlemark New File > Text File: %s" % summary(times["text_file"]))
        print("  %-32s %s" % ("own Create Folder:", summary(times["folder"])))
        if dialog_times:
            print("  (of that, until its name dialog had the focus: %s)" % summary(dialog_times))
        print("  windows on the folder: %d at the start, %d at the end" % (len(windows),
                                                                      len(folder_windows())))
        lines = notable_log_lines(home)
        print("log lines: %d%s" % (len(lines), ", in --out" if args.out else ""))
    except Failure as failure:
        if args.out:
            shoot(os.path.join(args.out, "%s-failure.png" % manager))
        print("failed: %s" % failure, file=sys.stderr)
        raise SystemExit(1)
    finally:
        if args.out:
            for log in ("brindlemark.log", "file-manager.log"):
                if os.path.exists(os.path.join(home, log)):
                    shutil.copy(os.path.join(home, log),
                                os.path.join(args.out, "%s-%s" % (manager, log)))
        stop(home, display)


if __name__ == "__main__":
    main()
