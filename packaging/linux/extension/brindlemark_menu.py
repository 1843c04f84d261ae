# Brindlemark's right-click menu for Nautilus, Nemo, Caja and Thunar (through their python
# extension modules), and the shared helpers that Dolphin's service menu uses through
# brindlemark-menu-action.
#
# The menu is built from Templates.json at every right-click, and the file managers that keep a
# folder's menu are told when that file changes, so edits in Brindlemark show at the next
# right-click. Choosing an entry hands a brindlemark:// URL straight to Brindlemark's launcher
# (recorded by "install"), without waiting for it and without a desktop opener in between; the
# application does the rest. Nothing here ever raises into the file manager: a missing or broken
# Templates.json gives a menu without templates.

import base64
import json
import os
import subprocess
import urllib.parse

EXTENSION_ID = "org.brindlemark.Brindlemark.BrindlemarkFinderSync"


def _xdg_home(variable, *default):
    """An XDG home folder: the variable when it holds an absolute path, else its default below ~."""
    value = os.environ.get(variable) or ""
    return value if os.path.isabs(value) else os.path.join(os.path.expanduser("~"), *default)


def data_home():
    return _xdg_home("XDG_DATA_HOME", ".local", "share")


def templates_file():
    return os.path.join(data_home(), EXTENSION_ID, "Templates.json")


def launcher():
    """The brindlemark launcher that "install" recorded, while it is there; else None."""
    try:
        with open(os.path.join(data_home(), "brindlemark", "launcher"), encoding="utf-8") as stream:
            path = stream.read().strip()
    except (OSError, ValueError):
        return None
    return path if os.path.isabs(path) and os.access(path, os.X_OK) else None


def _flag(value):
    """A template's flag as the application reads it (boolFromValue in src/templates/Template.cpp).
    The application writes only true and false, but a Templates.json edited by hand reaches the
    menus as it was written until the application saves again."""
    if isinstance(value, bool):
        return value
    if isinstance(value, (int, float)):
        return value != 0
    if isinstance(value, str):
        return value.strip().lower() in ("1", "true", "yes", "on")
    return False


def default_templates_file():
    """The built-in templates, copied here by "install" from what the application itself writes."""
    return os.path.join(data_home(), "brindlemark", "default-templates.json")


def enabled_templates(built_in=None):
    """The enabled templates in list order: from the stored list, or from the built-in ones
    (`built_in`, else the copy "install" made) while Brindlemark has stored none; [] when the
    stored list is empty or broken."""
    records = None
    for path in (templates_file(), built_in or default_templates_file()):
        try:
            with open(path, "rb") as stream:
                records = json.loads(stream.read().decode("utf-8"))
            break
        except FileNotFoundError:
            continue
        except (OSError, ValueError):
            return []
    if not isinstance(records, list):
        return []
    return [r for r in records if isinstance(r, dict) and _flag(r.get("enabled"))]


def _menu_title(record):
    title = record.get("title")
    title = title.strip() if isinstance(title, str) else ""
    return title or "New File"


def command_url(command, folder, template=None):
    """brindlemark://COMMAND?path=FOLDER[&payload=BASE64], every value percent-encoded."""
    query = "path=" + urllib.parse.quote(folder, safe="/")
    if template is not None:
        payload = base64.b64encode(json.dumps(template, ensure_ascii=False).encode("utf-8")).decode("ascii")
        query += "&payload=" + urllib.parse.quote(payload, safe="")
    return "brindlemark://%s?%s" % (command, query)


_unanswered = set()  # the connections whose answer has not come yet


def _hand_to_running_instance(url):
    """Hands the URL straight to a running Brindlemark over its socket, as its launcher would
    (InstanceChannel.h: a big-endian length, a count of URLs, each URL's length and bytes; then
    one byte back once it is handled), without starting a program: a click costs a few
    milliseconds less, which is what the file managers' own entries take. Only in
    $XDG_RUNTIME_DIR, when it is this user's folder, and only to a process of this user's. False
    when no instance takes it that way: the launcher is run then."""
    import socket
    import stat
    import struct
    runtime = os.environ.get("XDG_RUNTIME_DIR") or ""
    try:
        info = os.stat(runtime)
    except OSError:
        return False
    if not (os.path.isabs(runtime) and stat.S_ISDIR(info.st_mode) and info.st_uid == os.getuid()):
        return False
    connection = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM | socket.SOCK_CLOEXEC)
    try:
        connection.settimeout(0.5)
        connection.connect(os.path.join(runtime, "org.brindlemark.Brindlemark.socket"))
        credentials = connection.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, struct.calcsize("3i"))
        if struct.unpack("3i", credentials)[1] != os.getuid():
            raise OSError("another user's socket")
        data = url.encode("utf-8")
        body = struct.pack(">II", 1, len(data)) + data
        connection.sendall(struct.pack(">I", len(body)) + body)
    except OSError:
        connection.close()
        return False
    # The answer is awaited in the file manager's main loop, never by blocking it.
    _unanswered.add(connection)

    def answered(*_):
        _unanswered.discard(connection)
        connection.close()
        return False

    try:
        from gi.repository import GLib
        GLib.io_add_watch(connection.fileno(), GLib.PRIORITY_DEFAULT, GLib.IOCondition.IN | GLib.IOCondition.HUP
                          | GLib.IOCondition.ERR, answered)
    except Exception:
        pass
    return True


