"""brindlemark-doctor on made-up machines (fake file managers, dpkg-query, xdg-mime and gdbus on PATH, a temporary HOME): one has
everything; every other one lacks a few pieces that the doctor checks apart, each of which it must name with its fix, and exit 1."""

import json, os, pathlib, shlex, subprocess, sys, tempfile, unittest

DOCTOR = os.environ["BRINDLEMARK_DOCTOR"]
ID, PK = "org.brindlemark.Brindlemark.BrindlemarkFinderSync", shlex.quote(os.path.dirname(DOCTOR) + "/brindlemark-pluginkit")
BUNDLE = os.path.dirname(DOCTOR) + "/PlugIns/BrindlemarkFinderSync.appex"
APPEX = shlex.quote(BUNDLE)
REINSTALL = f"{PK} -a {APPEX} && {PK} -e use -i {ID}"
STORED = json.dumps([{"title": "A", "enabled": True}, {"title": " B\\c ", "enabled": "yes"}, {"title": "C", "enabled": False}])
BUILT_IN = ", ".join(r["title"] for r in json.loads(pathlib.Path(BUNDLE + "/default-templates.json").read_text()) if r["enabled"])
PACKAGES = ["python3-nautilus", "thunarx-python", "gir1.2-thunarx-3.0"]
MENUS = {"Nautilus": ("nautilus-python/extensions/brindlemark_menu.py", "restart Nautilus: nautilus -q"),
         "Thunar": ("thunarx-python/extensions/brindlemark_menu.py", "restart Thunar: thunar -q"),
         "Dolphin": ("kio/servicemenus/brindlemark-new-file.desktop", "open a new Dolphin window")}
ENABLE = f'open Brindlemark and choose "Enable Extension" (or run: {PK} -e use -i {ID}), then '
WAYLAND, FRONT = {"XDG_SESSION_TYPE": "wayland", "XDG_CURRENT_DESKTOP": "GNOME"}, "Front file-manager folder under Wayland ... "
MIME = "xdg-mime default org.brindlemark.Brindlemark.desktop x-scheme-handler/brindlemark"
URLS = "brindlemark:// URLs (xdg-mime query default x-scheme-handler/brindlemark) ... "
NO_TRAY = "System tray ... none: Brindlemark's window is then reached by running brindlemark again — fix: "
SUPPORT = {"python3-nautilus": "Nautilus: extension support (python3-nautilus)",  # in the order of the report
           "thunarx-python gir1.2-thunarx-3.0": "Thunar: extension support (thunarx-python, gir1.2-thunarx-3.0)"}
menu = lambda name, verdict, fix=ENABLE: f"{name}: Brindlemark's menu (~/.local/share/{MENUS[name][0]}) ... {verdict} — fix: {fix}{MENUS[name][1]}"
missing = lambda packages, verdict="missing": f"{SUPPORT[packages]} ... {verdict} — fix: sudo apt-get install {packages}"

