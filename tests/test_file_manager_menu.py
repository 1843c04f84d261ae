"""Brindlemark's Linux helpers without a desktop: the file managers' context menus (the python
extension driven through a stand-in for the file manager's module, Dolphin's service menu
validated and its command lines run), the install and uninstall steps, and the tool
brindlemark-open among fake terminals (brindlemark-killall is tst_front_folder's). The URLs the
menus would open are read back here, and one of them, run by the real launcher, creates its file through the
application."""

import base64, configparser, json, os, pathlib, re, runpy, shutil, signal, subprocess, sys, tempfile, time, types, unittest.mock
from urllib.parse import unquote, urlsplit

APPEX, LAUNCHER, TOOLS = (os.environ["BRINDLEMARK_" + n] for n in ("APPEX", "LAUNCHER", "TOOLS_SOURCE"))
AWKWARD_FOLDER, AWKWARD_TITLE = "a b 'q' \"dq\" & # % + ü ß", '<b>Bold</b> & $(touch pwned) "q" \\ `x` %s'
TEMPLATES = json.dumps([{"id": "text", "title": "Text File", "enabled": True, "executable": False}, {"title": "Hidden", "enabled": False}, {"title": "Null", "enabled": None},
                        {"id": "odd", "title": AWKWARD_TITLE, "prefix": "run", "suffix": "sh", "enabled": True, "executable": True}])
MENU_LABELS = ["New File", "Open Terminal Here", "Text File", AWKWARD_TITLE]  # the menu, then its New File submenu
OPENED_BY_TEMPLATES = [("template", "Text File", False), ("template", AWKWARD_TITLE, True)]  # kind, title, executable


def write(path, text, mode=0o644):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    pathlib.Path(path).write_text(text)
    os.chmod(path, mode)


def read(path):
    return pathlib.Path(path).read_text() if os.path.exists(path) else ""


def wait_for(condition, seconds=10):
    return any(condition() or time.sleep(0.02) for _ in range(int(seconds * 50)))


def fake_file(path):
    return types.SimpleNamespace(get_location=lambda: types.SimpleNamespace(get_path=lambda: path))


FAKE_PROGRAM = '#!/bin/sh\nprintf "%s|%s|%s\\n" "$(basename "$0")" "$PWD" "$*" >> "$HOME/launched"\n'  # "name|working folder|arguments"
OPEN, USAGE = ["-a", "Terminal", "{f}"], "Usage: brindlemark-open -a Terminal|iTerm|iTerm2 FOLDER\n"
TOOL_CASES = [  # brindlemark-TOOL, fakes on PATH, $TERMINAL, arguments, fails, output, what started ({b}: the fakes' folder)
    ("open", ["myterm", "x-terminal-emulator"], "myterm", OPEN, False, "", "myterm|{f}|"),
    ("open", ["x-terminal-emulator", "gnome-terminal"], "", OPEN, False, "", "x-terminal-emulator|{f}|"),
    ("open", ["xterm"], "gone", OPEN, False, "", "xterm|{f}|"),
    ("open", ["kitty", "x-terminal-emulator"], "{b}/kitty", ["-a", "iTerm2", "{f}"], False, "", "kitty|{f}|--directory {f}"),
    ("open", ["gnome-terminal", "konsole"], "", OPEN, False, "", "gnome-terminal|{f}|--working-directory={f}"),
    ("open", ["konsole", "kitty"], "", ["-a", "iTerm", "{f}"], False, "", "konsole|{f}|--workdir {f}"),
    ("open", ["wezterm", "foot"], "", OPEN, False, "", "wezterm|{f}|start --cwd {f}"),
    ("open", [], "", OPEN, True, "No terminal emulator was found. Install one (for example gnome-terminal, konsole or xterm) "
     "or name yours in the TERMINAL environment variable.\n", ""),
    ("open", ["xterm"], "", ["-a", "Safari", "{f}"], True, "Unable to find application named 'Safari'.\n", ""),
    ("open", ["xterm"], "", ["-a", "Terminal", "{b}/gone"], True, "The folder {b}/gone does not exist.\n", ""),
    *[("open", ["xterm"], "", bad, True, USAGE, "") for bad in ([], ["Terminal"], ["-b", "Terminal", "{f}"], OPEN + ["x"])],
]