def _url_handler():
    """Whether the desktop has an application for brindlemark:// URLs. Its desktop entry names the
    launcher in TryExec, so an entry left behind by a removed Brindlemark does not count."""
    try:
        from gi.repository import Gio
        return Gio.AppInfo.get_default_for_uri_scheme("brindlemark") is not None
    except Exception:
        return False


def _url_opener():
    return os.environ.get("BRINDLEMARK_URL_OPENER") or launcher()


def can_open():
    """Whether an entry can reach Brindlemark at all. Once Brindlemark is removed (its package, or a
    build folder deleted) while this copy stays in the user's extensions folder, the menus go:
    handing a URL to nothing would make the file manager show an error."""
    return bool(_url_opener()) or _url_handler()


def open_url(url):
    """Hands the URL to Brindlemark without waiting: to the running instance, else to its
    launcher, else through GIO to whatever the desktop opens brindlemark:// URLs with; to nothing
    when there is none of them (gone since the menu was shown)."""
    if not os.environ.get("BRINDLEMARK_URL_OPENER") and _hand_to_running_instance(url):
        return
    program = _url_opener()
    if program:
        try:
            subprocess.Popen([program, url], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                             stderr=subprocess.DEVNULL, start_new_session=True)
            return
        except OSError:
            pass
    if not _url_handler():
        return
    try:
        from gi.repository import Gio
        Gio.AppInfo.launch_default_for_uri_async(url, None, None, None, None)
    except Exception:
        pass


def _local_folder(item):
    """The folder's path for a file-manager item that is a local folder, else None."""
    try:
        location = item.get_location()
        path = location.get_path() if location is not None else None
    except Exception:
        return None
    return path if path and os.path.isdir(path) else None


def _installed():
    """False once disabling has removed this file: a running file manager keeps the module loaded
    until it quits, and its menus must go at once."""
    return os.path.exists(os.path.abspath(__file__))


def _is_thunar(module):
    return getattr(module, "__name__", "").endswith("Thunarx")


def _menu_item(module, name, label, tip):
    if _is_thunar(module):  # Thunar's items have a tooltip and an icon
        return module.MenuItem(name=name, label=label, tooltip=tip, icon=None)
    return module.MenuItem(name=name, label=label, tip=tip)


def config_folders():
    """$XDG_CONFIG_HOME, then $XDG_CONFIG_DIRS: where a desktop's settings are looked up, in order."""
    return [_xdg_home("XDG_CONFIG_HOME", ".config")] + [d for d in (os.environ.get("XDG_CONFIG_DIRS") or "/etc/xdg").split(":") if os.path.isabs(d)]


def _data_folders():
    folders = (os.environ.get("XDG_DATA_DIRS") or "/usr/local/share:/usr/share").split(":")
    return [data_home()] + [d for d in folders if os.path.isabs(d)]


def _first_file(folders, name):
    return next((path for path in (os.path.join(f, name) for f in folders) if os.path.isfile(path)), None)


def _xfce_helper_works(category):
    """Whether exo-open --launch CATEGORY starts something: the program named in the first
    xfce4/helpers.rc that names one; through its helper description (xfce4/helpers/NAME.desktop,
    any of its X-XFCE-Binaries on PATH) where Xfce's settings installed xfce4-mime-helper, else
    exo runs the named program itself."""
    import shutil
    name = None
    for folder in config_folders():
        try:
            with open(os.path.join(folder, "xfce4", "helpers.rc"), encoding="utf-8", errors="replace") as stream:
                name = next((line.split("=", 1)[1].strip() for line in stream if line.startswith(category + "=")), None)
        except OSError:
            continue
        if name:
            break
    if not name:
        return False
    if not shutil.which("xfce4-mime-helper"):
        return shutil.which(name) is not None
    helper = _first_file(_data_folders(), os.path.join("xfce4", "helpers", name + ".desktop"))
    try:
        with open(helper or "", encoding="utf-8", errors="replace") as stream:
            binaries = next((line.split("=", 1)[1] for line in stream if line.startswith("X-XFCE-Binaries=")), "")
    except OSError:
        return False
    return any(shutil.which(binary.strip()) for binary in binaries.split(";") if binary.strip())


