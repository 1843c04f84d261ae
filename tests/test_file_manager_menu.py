"""Brindlemark's context menus for the Linux file managers, without a file manager: the python
extension driven through a stand-in for the file manager's module, Dolphin's service menus
validated and their command lines run, and the install and uninstall steps. The URLs the menus
would open are read back with the application's own parser (url_probe)."""

import base64
import configparser
import importlib.util
import json
import os
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import types
import unittest

APPEX = os.environ["BRINDLEMARK_APPEX"]
URL_PROBE = os.environ["BRINDLEMARK_URL_PROBE"]
LAUNCHER = os.environ["BRINDLEMARK_LAUNCHER"]
EXTENSION_ID = "org.brindlemark.Brindlemark.BrindlemarkFinderSync"
AWKWARD_FOLDER = "a b 'q' \"dq\" & # % + ü ß"
AWKWARD_TITLE = '<b>Bold</b> & $(touch pwned) "q" \\ `x` %s'


def probe(url):
    return json.loads(subprocess.run([URL_PROBE, url], check=True, capture_output=True, text=True).stdout)


class FakeModule:
    """Stands in for gi.repository.Nautilus (or Nemo, Caja): records what the menu builds."""

    class MenuProvider:
        pass

    class Menu:
        def __init__(self):
            self.items = []

        def append_item(self, item):
            self.items.append(item)

    class MenuItem:
        def __init__(self, name, label, tip):
            self.name, self.label, self.submenu, self.handlers = name, label, None, []

        def set_submenu(self, menu):
            self.submenu = menu

        def connect(self, signal_name, handler):
            self.handlers.append((signal_name, handler))

        def activate(self):
            for signal_name, handler in self.handlers:
                if signal_name == "activate":
                    handler(self)


class FakeLocation:
    def __init__(self, path):
        self.path = path

    def get_path(self):
        return self.path


class FakeFile:
    def __init__(self, path):
        self.location = FakeLocation(path)

    def get_location(self):
        return self.location


class Home(unittest.TestCase):
    """Every test: a temporary HOME, its own data folder and a URL opener that writes down URLs."""

    def setUp(self):
        self.home = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.home, True)
        self.data = os.path.join(self.home, "data")
        self.environ = dict(os.environ, HOME=self.home, XDG_DATA_HOME=self.data,
                            XDG_CONFIG_HOME=os.path.join(self.home, "config"))
        self.opened = os.path.join(self.home, "opened")
        opener = os.path.join(self.home, "opener")
        with open(opener, "w") as stream:
            stream.write('#!/bin/sh\nprintf "%%s\\n" "$1" >> "%s"\n' % self.opened)
        os.chmod(opener, 0o755)
        self.environ["BRINDLEMARK_URL_OPENER"] = opener
        self.old_environ = dict(os.environ)
        os.environ.clear()
        os.environ.update(self.environ)
        self.addCleanup(lambda: (os.environ.clear(), os.environ.update(self.old_environ)))
        self.folder = os.path.join(self.home, AWKWARD_FOLDER)
        os.makedirs(self.folder)

    def write_templates(self, text):
        path = os.path.join(self.data, EXTENSION_ID, "Templates.json")
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as stream:
            stream.write(text)

    def opened_urls(self, count):
        for _ in range(200):
            if os.path.exists(self.opened):
                with open(self.opened, encoding="utf-8") as stream:
                    lines = stream.read().splitlines()
                if len(lines) >= count:
                    return lines
            time.sleep(0.02)
        self.fail("the menu opened fewer than %d URLs" % count)


TEMPLATES = json.dumps([
    {"id": "text", "title": "Text File", "prefix": "New Text File", "suffix": "txt", "enabled": True, "executable": False},
    {"id": "off", "title": "Hidden", "prefix": "h", "suffix": "", "enabled": False, "executable": False},
    {"id": "odd", "title": AWKWARD_TITLE, "prefix": "run", "suffix": "sh", "enabled": True, "executable": True},
])


