#!/usr/bin/env python3
"""As kit_program.c."""
import os, sys, time

import tlmjob

tlmjob.attach()
if (child := os.fork()) == 0:
    tlmjob.succeeded()
    sys.exit(tlmjob.stop_requested())
os.waitpid(child, 0)
for bad in (None, float("nan"), float("-inf"), "x"):
    tlmjob.required_level(bad, 1.5)
    tlmjob.progress(bad)
tlmjob.required_level(7, 8)
tlmjob.progress(40)
tlmjob.results_available()
while not os.path.exists("go"):
    if tlmjob.stop_requested():
        tlmjob.detach()
        if tlmjob.attach() and tlmjob.stop_requested():
            print("stopped")
        sys.exit(3)
    time.sleep(0.01)
tlmjob.succeeded()
tlmjob.progress(float("inf"))
