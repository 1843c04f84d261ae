#!/usr/bin/env python3
"""click-time.py FOLDER X Y: clicks at (X, Y) on $DISPLAY with xdotool and prints the time from
the click until a new entry appears in FOLDER, in milliseconds (starting xdotool included)."""
import os
import subprocess
import sys
import time

folder, x, y = sys.argv[1:4]
before = set(os.listdir(folder))
subprocess.run(["xdotool", "mousemove", x, y], check=True)
time.sleep(0.3)
start = time.perf_counter()
subprocess.Popen(["xdotool", "click", "1"])
while not set(os.listdir(folder)) - before:
    if time.perf_counter() - start > 10:
        sys.exit("nothing appeared within 10 s")
    time.sleep(0.0005)
print("%.1f ms %s" % ((time.perf_counter() - start) * 1000, sorted(set(os.listdir(folder)) - before)))