def thunar_terminal_action():
    """Thunar's own "Open Terminal Here" for folders, from the custom actions Thunar reads (the
    first Thunar/uca.xml of the settings folders): "works", "fails" when its command can start no
    terminal here, or None when there is none."""
    import shlex
    import shutil
    import xml.etree.ElementTree as ElementTree
    path = _first_file(config_folders(), os.path.join("Thunar", "uca.xml"))
    try:
        actions = ElementTree.parse(path).getroot().findall("action") if path else []
    except (OSError, ElementTree.ParseError):
        return None
    found = None
    for action in actions:
        names = [n.text for n in action.findall("name") if not n.attrib]
        command = (action.findtext("command") or "").strip()
        if action.find("directories") is None or not ("Open Terminal Here" in names or "TerminalEmulator" in command):
            continue
        try:
            words = shlex.split(command)
        except ValueError:
            words = []
        if "--launch" in words and "TerminalEmulator" in words:
            works = _xfce_helper_works("TerminalEmulator")
        else:
            works = bool(words) and shutil.which(words[0]) is not None
        found = "works" if works else found or "fails"
    return found


_thunar_terminal = {}  # the answer above, by the state of the files it read


def _thunar_has_working_terminal():
    files = [os.path.join(f, "Thunar", "uca.xml") for f in config_folders()]
    files += [os.path.join(f, "xfce4", "helpers.rc") for f in config_folders()]
    key = tuple(os.stat(p).st_mtime_ns if os.path.exists(p) else None for p in files) + (os.environ.get("PATH"),)
    if key not in _thunar_terminal:
        _thunar_terminal.clear()
        _thunar_terminal[key] = thunar_terminal_action() == "works"
    return _thunar_terminal[key]


def nemo_terminal_works():
    """Whether Nemo's own "Open in Terminal" can start the terminal that Cinnamon's settings name.
    A schema that is not installed is looked up first: asking GSettings for it would abort the
    file manager."""
    import shlex
    import shutil
    try:
        from gi.repository import Gio
        schema = "org.cinnamon.desktop.default-applications.terminal"
        source = Gio.SettingsSchemaSource.get_default()
        if source is None or source.lookup(schema, True) is None:
            return False
        words = shlex.split(Gio.Settings.new(schema).get_string("exec"))
    except Exception:
        return False
    return bool(words) and shutil.which(words[0]) is not None


def _own_terminal_works(module):
    if _is_thunar(module):
        return _thunar_has_working_terminal()
    return getattr(module, "__name__", "").endswith("Nemo") and nemo_terminal_works()


def build_menu(module, folder, name):
    """The "Brindlemark" menu entries for one folder, as the file manager's MenuItems. Without
    "Open Terminal Here" where the file manager's own terminal entry can start a terminal: Thunar's
    custom action of that name, Nemo's "Open in Terminal"."""
    new_file = _menu_item(module, name + "::NewFile", "New File", "New file from a template")
    submenu = module.Menu()
    (new_file.set_menu if hasattr(new_file, "set_menu") else new_file.set_submenu)(submenu)
    for index, record in enumerate(enabled_templates()):
        item = _menu_item(module, "%s::Template%d" % (name, index), _menu_title(record), "")
        item.connect("activate", lambda _item, r=record: open_url(command_url("template", folder, r)))
        submenu.append_item(item)
    if _own_terminal_works(module):
        return [new_file]
    terminal = _menu_item(module, name + "::Terminal", "Open Terminal Here", "")
    terminal.connect("activate", lambda _item: open_url(command_url("terminal", folder)))
    return [new_file, terminal]


def _file_manager_module():
    """The extension module of the file manager that loaded this file, found by its folder."""
    here = os.path.abspath(__file__)
    import gi
    for folder, name in (("nautilus-python", "Nautilus"), ("nemo-python", "Nemo"), ("caja-python", "Caja"),
                         ("thunarx-python", "Thunarx")):
        if folder in here:
            for version in ("4.0", "3.0", "2.0"):
                try:
                    gi.require_version(name, version)
                    break
                except ValueError:
                    continue
            return getattr(__import__("gi.repository", fromlist=[name]), name)
    return None