APP, APPEX_IN_PACKAGE = "org.brindlemark.Brindlemark", "usr/libexec/brindlemark/PlugIns/BrindlemarkFinderSync.appex/"
PACKAGE_FILES = {  # a package that passes the content check: path -> (text, mode)
    **{path: ("#!/bin/sh\n", 0o755) for path in ["usr/bin/brindlemark"] + ["usr/libexec/brindlemark/brindlemark-" + tool for tool in
       ("app", "pluginkit", "open", "killall", "doctor")] + [APPEX_IN_PACKAGE + step for step in ("install", "uninstall", "brindlemark-menu-action")]},
    **{path: ("x", 0o644) for path in [APPEX_IN_PACKAGE + name for name in ("Info.ini", "brindlemark_menu.py", "default-templates.json")] +
       ["usr/share/doc/brindlemark/copyright", f"usr/share/icons/hicolor/scalable/apps/{APP}.svg", f"usr/share/icons/hicolor/scalable/apps/{APP}-symbolic.svg"] +
       [f"usr/share/icons/hicolor/{n}x{n}/apps/{APP}.png" for n in (16, 22, 24, 32, 48, 64, 128, 256)]},
    f"usr/share/applications/{APP}.desktop": ("[Desktop Entry]\nType=Application\nTryExec=/usr/bin/brindlemark\nExec=/usr/bin/brindlemark %U\n"
                                              "MimeType=x-scheme-handler/brindlemark;\n", 0o644),
    f"etc/xdg/autostart/{APP}.desktop": ("[Desktop Entry]\nType=Application\nTryExec=/usr/bin/brindlemark\nExec=/usr/bin/brindlemark --background\n", 0o644),
    "DEBIAN/conffiles": (f"/etc/xdg/autostart/{APP}.desktop\n", 0o644),
    "DEBIAN/control": ("Package: brindlemark\nVersion: 0.1.0\nArchitecture: all\nMaintainer: B <b@example.org>\nDescription: b\n"
                       "Depends: qt6-qpa-plugins, python3, xdg-utils, desktop-file-utils, libqt6widgets6 (>= 6.3.0)\n", 0o644),
}
BROKEN_PACKAGES = [  # what is changed in that package ({path: text, or None: removed; "mode": {path: mode}}), what the check says
    ({f"usr/share/applications/{APP}.desktop": "[Desktop Entry]\nExec=/usr/bin/brindlemark %U\nTryExec=/usr/bin/brindlemark\n"},
     f"/usr/share/applications/{APP}.desktop lacks the line MimeType=x-scheme-handler/brindlemark;"),
    ({f"etc/xdg/autostart/{APP}.desktop": "[Desktop Entry]\nType=Application\nTryExec=/usr/bin/brindlemark\nExec=/usr/bin/brindlemark\n"},
     f"/etc/xdg/autostart/{APP}.desktop lacks the line Exec=/usr/bin/brindlemark --background"),
    ({"DEBIAN/conffiles": None}, f"/etc/xdg/autostart/{APP}.desktop is not a conffile"),
    ({"mode": {"usr/bin/brindlemark": 0o644}}, "no program /usr/bin/brindlemark"),
    ({APPEX_IN_PACKAGE + "brindlemark_menu.py": None}, f"no file /{APPEX_IN_PACKAGE}brindlemark_menu.py"),
    ({"work/build-package/usr/bin/brindlemark": "x"}, "installs /work/ outside /usr and /etc"),
    ({"DEBIAN/control": PACKAGE_FILES["DEBIAN/control"][0].replace(" python3,", " python3-gi,")}, "does not depend on python3"),
]


class MenuItem(types.SimpleNamespace):
    """Stands in for the file manager's MenuItem (Nautilus, Nemo or Caja): keeps what the extension sets."""
    set_submenu = lambda self, menu: setattr(self, "submenu", menu)
    connect = lambda self, signal, handler: setattr(self, "activate", (lambda: handler(self)) if signal == "activate" else None)


class ThunarMenuItem(MenuItem):
    """Thunar's MenuItem: a tooltip and an icon, and set_menu for the submenu."""
    __init__ = lambda self, name, label, tooltip, icon: MenuItem.__init__(self, name=name, label=label)
    set_menu, set_submenu = MenuItem.set_submenu, property()