CASES = [  # what differs from a machine with everything; the lines with a fix the doctor must print, and no other. A line whose
    # problem the doctor might forget to count (dpkg-query or gdbus missing) is the only problem on its machine.
    ("everything, nothing stored yet, and a relative XDG_DATA_HOME means ~/.local/share", {"env": {"XDG_DATA_HOME": "data"}, "stored": None}, []),
    ("menus of an older Brindlemark, a launcher that is gone, Thunar's terminal action without a terminal",
     {"older": ["Nautilus", "Dolphin"], "launcher": "/gone/brindlemark", "thunar_action": True},
     ["Nautilus: New File entries ... the installed menu is not this Brindlemark's — fix: " + REINSTALL,
      'Thunar: "Open Terminal Here" ... Thunar\'s own cannot start a terminal, so Brindlemark\'s is shown beside it — fix: sudo apt-get '
      "install xterm && echo TerminalEmulator=xterm >> {home}/config/xfce4/helpers.rc (or remove Thunar's in Edit > Configure custom actions)",
      "Dolphin: New File entries ... A, but the enabled templates are: A, B\\c — fix: " + REINSTALL,
      "Launcher the menus run (~/.local/share/brindlemark/launcher) ... /gone/brindlemark, which is gone — fix: " + REINSTALL]),
    ("enabled before Brindlemark ever ran, by an install without the built-in list", {"stored": None, "built_in": False},
     [f"{name}: New File entries ... none, but the enabled templates are: {BUILT_IN} — fix: {REINSTALL}" for name in MENUS]),
    ("no python3-nautilus, no gir for Thunar, another URL handler, no tray", {"packages": ["python3-nautilus", "gir1.2-thunarx-3.0"],
     "handler": "firefox.desktop", "tray": "(false,)"}, [missing("python3-nautilus"), SUPPORT["thunarx-python gir1.2-thunarx-3.0"] +
     " ... missing gir1.2-thunarx-3.0 — fix: sudo apt-get install gir1.2-thunarx-3.0", URLS + "handled by firefox.desktop — fix: " + MIME,
     NO_TRAY + "add a system tray (notification area) to your desktop's panel"]),
    ("no file manager, no URL handler, no tray on GNOME", {"gone": ["nautilus", "thunar", "dolphin"], "handler": "", "tray": "(false,)",
     "env": {"XDG_CURRENT_DESKTOP": "ubuntu:GNOME"}}, ["File managers ... none found on PATH (looked for nautilus, nemo, caja, thunar, "
     "dolphin) — fix: sudo apt-get install nautilus", URLS + "no handler — fix: " + MIME, NO_TRAY + "sudo apt-get install gnome-shell-"
     "extension-appindicator && gnome-extensions enable appindicatorsupport@rgcjonas.gmail.com (then log out and in)"]),
    ("no Thunar support, menus unlisted or gone with Dolphin's folder, no xdg-mime", {"packages": PACKAGES[1:], "unlisted": ["Nautilus"],
     "deleted": ["Thunar", "Dolphin"], "no_folder": True, "gone": ["xdg-mime"]}, [menu("Nautilus", "not installed, extension enabled"),
     missing("thunarx-python gir1.2-thunarx-3.0", "missing thunarx-python, gir1.2-thunarx-3.0"), menu("Thunar", "not installed, extension enabled"),
     "Dolphin: service-menu folder (~/.local/share/kio/servicemenus) ... missing (enabling Brindlemark's menu creates it) — fix: "
     "mkdir -p {home}/.local/share/kio/servicemenus", menu("Dolphin", "not installed, extension enabled"),
     URLS + "xdg-mime was not found — fix: sudo apt-get install xdg-utils && " + MIME]),
    ("extension not enabled", {"elected": False}, [menu(name, "installed, extension not enabled") for name in MENUS]),
    *[(f"registry {text!r}", {"registry": text}, [menu(name, "installed, extension not registered (Brindlemark has not run yet)",
      f'start Brindlemark and choose "Enable Extension" (or run: {PK} -a {APPEX} && {PK} -e use -i {ID}), then ') for name in MENUS])
      for text in (None, "{broken", "null", '[{"identifier": "other", "elected": true}]', "<fifo>")],
    ("no dpkg-query", {"gone": ["dpkg-query"]}, [missing(packages, "cannot be checked: dpkg-query (Debian's package tool) was not found")
                                                 .replace("fix: ", "fix: if missing: ") for packages in SUPPORT]),
    ("GNOME under Wayland, the Shell extension installed but not loaded yet", {"env": WAYLAND, "shell_installed": True},
     [FRONT + "not yet: GNOME Shell loads Brindlemark's new extension only after the next login — fix: log out and in again "
      "(and check that Extensions are turned on in the Extensions app)"]),
    ("GNOME under Wayland without the Shell extension", {"env": WAYLAND, "elected": False},
     [menu(name, "installed, extension not enabled") for name in MENUS] + [FRONT + "only while Nautilus has a single window; otherwise "
      f"the Desktop folder is used — fix: {ENABLE}log out and in again"]),
    ("GNOME under Wayland with the Shell extension running", {"env": WAYLAND, "front": "(true,)"}, []),
    ("no gdbus", {"gone": ["gdbus"]}, ["System tray ... unknown: the session bus or the X display did not answer "
                                       "(run this in your desktop session) — fix: sudo apt-get install libglib2.0-bin"]),
]


def write(path, text, mode=0o644):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    pathlib.Path(path).write_text(text)
    os.chmod(path, mode)


