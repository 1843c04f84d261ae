# Brindlemark's right-click menu for Nautilus, Nemo and Caja (through their python extension
# modules), and the shared helpers that Dolphin's service menu uses through
# brindlemark-menu-action.
#
# The menu is built from Templates.json at every right-click, so edits in Brindlemark reach it at
# once. Choosing an entry opens a brindlemark:// URL through the desktop's URL opener; the
# application does the rest. Nothing here ever raises into the file manager: a missing or broken
# Templates.json gives a menu without templates.

import base64
import json
import os
import subprocess
import urllib.parse

EXTENSION_ID = "org.brindlemark.Brindlemark.BrindlemarkFinderSync"


def templates_file():
    data = os.environ.get("XDG_DATA_HOME") or ""
    if not os.path.isabs(data):
        data = os.path.join(os.path.expanduser("~"), ".local", "share")
    return os.path.join(data, EXTENSION_ID, "Templates.json")


def _flag(value):
    if isinstance(value, bool):
        return value
    if isinstance(value, (int, float)):
        return value != 0
    if isinstance(value, str):
        return value.strip().lower() in ("1", "true", "yes", "on")
    return False


def enabled_templates(path=None):
    """The enabled templates in list order; [] when the file is missing, empty or broken."""
    try:
        with open(path or templates_file(), "rb") as stream:
            records = json.loads(stream.read().decode("utf-8"))
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


def open_url(url):
    """Hands the URL to the desktop's URL opener without waiting for it."""
    opener = os.environ.get("BRINDLEMARK_URL_OPENER") or "xdg-open"
    try:
        subprocess.Popen([opener, url], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                         stderr=subprocess.DEVNULL, start_new_session=True)
    except OSError:
        pass


def _local_folder(item):
    """The folder's path for a file-manager item that is a local folder, else None."""
    try:
        location = item.get_location()
        path = location.get_path() if location is not None else None
    except Exception:
        return None
    return path if path and os.path.isdir(path) else None


def build_menu(module, folder, name):
    """The "Brindlemark" menu entries for one folder, as the file manager's MenuItems."""
    new_file = module.MenuItem(name=name + "::NewFile", label="New File", tip="New file from a template")
    submenu = module.Menu()
    new_file.set_submenu(submenu)
    for index, record in enumerate(enabled_templates()):
        item = module.MenuItem(name="%s::Template%d" % (name, index), label=_menu_title(record), tip="")
        item.connect("activate", lambda _item, r=record: open_url(command_url("template", folder, r)))
        submenu.append_item(item)
    terminal = module.MenuItem(name=name + "::Terminal", label="Open Terminal Here", tip="")
    terminal.connect("activate", lambda _item: open_url(command_url("terminal", folder)))
    return [new_file, terminal]


def _file_manager_module():
    """The extension module of the file manager that loaded this file, found by its folder."""
    here = os.path.abspath(__file__)
    import gi
    for folder, name in (("nautilus-python", "Nautilus"), ("nemo-python", "Nemo"), ("caja-python", "Caja")):
        if folder in here:
            for version in ("4.0", "3.0", "2.0"):
                try:
                    gi.require_version(name, version)
                    break
                except ValueError:
                    continue
            return getattr(__import__("gi.repository", fromlist=[name]), name)
    return None


def _make_provider(module):
    from gi.repository import GObject

    class BrindlemarkMenuProvider(GObject.GObject, module.MenuProvider):
        # Nautilus 43 and later pass (files) and (folder); older versions and Nemo and Caja
        # pass the window first.
        def get_file_items(self, *args):
            try:
                files = args[-1]
                if len(files) != 1:
                    return []
                folder = _local_folder(files[0])
                return build_menu(module, folder, "BrindlemarkItem") if folder else []
            except Exception:
                return []

        def get_background_items(self, *args):
            try:
                folder = _local_folder(args[-1])
                return build_menu(module, folder, "BrindlemarkBackground") if folder else []
            except Exception:
                return []

    return BrindlemarkMenuProvider


try:
    _module = _file_manager_module()
except Exception:
    _module = None
if _module is not None:
    BrindlemarkMenuProvider = _make_provider(_module)