class FileManagerMenuTest(unittest.TestCase):
    """Every test: a temporary HOME and XDG folders, and a URL opener that writes the URLs down."""

    def setUp(self):
        self.home = self.enterContext(tempfile.TemporaryDirectory(ignore_cleanup_errors=True))
        xdg = {"XDG_" + name: os.path.join(self.home, name.lower()) for name in ("DATA_HOME", "CONFIG_HOME", "RUNTIME_DIR", "CONFIG_DIRS", "DATA_DIRS")}
        self.enterContext(unittest.mock.patch.dict(os.environ, xdg, HOME=self.home, BRINDLEMARK_URL_OPENER=self.home + "/opener"))
        write(self.home + "/opener", '#!/bin/sh\nprintf "%s\\n" "$1" >> "$HOME/opened"\n', 0o755)
        write(self.home + "/xdg-open", "#!/bin/sh\n", 0o755)  # the file manager showing a new file
        self.data, self.folder = xdg["XDG_DATA_HOME"], os.path.join(self.home, AWKWARD_FOLDER)
        self.templates = self.data + "/org.brindlemark.Brindlemark.BrindlemarkFinderSync/Templates.json"
        [os.makedirs(folder, 0o700) for folder in (self.folder, xdg["XDG_RUNTIME_DIR"])]
        write(self.templates, TEMPLATES)

    def assertOpened(self, expected):
        """The URLs opened so far, as the application reads them: (kind, title, executable), all in the folder."""
        urls = lambda: read(self.home + "/opened").splitlines()
        query = lambda url: {name: unquote(value) for name, value in (item.split("=", 1) for item in urlsplit(url).query.split("&"))}
        opened = lambda url: (urlsplit(url).netloc, query(url)["path"], json.loads(base64.b64decode(query(url).get("payload", "e30="), validate=True)))
        read_back = [opened(url) for url in urls()] if wait_for(lambda: len(urls()) >= len(expected)) else []
        # Every query value percent-encoded: URL handlers differ in what they make of a raw "+", "/" or "=".
        [self.assertRegex(url, r"^brindlemark://[a-z]+\?path=[A-Za-z0-9_.~/%-]+(&payload=[A-Za-z0-9%]+)?$") for url in urls()]
        self.assertCountEqual([(kind, folder, record.get("title"), record.get("executable")) for kind, folder, record in read_back],
                              [(kind, self.folder, *more) for kind, *more in expected])

    def load_extension(self, manager, name, signalled=None, **gi):
        """The extension as the file manager loads it: from its own extensions folder, through gi (here and in `gi`)."""
        provider = type("MenuProvider", (), {"emit_items_updated_signal": staticmethod(signalled or (lambda provider: None))})
        module = types.SimpleNamespace(MenuProvider=provider, Menu=type("Menu", (list,), {"append_item": list.append}), __name__="gi.repository." + name,
                                       MenuItem=ThunarMenuItem if name == "Thunarx" else MenuItem)
        repository = types.SimpleNamespace(GObject=unittest.mock.Mock(GObject=type("GObject", (), {})), **{name: module}, **gi)
        self.enterContext(unittest.mock.patch.dict(sys.modules, {"gi": unittest.mock.Mock(), "gi.repository": repository}))
        write(f"{self.data}/{manager}/extensions/brindlemark_menu.py", read(APPEX + "/brindlemark_menu.py"))
        return runpy.run_path(f"{self.data}/{manager}/extensions/brindlemark_menu.py")["BrindlemarkMenuProvider"]()

    def test_python_extension_menus(self):
        for manager, name in (("nautilus-python", "Nautilus"), ("nemo-python", "Nemo"), ("caja-python", "Caja"), ("thunarx-python", "Thunarx")):
            p, f = self.load_extension(manager, name), fake_file(self.folder)
            # Nautilus 43 and later pass (folder) and (files); older ones, Nemo and Caja pass the window first; Thunar
            # has its own names for them.
            menus = ([p.get_folder_menu_items(None, f), p.get_file_menu_items(None, [f])] if name == "Thunarx" else
                     [p.get_background_items(f), p.get_background_items(None, f), p.get_file_items([f]), p.get_file_items(None, [f])])
            self.assertEqual([[i.label for i in m + m[0].submenu] for m in menus], len(menus) * [MENU_LABELS], manager)
        [item.activate() for item in menus[0][0].submenu + menus[0][1:]]
        self.assertOpened(OPENED_BY_TEMPLATES + [("terminal", None, None)])
        # Not one folder, or no local one: no menu at all.
        for files in ([self.templates], [self.folder] * 2, [], [self.home + "/gone"], [None]):
            self.assertEqual(p.get_file_items([fake_file(path) for path in files]), [])
        for text in (None, "", "{broken", "null", '[1, "x", null, [{"title": "T", "enabled": true}]]'):
            os.remove(self.templates) if text is None else write(self.templates, text)
            self.assertEqual(p.get_background_items(fake_file(self.folder))[0].submenu, [], text)
        # Nothing stored yet: the built-in templates that install copied; a broken stored list still gives none.
        defaults = json.loads(read(APPEX + "/default-templates.json"))
        write(self.data + "/brindlemark/default-templates.json", json.dumps(defaults))
        built_in = [r["title"] for r in defaults if r["enabled"]]
        for text, titles in ((None, built_in), ("{broken", [])):
            os.remove(self.templates) if text is None else write(self.templates, text)
            self.assertEqual([i.label for i in p.get_background_items(fake_file(self.folder))[0].submenu], titles)
        self.assertTrue(built_in)
        # Disabled: the file is gone, the file manager still has the module loaded, the menus go.
        os.remove(f"{self.data}/thunarx-python/extensions/brindlemark_menu.py")
        self.assertEqual(p.get_background_items(fake_file(self.folder)) + p.get_file_items([fake_file(self.folder)]), [])

    def test_menus_do_nothing_once_brindlemark_is_gone(self):
        """The extension stays in the user's folder when Brindlemark is removed: with neither the recorded launcher nor a
        desktop handler for brindlemark:// URLs it shows no menu, and an entry shown before that opens nothing (GIO would
        make the file manager show an error)."""
        launcher, ns, os.environ["BRINDLEMARK_URL_OPENER"] = self.home + "/bin/brindlemark", types.SimpleNamespace, ""
        write(self.data + "/brindlemark/launcher", launcher + "\n")
        rows = [  # the launcher's mode (None: gone), a handler, the menu shown, what a click reaches
            (0o755, False, True, "launcher"), (0o755, True, True, "launcher"), (None, True, True, "handler"),
            (None, False, False, None), (0o644, False, False, None), (0o644, True, True, "handler"),
        ]
        for mode, handler, shown, reached in rows:
            with self.subTest(mode=mode, handler=handler):
                opened = []
                write(launcher, '#!/bin/sh\nprintf "%s\\n" "$1" >> "$HOME/opened"\n', mode) if mode else pathlib.Path(launcher).unlink(missing_ok=True)
                gio = ns(AppInfo=ns(get_default_for_uri_scheme=lambda scheme: (scheme == "brindlemark" and handler) or None,
                                    launch_default_for_uri_async=lambda url, *_: opened.append(url)))
                p = self.load_extension("nautilus-python", "Nautilus", Gio=gio)
                menu = p.get_background_items(fake_file(self.folder)) + p.get_file_items([fake_file(self.folder)])
                self.assertEqual([i.label for i in menu], ["New File", "Open Terminal Here"] * 2 if shown else [])
                [item.activate() for item in menu[1:2]]
                wait_for(lambda: read(self.home + "/opened"), 2 if reached == "launcher" else 0)
                launched = read(self.home + "/opened").splitlines()
                pathlib.Path(self.home + "/opened").unlink(missing_ok=True)
                self.assertEqual(("launcher" if launched else "handler" if opened else None, len(launched + opened)),
                                 (reached, 1 if reached else 0))
        # Shown while the launcher was there, clicked after it went: nothing is opened and nothing is raised.
        write(launcher, "#!/bin/sh\n", 0o755)
        p = self.load_extension("nautilus-python", "Nautilus", Gio=ns(AppInfo=ns(get_default_for_uri_scheme=lambda _: None,
                                                                                    launch_default_for_uri_async=lambda url, *_: opened.append(url))))
        (_, terminal), _, opened = p.get_background_items(fake_file(self.folder)), os.remove(launcher), []
        terminal.activate()
        self.assertEqual(opened, [])

    def test_terminal_entry_left_out_only_beside_a_working_one(self):
        """Thunar's custom actions come from the first Thunar/uca.xml of the settings folders; its terminal action runs
        exo-open, which starts the program that the first xfce4/helpers.rc naming one names, or, with Xfce's settings
        (xfce4-mime-helper), one of the binaries of that helper's description."""
        config, system, data = os.environ["XDG_CONFIG_HOME"], os.environ["XDG_CONFIG_DIRS"], os.environ["XDG_DATA_DIRS"]
        exo = "exo-open --working-directory %f --launch TerminalEmulator"
        action = lambda name, command, folders=True: (f"<actions><action><name>{name}</name><name xml:lang='de'>x</name><command>{command}"
                                                       f"</command><patterns>*</patterns>{'<directories/>' * folders}</action></actions>")
        rows = [  # uca.xml files {folder: text}, helpers.rc {folder: text}, programs on PATH, Thunar's action, ours shown
            ({}, {}, ["myterm"], None, True),
            ({system: action("Open Terminal Here", exo)}, {}, ["myterm"], "fails", True),
            ({system: action("Open Terminal Here", exo)}, {system: "X=1\nTerminalEmulator=myterm\n"}, ["myterm"], "works", False),
            ({system: action("Terminal", exo)}, {config: "TerminalEmulator=gone\n", system: "TerminalEmulator=myterm\n"}, ["myterm"], "fails", True),
            ({system: action("Open Terminal Here", exo)}, {system: "TerminalEmulator=mine\n"}, ["myterm", "xfce4-mime-helper"], "works", False),
            ({system: action("Open Terminal Here", exo)}, {system: "TerminalEmulator=mine\n"}, ["xfce4-mime-helper"], "fails", True),
            ({system: action("Open Terminal Here", "myterm --here %f")}, {}, ["myterm"], "works", False),
            ({system: action("Open Terminal Here", "myterm --here %f", folders=False)}, {}, ["myterm"], None, True),
            ({config: action("Say Hello", "true"), system: action("Open Terminal Here", "myterm")}, {}, ["myterm"], None, True),
            ({config: "<actions><action>", system: action("Open Terminal Here", "myterm")}, {}, ["myterm"], None, True),
        ]
        p, bindir = self.load_extension("thunarx-python", "Thunarx"), self.home + "/bin"
        write(data + "/xfce4/helpers/mine.desktop", "[Desktop Entry]\nX-XFCE-Binaries=gone;myterm;\n")
        for uca, helpers, programs, state, ours in rows:
            shutil.rmtree(bindir, ignore_errors=True)
            [write(f"{bindir}/{name}", "#!/bin/sh\n", 0o755) for name in programs]
            [os.remove(f) for folder in (config, system) for f in (f"{folder}/Thunar/uca.xml", f"{folder}/xfce4/helpers.rc") if os.path.exists(f)]
            [write(f"{folder}/Thunar/uca.xml", text) for folder, text in uca.items()]
            [write(f"{folder}/xfce4/helpers.rc", text) for folder, text in helpers.items()]
            with self.subTest(uca=uca, helpers=helpers, programs=programs), unittest.mock.patch.dict(os.environ, PATH=bindir):
                menu = p.get_folder_menu_items(None, fake_file(self.folder))
                self.assertEqual((type(p).get_background_items.__globals__["thunar_terminal_action"](), [i.label for i in menu]),
                                 (state, ["New File"] + ["Open Terminal Here"] * ours))
        # Nemo's "Open in Terminal" starts what Cinnamon's settings name; without its schema, GSettings is never asked.
        ns = types.SimpleNamespace
        for schema, command, ours in ((True, "myterm --x", False), (True, "gone", True), (True, "", True), (False, "myterm", True)):
            asked, name = [], "org.cinnamon.desktop.default-applications.terminal"
            settings = ns(new=lambda schema_id: asked.append(schema_id) or ns(get_string={"exec": command}.get))
            gio = ns(SettingsSchemaSource=ns(get_default=lambda: ns(lookup=lambda schema_id, recursive: schema or None)), Settings=settings)
            p = self.load_extension("nemo-python", "Nemo", Gio=gio)
            with unittest.mock.patch.dict(os.environ, PATH=bindir):
                self.assertEqual(([i.label for i in p.get_background_items(fake_file(self.folder))], set(asked)),
                                 (["New File"] + ["Open Terminal Here"] * ours, {name} if schema else set()))

    def test_menus_follow_template_changes(self):
        """Nemo keeps a folder's menu: a save (several file events) signals once and reloads each window still open."""
        ns, events = types.SimpleNamespace, []
        record = lambda *event: events.append(event)
        watch = lambda path: ns(monitor_file=lambda *_: ns(connect=lambda _signal, handler: record("watch", path, handler)))
        p = self.load_extension("nemo-python", "Nemo", lambda provider: record("signal"), Gio=ns(File=ns(new_for_path=watch), FileMonitorFlags=ns(NONE=0)),
                                GLib=ns(timeout_add=lambda _ms, refresh: record("timer", refresh)), Gdk=ns(KEY_r="r", ModifierType=ns(CONTROL_MASK="ctrl")),
                                Gtk=ns(accel_groups_activate=lambda window, key, mods: record("key", window.name, key, mods)))
        windows = [ns(name=name, get_visible=lambda open=open: open) for name, open in (("open", True), ("closed", False))]
        [p.get_background_items(window, fake_file(self.folder)) for window in windows + windows]
        watches = {path: changed for kind, path, changed, *_ in events if kind == "watch"}
        path, changed = self.templates, watches[self.templates]
        # Its own file is watched too: removing it (disabling) refreshes the menus as well.
        self.assertEqual(set(watches), {path, self.data + "/nemo-python/extensions/brindlemark_menu.py"})
        [changed() for _ in range(3)]
        (_, refresh), = [event for event in events if event[0] == "timer"]
        # After the refresh, the next save is followed again.
        self.assertEqual((path, refresh(), [event for event in events if event[0] in ("signal", "key")], changed(), [e[0] for e in events].count("timer")),
                         (self.templates, False, [("signal",), ("key", "open", "r", "ctrl")], None, 2))

    def run_entry(self, entry):
        """Runs an entry's Exec line as a desktop launcher does, with the folder for %f: first the string value's
        escapes, then the quoting (in double quotes a backslash escapes ", `, $ and itself), then the field codes
        (%% is a percent sign, other ones than %f are dropped)."""
        value = re.sub(r"\\(.)", lambda m: {"s": " ", "n": "\n", "t": "\t", "r": "\r"}.get(m[1], m[1]), entry["Exec"])
        words = [re.sub(r"\\(.)", r"\1", quoted) if quoted else word for quoted, word in re.findall(r'"((?:[^"\\]|\\.)*)"|(\S+)', value)]
        subprocess.run([self.folder if w == "%f" else re.sub("%(.)", lambda m: m[1] if m[1] == "%" else "", w) for w in words], check=True)

    def test_dolphin_service_menu(self):
        # Run from a folder whose name the Exec lines must quote and escape.
        helper = shutil.copytree(APPEX, self.home + "/an 'extension' \"$HOME\" `x` %d") + "/brindlemark-menu-action"
        for templates, actions in (("[]", [("none", "No Templates Enabled", None)]), (TEMPLATES, [("template0", "Text File", "text-x-generic"),
                                   ("template1", AWKWARD_TITLE.replace("\\", "\\\\"), "utilities-terminal")])):  # Name: a string value, escaped
            with self.subTest(templates=templates):
                write(self.templates, templates)
                path = subprocess.check_output([helper, "write-service-menu"], text=True).strip()  # where: see the install test
                result = subprocess.run(["desktop-file-validate", path], capture_output=True, text=True)
                # Dolphin runs only service menus that are executable.
                self.assertEqual((result.returncode, os.access(path, os.X_OK)), (0, True), result.stdout + result.stderr)
                (menu := configparser.RawConfigParser(strict=False)).read(path)
                entries = {name: menu["Desktop Action " + name] for name in menu["Desktop Entry"]["Actions"].split(";")[:-1]}
                self.assertEqual([(name, entry["Name"], entry.get("Icon")) for name, entry in entries.items()], actions)
                # Dolphin leaves the menu out once the program its entries run is gone.
                self.assertEqual(menu["Desktop Entry"]["TryExec"], helper)
                [self.run_entry(entry) for entry in entries.values()]
        self.assertOpened(OPENED_BY_TEMPLATES)  # "none" ran first and opened nothing; no launcher recorded: through the helper
        # With the launcher that install records, an entry runs it alone, and the file appears through the application.
        lock = os.environ["XDG_RUNTIME_DIR"] + "/org.brindlemark.Brindlemark.socket.lock"
        write(self.data + "/brindlemark/launcher", LAUNCHER + "\n")
        os.environ.update(QT_QPA_PLATFORM="offscreen", PATH=self.home + ":" + os.environ["PATH"])
        [os.environ.pop(name, None) for name in ("DBUS_SESSION_BUS_ADDRESS", "BRINDLEMARK_URL_OPENER")]
        # Stops the instance the launcher starts in the background: its pid heads the lock file.
        self.addCleanup(lambda: wait_for(lambda: read(lock).strip(), 2) and os.kill(int(read(lock).split()[0]), signal.SIGKILL))
        menu.read(subprocess.check_output([helper, "write-service-menu"], text=True).strip())
        self.assertEqual((menu["Desktop Entry"]["TryExec"], menu["Desktop Action template1"]["Exec"].startswith(LAUNCHER + " --in %f ")),
                         (LAUNCHER, True))
        self.run_entry(menu["Desktop Action template1"])
        self.assertTrue(wait_for(lambda: os.access(self.folder + "/run.sh", os.X_OK)))
        self.assertFalse(os.path.exists(self.folder + "/pwned"))
        # With the instance running, the Python menus hand their URL straight to it, starting no program: here no
        # launcher is left to start.
        write(self.data + "/brindlemark/launcher", "/nonexistent\n")
        menus = runpy.run_path(APPEX + "/brindlemark_menu.py")
        menus["open_url"](menus["command_url"]("create", self.folder))
        self.assertTrue(wait_for(lambda: os.path.exists(self.folder + "/New Text File.txt")))

    def test_install_uninstall(self):
        files = lambda: {os.path.join(folder, name) for folder, _, names in os.walk(self.home) for name in names}
        outside = [self.data + "/../outside", self.data + "/x/../../outside2", self.data + "2/outside", self.home + "/outside3"]
        [write(path, "") for path in outside + [self.data + "/nautilus-python/extensions/someone-else.py", self.data + "/x/y"]]
        before, manifest = files(), self.data + "/brindlemark/installed-integration"
        # GNOME Shell's list of enabled extensions, kept by a stand-in gsettings outside the home.
        bindir, shell = tempfile.mkdtemp(), "front-window@brindlemark.org"
        self.addCleanup(shutil.rmtree, bindir)
        write(bindir + "/gsettings", f'#!/bin/sh\n[ "$1" = get ] && cat {bindir}/list || printf "%s" "$4" >{bindir}/list\n', 0o755)
        for listed, enabled in (("['other@x.org']", f"['other@x.org', '{shell}']"), ("@as []", f"['{shell}']"),
                                (f"['{shell}', 'other@x.org']", f"['{shell}', 'other@x.org']")):
            write(bindir + "/list", listed)
            # With no launcher named, install records the one beside the bundle, as it finds it in the build tree.
            subprocess.run([APPEX + "/install"], check=True, env=dict(os.environ, BRINDLEMARK_LAUNCHER="", PATH=bindir + ":" + os.environ["PATH"],
                           BRINDLEMARK_FILE_MANAGERS="nautilus nemo caja thunar dolphin gnome-shell"))
            installed = {f"{self.data}/{m}-python/extensions/brindlemark_menu.py" for m in ("nautilus", "nemo", "caja", "thunarx")}
            installed |= {self.data + "/kio/servicemenus/brindlemark-new-file.desktop", self.data + "/brindlemark/launcher",
                          self.data + "/brindlemark/default-templates.json"}
            installed |= {f"{self.data}/gnome-shell/extensions/{shell}/{name}" for name in ("metadata.json", "extension.js")}
            self.assertEqual((set(read(manifest).splitlines()), files() - before, read(self.data + "/brindlemark/launcher"), read(bindir + "/list")),
                             (installed, installed | {manifest}, os.path.realpath(LAUNCHER) + "\n", enabled))
            write(manifest, "".join(path + "\n" for path in read(manifest).splitlines() + outside))  # listed, yet never deleted
            subprocess.run([APPEX + "/uninstall"], check=True, env=dict(os.environ, PATH=bindir + ":" + os.environ["PATH"]))
            self.assertEqual((files(), os.path.exists(f"{self.data}/gnome-shell/extensions/{shell}"), read(bindir + "/list")),
                             (before, False, listed.replace(f"'{shell}', ", "") if shell in listed else listed))

    def test_package_content_check(self):
        """scripts/package.sh --contents, which CI runs on the real package: a package with everything passes, and each
        piece missing or wrong fails it, named."""
        script = pathlib.Path(__file__).resolve().parent.parent / "scripts" / "package.sh"
        for change, problem in [({}, None)] + BROKEN_PACKAGES:
            with self.subTest(change=change):
                tree, deb = tempfile.mkdtemp(dir=self.home), self.home + "/brindlemark.deb"
                files = {**PACKAGE_FILES, **{path: (text, 0o644) for path, text in change.items() if path != "mode"}}
                for path, (text, mode) in files.items():
                    text is None or write(f"{tree}/{path}", text, change.get("mode", {}).get(path, mode))
                subprocess.run(["dpkg-deb", "--root-owner-group", "-Zgzip", "--build", tree, deb], check=True, capture_output=True)
                result = subprocess.run(["bash", script, "--contents", deb], capture_output=True, text=True)
                said = [line.split(": ", 2)[-1] for line in result.stderr.splitlines()]
                self.assertEqual((result.returncode, said if not problem else problem in said), (1, True) if problem else (0, ["contents as expected"]))

    def test_autostart_entry_where_the_installing_user_finds_it(self):
        """cmake --install puts the autostart entry in the user's own folder for a prefix inside their home, else in
        /etc/xdg/autostart (here always under a DESTDIR); an entry that differs is kept unless the install is staged."""
        script = pathlib.Path(__file__).resolve().parent.parent / "packaging" / "linux" / "InstallAutostart.cmake"
        entry, h, stage, name = self.home + "/entry.desktop", self.home, self.home + "/stage", "/autostart/org.brindlemark.Brindlemark.desktop"
        write(entry, "[Desktop Entry]\nExec=/x/bin/brindlemark --background\n")
        rows = [  # prefix, XDG_CONFIG_HOME, DESTDIR, an entry there already {path: text}, where the entry is then (its text: the entry's)
            (h + "/.local", "", "", {}, h + "/.config" + name),
            (h + "/.local/", h + "/cfg", "", {}, h + "/cfg" + name),
            (h, "relative", "", {}, h + "/.config" + name),
            (h + "/.local", "", "", {h + "/.config" + name: "[Desktop Entry]\nHidden=true\n"}, None),
            (h + "2/.local", "", stage, {}, stage + "/etc/xdg" + name),  # beside the home, not in it
            ("/usr", "", stage, {stage + "/etc/xdg" + name: "old\n"}, stage + "/etc/xdg" + name),
            (h + "/.local", "", stage, {}, stage + h + "/.config" + name),
        ]
        for prefix, config, destdir, existing, target in rows:
            with self.subTest(prefix=prefix, config=config, destdir=destdir, existing=existing):
                [shutil.rmtree(f, ignore_errors=True) for f in (h + "/.config", h + "/cfg", stage)]
                [write(path, text) for path, text in existing.items()]
                before = {path: read(path) for path in existing}
                environment = dict(os.environ, HOME=h + "/", XDG_CONFIG_HOME=config, DESTDIR=destdir)
                subprocess.run(["cmake", f"-DCMAKE_INSTALL_PREFIX={prefix}", f"-Dentry={entry}", f"-Dname={name[11:]}", "-P", script],
                               check=True, capture_output=True, env=environment)
                entries = {f: read(f) for f in map(str, pathlib.Path(h).rglob("*.desktop")) if f != entry}
                self.assertEqual(entries, {target: read(entry)} if target else before)

    def test_tools_among_fake_terminals_and_file_managers(self):
        for tool, fakes, terminal, arguments, fails, output, started in TOOL_CASES:
            with self.subTest(tool=tool, fakes=fakes, terminal=terminal, arguments=arguments):
                # PATH holds the fakes and the few commands the tools need: nothing real can start.
                bindir, fill = tempfile.mkdtemp(dir=self.home), lambda text: text.format(f=self.folder, b=bindir)
                [os.symlink(shutil.which(name), f"{bindir}/{name}") for name in ("sh", "setsid", "basename", "nohup", "id")]
                [write(f"{bindir}/{name}", FAKE_PROGRAM, 0o755) for name in fakes]
                result = subprocess.run([f"{TOOLS}/brindlemark-{tool}"] + [fill(a) for a in arguments], cwd=bindir, capture_output=True,
                                        text=True, env={"PATH": bindir, "HOME": bindir, **({"TERMINAL": fill(terminal)} if terminal else {})})
                wait_for(lambda: read(bindir + "/launched").endswith("\n"), 5 if started else 0.3)
                self.assertEqual((result.returncode != 0, result.stdout, read(bindir + "/launched").strip()), (fails, fill(output), fill(started)))
