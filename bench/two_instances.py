#!/usr/bin/env python3
"""Two running Brindlemarks on one home, edited in turn: how many edits the other's next save
undoes, and how long each takes to show the other's save.

    python3 bench/two_instances.py build/tests/template_editor [EDITS]

Each instance is the test helper template_editor (a real controller and platform with an event
loop, its table edited through standard input) with a runtime folder of its own, as two sessions
of one user have. Edit i goes to instance A when i is even, to B when odd, each on its own cell;
after every edit and its save, the stored Templates.json must still hold the edit before it.
"""
import json
import os
import subprocess
import sys
import tempfile
import time


def main():
    editor_path = sys.argv[1]
    edits = int(sys.argv[2]) if len(sys.argv) > 2 else 100
    with tempfile.TemporaryDirectory() as home:
        base = dict(os.environ, HOME=home, XDG_CONFIG_HOME=home + "/config",
                    XDG_DATA_HOME=home + "/data", QT_QPA_PLATFORM="offscreen")
        editors = []
        for name in ("a", "b"):
            runtime = os.path.join(home, "run-" + name)
            os.makedirs(runtime, mode=0o700)
            process = subprocess.Popen([editor_path], env=dict(base, XDG_RUNTIME_DIR=runtime),
                                       stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
            assert process.stdout.readline() == "ready\n"
            editors.append(process)

        def ask(process, line):
            process.stdin.write(line + "\n")
            process.stdin.write("list\n")
            process.stdin.flush()
            return json.loads(process.stdout.readline())

        stored_path = os.path.join(home, "config/Brindlemark/Templates.json")

        def stored():
            with open(stored_path, encoding="utf-8") as f:
                return json.load(f)

        lost, previous, shown_after = 0, None, []
        for i in range(edits):
            editor = editors[i % 2]
            row, member = (i // 2) % 6, ("title", "prefix")[i % 2]
            value = "%s%d" % ("AB"[i % 2], i)
            ask(editor, "set %d %s %s" % (row, member, value))
            if previous and stored()[previous[0]][previous[1]] != previous[2]:
                lost += 1
            previous = (row, member, value)
            # How long until the other instance shows this edit.
            other, start = editors[1 - i % 2], time.monotonic()
            while ask(other, "")[row][member] != value and time.monotonic() - start < 5:
                time.sleep(0.005)
            shown_after.append((time.monotonic() - start) * 1000)
        for process in editors:
            process.stdin.close()
            process.wait(10)
        shown_after.sort()
        print("edits: %d, undone by the other instance's next save: %d" % (edits, lost))
        print("the other instance shows an edit after: median %.0f ms, max %.0f ms"
              % (shown_after[len(shown_after) // 2], shown_after[-1]))


if __name__ == "__main__":
    main()
