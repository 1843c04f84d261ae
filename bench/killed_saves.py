#!/usr/bin/env python3
"""Brindlemark killed (SIGKILL) in the middle of bursts of saves, again and again: how many
temporary files the kills leave in the configuration folders, and how many a clean start leaves.

    python3 bench/killed_saves.py build/tests/template_editor [KILLS]

The instance is the test helper template_editor (the real controller and platform, its table
edited through standard input), in a temporary home.
"""
import os
import random
import subprocess
import sys
import tempfile
import time

KNOWN = {"Templates.json", "Templates.json.unreadable", "org.brindlemark.Brindlemark.conf",
         "org.brindlemark.Brindlemark.BrindlemarkFinderSync.conf"}


def leftovers(home):
    found = []
    for folder, _, files in os.walk(home):
        if "/run" in folder:
            continue
        found += [os.path.join(folder, name) for name in files
                  if name not in KNOWN and (".json" in name or ".conf" in name)]
    return found


def main():
    editor_path = sys.argv[1]
    kills = int(sys.argv[2]) if len(sys.argv) > 2 else 100
    random.seed(1)
    with tempfile.TemporaryDirectory() as home:
        os.makedirs(home + "/run", mode=0o700)
        env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=home + "/config",
                   XDG_DATA_HOME=home + "/data", XDG_RUNTIME_DIR=home + "/run",
                   QT_QPA_PLATFORM="offscreen")

        def started():
            process = subprocess.Popen([editor_path], env=env, stdin=subprocess.PIPE,
                                       stdout=subprocess.PIPE, text=True)
            assert process.stdout.readline() == "ready\n"
            return process

        for kill in range(kills):
            process = started()
            process.stdin.write("".join("set %d title T%d\n" % (i % 6, i) for i in range(300)))
            process.stdin.flush()
            time.sleep(random.uniform(0.001, 0.05))
            process.kill()
            process.wait()
        after_kills = len(leftovers(home))
        process = started()
        process.stdin.close()
        process.wait(10)
        print("after %d kills: %d temporary files; after a clean start: %d"
              % (kills, after_kills, len(leftovers(home))))


if __name__ == "__main__":
    main()