def _reload(window):
    """Reloads the folder a GTK 3 file manager's window shows, through its Ctrl+R; False once the
    window is gone."""
    try:
        if not window.get_visible():
            return False
        import gi
        gi.require_version("Gtk", "3.0")
        gi.require_version("Gdk", "3.0")
        from gi.repository import Gdk, Gtk
        Gtk.accel_groups_activate(window, Gdk.KEY_r, Gdk.ModifierType.CONTROL_MASK)
        return True
    except Exception:
        return False


def _reload_application_windows():
    """Reloads every window of a file manager that names no window to its extensions (Nautilus
    43 on): GTK exports each window's "reload" action on the session bus. Both calls are
    asynchronous, since they come back into this very process."""
    try:
        from gi.repository import Gio, GLib
        application = Gio.Application.get_default()
        bus, name = application.get_dbus_connection(), application.get_application_id()
        windows = application.get_dbus_object_path() + "/window"
    except Exception:
        return

    def reload_each(connection, result, _data):
        try:
            nodes = Gio.DBusNodeInfo.new_for_xml(connection.call_finish(result).unpack()[0]).nodes
        except Exception:
            return
        for node in nodes:
            connection.call(name, windows + "/" + node.path, "org.gtk.Actions", "Activate",
                            GLib.Variant("(sava{sv})", ("reload", [], {})), None, Gio.DBusCallFlags.NONE, -1, None, None, None)

    if bus is not None:
        bus.call(name, windows, "org.freedesktop.DBus.Introspectable", "Introspect", None, GLib.VariantType("(s)"),
                 Gio.DBusCallFlags.NONE, -1, None, reload_each, None)


def _make_provider(module):
    from gi.repository import GObject

    class BrindlemarkMenuProvider(GObject.GObject, module.MenuProvider):
        def __init__(self):
            super().__init__()
            self._windows = []  # the windows whose menus this provider filled
            self._passes_windows = False  # Nautilus 43 on names no window
            self._refresh_pending = False
            # The templates, and this file itself, whose removal takes the menus away.
            self._monitors = []
            try:
                from gi.repository import Gio
                for path in (templates_file(), os.path.abspath(__file__)):
                    monitor = Gio.File.new_for_path(path).monitor_file(Gio.FileMonitorFlags.NONE, None)
                    monitor.connect("changed", lambda *_: self._templates_changed())
                    self._monitors.append(monitor)
            except Exception:
                pass

        def _templates_changed(self):
            # One save is several file events: the menus are refreshed once, shortly after.
            if not self._refresh_pending:
                self._refresh_pending = True
                from gi.repository import GLib
                GLib.timeout_add(200, self._refresh_menus)

        def _refresh_menus(self):
            self._refresh_pending = False
            try:
                module.MenuProvider.emit_items_updated_signal(self)
            except Exception:
                pass
            # Nautilus, Nemo and Caja build a folder's background menu when they load the folder
            # and keep it, whatever the signal says: their folder windows are reloaded, as the
            # user's Reload (Ctrl+R) would, so that the next right-click is new.
            self._windows = [window for window in self._windows if _reload(window)]
            if not _is_thunar(module) and not self._passes_windows:
                _reload_application_windows()
            return False

        def _remember(self, window):
            self._passes_windows = self._passes_windows or window is not None
            # Thunar asks at every right-click: its windows need no reload.
            if window is not None and not _is_thunar(module) and not any(known is window for known in self._windows):
                self._windows.append(window)

        # Nautilus 43 and later pass (files) and (folder); older versions and Nemo and Caja
        # pass the window first.
        def get_file_items(self, *args):
            try:
                self._remember(args[0] if len(args) == 2 else None)
                files = args[-1]
                if len(files) != 1 or not _installed() or not can_open():
                    return []
                folder = _local_folder(files[0])
                return build_menu(module, folder, "BrindlemarkItem") if folder else []
            except Exception:
                return []

        def get_background_items(self, *args):
            try:
                self._remember(args[0] if len(args) == 2 else None)
                folder = _local_folder(args[-1]) if _installed() and can_open() else None
                return build_menu(module, folder, "BrindlemarkBackground") if folder else []
            except Exception:
                return []

        # Thunar's names for the same two menus.
        get_file_menu_items = get_file_items
        get_folder_menu_items = get_background_items

    return BrindlemarkMenuProvider


try:
    _module = _file_manager_module()
except Exception:
    _module = None
if _module is not None:
    BrindlemarkMenuProvider = _make_provider(_module)