def run_doctor(home, packages=(), gone=(), handler="org.brindlemark.Brindlemark.desktop", tray="(true,)", elected=True, registry="",
               deleted=(), unlisted=(), no_folder=False, env=None, stored=STORED, built_in=True, older=(), launcher=DOCTOR,
               thunar_action=False, front="(false,)", shell_installed=False):
    """Builds the machine in HOME and runs the doctor there, with only the fakes on PATH: (exit status, output). The menus are
    this Brindlemark's, written for the templates stored (or the built-in ones), except the older ones: a copy of another version,
    a service menu written before the last template was enabled."""
    data, installed = home + "/.local/share", "|".join(p for p in PACKAGES if p not in packages)
    environment = {"HOME": home, "PATH": home + "/bin", "XDG_DATA_HOME": data, "XDG_CONFIG_HOME": home + "/config",
                   "XDG_CONFIG_DIRS": home + "/etc", "XDG_RUNTIME_DIR": home + "/run", "LANG": "C.UTF-8"}
    templates = data + f"/{ID}/Templates.json"
    write(templates, STORED.replace('"yes"', "false") if "Dolphin" in older else stored) if stored else None
    write(data + "/brindlemark/default-templates.json", pathlib.Path(BUNDLE + "/default-templates.json").read_text()) if built_in else None
    subprocess.run([sys.executable, BUNDLE + "/brindlemark-menu-action", "write-service-menu"], env=environment, check=True, capture_output=True)
    write(templates, stored) if stored else None
    write(data + "/brindlemark/launcher", launcher)
    if thunar_action:
        write(home + "/etc/Thunar/uca.xml", "<actions><action><name>Open Terminal Here</name><command>exo-open --working-directory %f "
              "--launch TerminalEmulator</command><directories/></action></actions>")
    fakes = {"nautilus": "", "thunar": "", "dolphin": "", "xdg-mime": f"printf '%s\\n' '{handler}'", "gdbus": f"case \"$*\" in *FrontWindow*) echo '{front}';; *) echo '{tray}';; esac",
             "dpkg-query": f'for p; do :; done\ncase "$p" in {installed}) printf "install ok installed";; *) exit 1;; esac'}
    [write(f"{home}/bin/{name}", f"#!/bin/sh\n{script}\n", 0o755) for name, script in fakes.items() if name not in gone]
    [write(f"{data}/{path}", "# older\n" if name in older else pathlib.Path(BUNDLE + "/brindlemark_menu.py").read_text())
     for name, (path, _) in MENUS.items() if name not in deleted and name != "Dolphin"]
    os.remove(f"{data}/{MENUS['Dolphin'][0]}") if "Dolphin" in deleted else None
    os.rmdir(data + "/kio/servicemenus") if no_folder else None
    write(data + "/brindlemark/installed-integration", "".join(f"{data}/{p}\n" for name, (p, _) in MENUS.items() if name not in unlisted)
          + (f"{data}/gnome-shell/extensions/front-window@brindlemark.org/extension.js\n" if shell_installed else ""))
    registry = json.dumps([{"identifier": ID, "elected": elected}], indent=4) if registry == "" else registry
    if registry == "<fifo>":  # nothing ever written into it: reading it must not wait
        os.mkfifo(data + "/brindlemark/plugin-registry.json")
    elif registry is not None:
        write(data + "/brindlemark/plugin-registry.json", registry)
    result = subprocess.run([sys.executable, DOCTOR], env={**environment, **(env or {})}, capture_output=True, text=True, timeout=30)
    return result.returncode, result.stdout + result.stderr


class DoctorTest(unittest.TestCase):
    def test_machines(self):
        for name, differences, fixes in CASES:
            with self.subTest(name), tempfile.TemporaryDirectory() as home:
                status, output = run_doctor(home, **differences)
                printed = [line for line in output.splitlines() if " — fix: " in line]
                self.assertEqual((status, printed), (1 if fixes else 0, [fix.format(home=home) for fix in fixes]), output)
                self.assertTrue(output.endswith("found.\n" if fixes else "All is well.\n"), output)
                if not fixes:  # what is there is named too
                    self.assertIn("System tray ... present (a StatusNotifier host on the session bus)\n", output)
