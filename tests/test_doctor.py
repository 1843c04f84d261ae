"""brindlemark-doctor on made-up machines (fake file managers, dpkg-query, xdg-mime and gdbus on PATH, a temporary HOME): one has
everything; every other one lacks a few pieces that the doctor checks apart, each of which it must name with its fix, and exit 1."""

import json, os, pathlib, shlex, subprocess, sys, tempfile, unittest

DOCTOR = os.environ["BRINDLEMARK_DOCTOR"]
ID, PK = "org.brindlemark.Brindlemark.BrindlemarkFinderSync", shlex.quote(os.path.dirname(DOCTOR) + "/brindlemark-pluginkit")
APPEX = shlex.quote(os.path.dirname(DOCTOR) + "/PlugIns/BrindlemarkFinderSync.appex")
PACKAGES = ["python3-nautilus", "thunarx-python", "gir1.2-thunarx-3.0"]
MENUS = {"Nautilus": ("nautilus-python/extensions/brindlemark_menu.py", "restart Nautilus: nautilus -q"),
         "Thunar": ("thunarx-python/extensions/brindlemark_menu.py", "restart Thunar: thunar -q"),
         "Dolphin": ("kio/servicemenus/brindlemark-new-file.desktop", "open a new Dolphin window")}
ENABLE = f'open Brindlemark and choose "Enable Extension" (or run: {PK} -e use -i {ID}), then '
MIME = "xdg-mime default org.brindlemark.Brindlemark.desktop x-scheme-handler/brindlemark"
URLS = "brindlemark:// URLs (xdg-mime query default x-scheme-handler/brindlemark) ... "
NO_TRAY = "System tray ... none: Brindlemark's window is then reached by running brindlemark again — fix: "
SUPPORT = {"python3-nautilus": "Nautilus: extension support (python3-nautilus)",  # in the order of the report
           "thunarx-python gir1.2-thunarx-3.0": "Thunar: extension support (thunarx-python, gir1.2-thunarx-3.0)"}
menu = lambda name, verdict, fix=ENABLE: f"{name}: Brindlemark's menu (~/.local/share/{MENUS[name][0]}) ... {verdict} — fix: {fix}{MENUS[name][1]}"
missing = lambda packages, verdict="missing": f"{SUPPORT[packages]} ... {verdict} — fix: sudo apt-get install {packages}"

CASES = [  # what differs from a machine with everything; the lines with a fix the doctor must print, and no other. A line whose
    # problem the doctor might forget to count (dpkg-query or gdbus missing) is the only problem on its machine.
    ("everything, and a relative XDG_DATA_HOME means ~/.local/share", {"env": {"XDG_DATA_HOME": "data"}}, []),
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
    ("no gdbus", {"gone": ["gdbus"]}, ["System tray ... unknown: the session bus or the X display did not answer "
                                       "(run this in your desktop session) — fix: sudo apt-get install libglib2.0-bin"]),
]


def write(path, text, mode=0o644):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    pathlib.Path(path).write_text(text)
    os.chmod(path, mode)


def run_doctor(home, packages=(), gone=(), handler="org.brindlemark.Brindlemark.desktop", tray="(true,)", elected=True, registry="",
               deleted=(), unlisted=(), no_folder=False, env=None):
    """Builds the machine in HOME and runs the doctor there, with only the fakes on PATH: (exit status, output)."""
    data, installed = home + "/.local/share", "|".join(p for p in PACKAGES if p not in packages)
    fakes = {"nautilus": "", "thunar": "", "dolphin": "", "xdg-mime": f"printf '%s\\n' '{handler}'", "gdbus": f"echo '{tray}'",
             "dpkg-query": f'for p; do :; done\ncase "$p" in {installed}) printf "install ok installed";; *) exit 1;; esac'}
    [write(f"{home}/bin/{name}", f"#!/bin/sh\n{script}\n", 0o755) for name, script in fakes.items() if name not in gone]
    [write(f"{data}/{path}", "# menu\n") for name, (path, _) in MENUS.items() if name not in deleted]
    os.makedirs(data + "/kio/servicemenus", exist_ok=True) if not no_folder else None
    write(data + "/brindlemark/installed-integration", "".join(f"{data}/{p}\n" for name, (p, _) in MENUS.items() if name not in unlisted))
    registry = json.dumps([{"identifier": ID, "elected": elected}], indent=4) if registry == "" else registry
    if registry == "<fifo>":  # nothing ever written into it: reading it must not wait
        os.mkfifo(data + "/brindlemark/plugin-registry.json")
    elif registry is not None:
        write(data + "/brindlemark/plugin-registry.json", registry)
    environment = {"HOME": home, "PATH": home + "/bin", "XDG_DATA_HOME": data, "XDG_CONFIG_HOME": home + "/config",
                   "XDG_RUNTIME_DIR": home + "/run", "LANG": "C.UTF-8", **(env or {})}
    result = subprocess.run([sys.executable, DOCTOR], env=environment, capture_output=True, text=True, timeout=30)
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