class PythonExtensionTest(Home):
    def load_extension(self):
        folder = os.path.join(self.home, "nautilus-python", "extensions")
        os.makedirs(folder)
        shutil.copy(os.path.join(APPEX, "brindlemark_menu.py"), folder)
        gi = types.ModuleType("gi")
        gi.require_version = lambda name, version: None
        repository = types.ModuleType("gi.repository")
        repository.Nautilus = FakeModule
        repository.GObject = types.SimpleNamespace(GObject=type("GObject", (), {}))
        gi.repository = repository
        saved = {name: sys.modules.get(name) for name in ("gi", "gi.repository", "gi.repository.GObject")}
        sys.modules.update({"gi": gi, "gi.repository": repository, "gi.repository.GObject": repository.GObject})
        self.addCleanup(lambda: [sys.modules.pop(n, None) if m is None else sys.modules.__setitem__(n, m)
                                 for n, m in saved.items()])
        found = importlib.util.spec_from_file_location("brindlemark_menu_under_test",
                                                      os.path.join(folder, "brindlemark_menu.py"))
        module = importlib.util.module_from_spec(found)
        found.loader.exec_module(module)
        return module.BrindlemarkMenuProvider()

    def test_background_menu_opens_urls_the_application_reads_back(self):
        self.write_templates(TEMPLATES)
        provider = self.load_extension()
        for arguments in ((FakeFile(self.folder),), (None, FakeFile(self.folder))):  # new and old signatures
            new_file, terminal = provider.get_background_items(*arguments)
            self.assertEqual([new_file.label, terminal.label], ["New File", "Open Terminal Here"])
            self.assertEqual([i.label for i in new_file.submenu.items], ["Text File", AWKWARD_TITLE])
        new_file.submenu.items[1].activate()
        terminal.activate()
        # Each entry starts its own opener: the two may write in either order.
        urls = self.opened_urls(2)
        template_url = next(u for u in urls if u.startswith("brindlemark://template?"))
        terminal_url = next(u for u in urls if u.startswith("brindlemark://terminal?"))
        read = probe(template_url)
        self.assertEqual((read["kind"], read["folder"]), ("template", self.folder))
        self.assertEqual(read["record"]["title"], AWKWARD_TITLE)
        self.assertEqual(read["record"]["executable"], True)
        self.assertEqual(probe(terminal_url), {"kind": "terminal", "folder": self.folder, "record": {}})
        self.assertFalse(os.path.exists(os.path.join(self.folder, "pwned")))

    def test_folder_items_and_other_selections(self):
        self.write_templates(TEMPLATES)
        provider = self.load_extension()
        self.assertEqual(len(provider.get_file_items([FakeFile(self.folder)])), 2)
        plain = os.path.join(self.home, "plain.txt")
        open(plain, "w").close()
        self.assertEqual(provider.get_file_items([FakeFile(plain)]), [])
        self.assertEqual(provider.get_file_items(None, [FakeFile(self.folder), FakeFile(self.folder)]), [])
        self.assertEqual(provider.get_background_items(FakeFile(None)), [])

    def test_unreadable_templates_give_an_empty_submenu(self):
        provider = self.load_extension()
        for text in (None, "", "{broken", '{"an": "object"}', '[1, "x", null]'):
            if text is not None:
                self.write_templates(text)
            new_file, _ = provider.get_background_items(FakeFile(self.folder))
            self.assertEqual(new_file.submenu.items, [], text)


def desktop_unescape(value):
    out, i = "", 0
    while i < len(value):
        if value[i] == "\\" and i + 1 < len(value):
            out += {"s": " ", "n": "\n", "t": "\t", "r": "\r", "\\": "\\"}.get(value[i + 1], value[i + 1])
            i += 2
        else:
            out += value[i]
            i += 1
    return out


def exec_arguments(exec_value, folder):
    """The argument list a desktop launcher makes of an Exec value, with %f as the folder."""
    arguments = shlex.split(desktop_unescape(exec_value))
    return [folder if a == "%f" else a.replace("%%", "%") for a in arguments]


