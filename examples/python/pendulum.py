#!/usr/bin/python3
"""A pendulum that swings far: its equation of motion, integrated step by step, against the exact period.

    pendulum DECK

The deck is a text file with one keyword per line; # begins a comment:

    length METRES       of the pendulum; 1 if not given
    angle DEGREES       from which it is let go, above 0 and below 180; needed
    swings COUNT        to follow; 10 if not given
    steps COUNT         for each swing; 1000 if not given

STEM.csv gets time, angle and speed of the last swing, STEM.dat what the analysis found. Exit codes: 0 good, 1 wrong
deck or usage, 3 stopped on request, nothing written.

By hand it just does its work. As a job it reports how far it is, and ends when it is asked to.
"""
import math
import os
import sys

import tlmjob

GRAVITY = 9.80665  # m/s2


def read_deck(path):
    deck = {"length": 1.0, "swings": 10, "steps": 1000}
    kinds = {"length": float, "angle": float, "swings": int, "steps": int}
    with open(path, encoding="utf-8") as file:
        for number, line in enumerate(file, 1):
            words = line.partition("#")[0].split()
            if not words:
                continue
            try:
                keyword, value = words
                deck[keyword] = kinds[keyword](value)
            except (KeyError, ValueError):
                sys.exit(f"{path}:{number}: not understood: {line.strip()}")
    if not (0 < deck.get("angle", 0) < 180 and all(0 < value < math.inf for value in deck.values())):
        sys.exit(f"{path}: the angle has to be between 0 and 180, all else above 0 and finite")
    return deck


def exact_period(length, angle):
    """2 pi sqrt(l / g) over the arithmetic-geometric mean of 1 and cos(angle / 2)."""
    a, b = 1.0, math.cos(angle / 2)
    while abs(a - b) > 1e-15:
        a, b = (a + b) / 2, math.sqrt(a * b)
    return 2 * math.pi * math.sqrt(length / GRAVITY) / a


def step(angle, speed, pull, h):
    """One of the classical method of Runge and Kutta, for angle'' = -pull sin(angle)."""
    k1, m1 = speed, -pull * math.sin(angle)
    k2, m2 = speed + h / 2 * m1, -pull * math.sin(angle + h / 2 * k1)
    k3, m3 = speed + h / 2 * m2, -pull * math.sin(angle + h / 2 * k2)
    k4, m4 = speed + h * m3, -pull * math.sin(angle + h * k3)
    return angle + h / 6 * (k1 + 2 * k2 + 2 * k3 + k4), speed + h / 6 * (m1 + 2 * m2 + 2 * m3 + m4)


def analyse(deck):
    """Mean period, largest gain or loss of energy as a fraction, and (time, angle, speed) of the last swing."""
    start = angle = math.radians(deck["angle"])
    pull = GRAVITY / deck["length"]
    h = exact_period(deck["length"], start) / deck["steps"]
    energy = lambda: speed * speed / 2 - pull * math.cos(angle)
    speed = time = worst = 0.0
    at_rest, depth, turns, course = energy(), 2 * pull * math.sin(start / 2)**2, 0, []
    while turns < deck["swings"]:
        if tlmjob.stop_requested():
            sys.exit(3)
        before = speed
        angle, speed = step(angle, speed, pull, h)
        time += h
        course.append((time, angle, speed))
        worst = max(worst, abs(energy() - at_rest) / depth)
        if before > 0 >= speed:  # back where it was let go; the moment by linear interpolation
            turns += 1
            end = time - h * speed / (speed - before)
            tlmjob.progress(100 * turns // deck["swings"])
            course = course[-deck["steps"]:]
    return end / turns, worst, course


def write(path, lines):
    """Beside its place and then into it, so that a reader never sees a part."""
    with open(path + ".part", "w", encoding="utf-8") as file:
        file.writelines(line + "\n" for line in lines)
    os.replace(path + ".part", path)


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: pendulum DECK")
    tlmjob.attach()
    try:
        deck = read_deck(sys.argv[1])
        period, drift, course = analyse(deck)
        stem = os.path.splitext(os.path.basename(sys.argv[1]))[0]
        write(stem + ".csv", ["t,angle,speed"] + [f"{t:.6f},{angle:.9f},{speed:.9f}" for t, angle, speed in course])
        exact = exact_period(deck["length"], math.radians(deck["angle"]))
        write(stem + ".dat", [f"period found   {period:.6f} s", f"period, exact  {exact:.6f} s",
                              f"energy drift   {drift:.1e}"])
    except (OSError, UnicodeDecodeError) as error:
        sys.exit(f"pendulum: {error}")
    tlmjob.results_available()
    tlmjob.succeeded()


if __name__ == "__main__":
    main()