class DolphinServiceMenuTest(Home):
    def write_menus(self):
        result = subprocess.run([os.path.join(APPEX, "brindlemark-menu-action"), "write-service-menu"],
                                check=True, capture_output=True, text=True)
        return result.stdout.split()

    def read_menu(self, path):
        parser = configparser.RawConfigParser(interpolation=None, strict=False)
        parser.optionxform = str
        parser.read(path, encoding="utf-8")
        return parser

    def test_menus_are_valid_desktop_files(self):
        self.write_templates(TEMPLATES)
        paths = self.write_menus()
        self.assertEqual([os.path.basename(p) for p in paths], ["brindlemark-new-file.desktop"])
        for path in paths:
            self.assertTrue(os.access(path, os.X_OK), path)  # Dolphin runs only executable ones
            result = subprocess.run(["desktop-file-validate", path], capture_output=True, text=True)
            self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        menu = self.read_menu(paths[0])
        self.assertEqual(menu["Desktop Entry"]["Actions"], "template0;template1;")
        self.assertEqual(desktop_unescape(menu["Desktop Action template1"]["Name"]), AWKWARD_TITLE)
        self.assertEqual(menu["Desktop Action template1"]["Icon"], "utilities-terminal")

    def test_no_templates_gives_one_inert_entry(self):
        self.write_templates("[]")
        menu = self.read_menu(self.write_menus()[0])
        self.assertEqual(menu["Desktop Entry"]["Actions"], "none;")
        subprocess.run(exec_arguments(menu["Desktop Action none"]["Exec"], self.folder), check=True)
        self.assertFalse(os.path.exists(self.opened))

    def test_command_lines_create_the_file_through_the_application(self):
        self.write_templates(TEMPLATES)
        menu = self.read_menu(self.write_menus()[0])
        runtime = os.path.join(self.home, "run")
        os.makedirs(runtime, mode=0o700)
        os.environ.update(BRINDLEMARK_URL_OPENER=LAUNCHER, XDG_RUNTIME_DIR=runtime, QT_QPA_PLATFORM="offscreen",
                          PATH=self.home + ":" + os.environ["PATH"])
        os.environ.pop("DBUS_SESSION_BUS_ADDRESS", None)
        with open(os.path.join(self.home, "xdg-open"), "w") as stream:  # the file manager showing the file
            stream.write("#!/bin/sh\nexit 0\n")
        os.chmod(os.path.join(self.home, "xdg-open"), 0o755)
        lock = os.path.join(runtime, "org.brindlemark.Brindlemark.socket.lock")
        try:
            subprocess.run(exec_arguments(menu["Desktop Action template1"]["Exec"], self.folder), check=True)
            created = os.path.join(self.folder, "run.sh")
            for _ in range(500):
                if os.path.exists(created):
                    break
                time.sleep(0.02)
            self.assertTrue(os.path.exists(created))
            self.assertTrue(os.access(created, os.X_OK))
            self.assertFalse(os.path.exists(os.path.join(self.folder, "pwned")))
        finally:
            for _ in range(100):
                if os.path.exists(lock):
                    break
                time.sleep(0.02)
            if os.path.exists(lock):
                with open(lock) as stream:
                    os.kill(int(stream.readline()), signal.SIGKILL)


class InstallTest(Home):
    def test_install_writes_only_what_uninstall_removes(self):
        self.write_templates(TEMPLATES)
        neighbour = os.path.join(self.data, "nautilus-python", "extensions", "someone-else.py")
        os.makedirs(os.path.dirname(neighbour))
        open(neighbour, "w").close()
        os.environ["BRINDLEMARK_FILE_MANAGERS"] = "nautilus nemo caja dolphin"
        subprocess.run([os.path.join(APPEX, "install")], check=True)
        with open(os.path.join(self.data, "brindlemark", "installed-integration")) as stream:
            installed = stream.read().split("\n")[:-1]
        self.assertEqual(len(installed), 4)
        for path in installed:
            self.assertTrue(path.startswith(self.data + "/") and os.path.isfile(path), path)
        subprocess.run([os.path.join(APPEX, "uninstall")], check=True)
        for path in installed:
            self.assertFalse(os.path.exists(path), path)
        self.assertTrue(os.path.exists(neighbour))
        self.assertFalse(os.path.exists(os.path.join(self.data, "brindlemark", "installed-integration")))

    def test_refresh_rewrites_dolphin_menus_only_when_installed(self):
        self.write_templates(TEMPLATES)
        subprocess.run([os.path.join(APPEX, "refresh")], check=True)
        menu = os.path.join(self.data, "kio", "servicemenus", "brindlemark-new-file.desktop")
        self.assertFalse(os.path.exists(menu))
        os.environ["BRINDLEMARK_FILE_MANAGERS"] = "dolphin"
        subprocess.run([os.path.join(APPEX, "install")], check=True)
        self.write_templates("[]")
        subprocess.run([os.path.join(APPEX, "refresh")], check=True)
        with open(menu) as stream:
            self.assertIn("No Templates Enabled", stream.read())


if __name__ == "__main__":
    unittest.main()
