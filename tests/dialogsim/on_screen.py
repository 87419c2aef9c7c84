#!/usr/bin/env python3
"""The unmodified program on an X server of its own, driven by the mouse and the keyboard from outside.

    on_screen.py --build BUILD pictures     a picture of each tab with a device's values, and of a box
    on_screen.py --build BUILD none         start, scan and end without devices
    on_screen.py --build BUILD twenty       the same with twenty devices
    on_screen.py --build BUILD no-bus       the same on a machine without a USB bus
"""

import argparse
import pathlib
import re
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "demo"))

from demo import TITLE, Visit  # noqa: E402
from screen import Screen  # noqa: E402
from simulation import DemoError, Simulation, environment_without_settings, wait_for  # noqa: E402

# Of Mesa, or of Qt to reach it. Qt itself is linked with libGL.so, which loads them when it is asked to.
DRIVER = re.compile(r"/(libqxcb-glx-|libqxcb-egl-|libGLX_mesa|libEGL_mesa|libgallium|\w+_dri\.so)")


def environment_on(screen):
    return {**environment_without_settings(), "QT_QPA_PLATFORM": "xcb", "DISPLAY": screen.display}


def simulation_of(scene, build, screen):
    folder = build / "pictures"
    folder.mkdir(exist_ok=True)
    return Simulation(build, scene, environment_on(screen), build, folder / f"{scene}.log")


def close_window(screen, process):
    """Closes the dialog as its user does, and expects the program to end well."""
    window = wait_for("the window", lambda: screen.windows(TITLE))[0]
    screen.run("xdotool", "windowfocus", window)
    screen.run("xdotool", "key", "Escape")
    code = process.wait(60)
    if code != 0:
        raise DemoError(f"the program ended with exit code {code}")


def check_no_opengl(screen):
    """The dialog draws nothing with OpenGL, whose driver would take longer to load than all the rest."""
    window = screen.windows(TITLE)[0]
    program = (screen.run("xdotool", "getwindowpid", window) or "").strip()
    maps = pathlib.Path(f"/proc/{program}/maps").read_text(encoding="utf-8")
    if "libqxcb.so" not in maps:
        raise DemoError(f"process {program} is not the program")
    drivers = sorted({path for path in maps.split() if DRIVER.search(path)})
    if drivers:
        raise DemoError("the program has loaded " + ", ".join(drivers))


def check_given_back(simulation):
    opened = [entry for entry in simulation.transcript() if entry.get("event") == "open"]
    closed = [entry for entry in simulation.transcript() if entry.get("event") == "close"]
    if len(opened) != len(closed):
        raise DemoError(f"{len(opened)} devices were opened and {len(closed)} closed")


# ---- the tasks


def pictures(build):
    folder = build / "pictures"
    for old in folder.glob("*.png"):
        old.unlink()
    with Screen() as screen, simulation_of("several", build, screen) as simulation:
        simulation.wait_for("the simulator", simulation.ready, timeout=60)
        visit = Visit(screen, simulation, build, build / "packages", folder)
        visit.look_around("velk3")
        # A package of another product.
        visit.window.enter_text("firmwareLineEdit", str(build / "packages" / "sorn3.fw"))
        visit.window.click("updateButton")
        simulation.wait_for("the box", lambda: screen.windows("Update Error"))
        time.sleep(0.5)  # for the picture only
        screen.photograph("root", folder / "05-update-error.png")
        box = screen.windows("Update Error")[0]
        screen.run("xdotool", "windowfocus", box)
        screen.run("xdotool", "key", "Return")
        simulation.wait_for("the end of the box", lambda: not screen.windows("Update Error"))
        close_window(screen, simulation.process)
        check_given_back(simulation)
    print(f"pictures: {folder}")


def start_and_end(build, scene, devices):
    with Screen() as screen, simulation_of(scene, build, screen) as simulation:
        simulation.wait_for("the simulator", simulation.ready, timeout=60)
        simulation.wait_for("the window", lambda: screen.windows(TITLE))
        simulation.wait_for(
            "the scan",
            lambda: len({e["device"] for e in simulation.transcript() if e.get("event") == "close"}) == devices,
        )
        check_no_opengl(screen)
        close_window(screen, simulation.process)
        check_given_back(simulation)


def without_a_bus(build):
    with Screen() as screen:
        # umockdev shows a machine that has no devices of any kind.
        process = subprocess.Popen(
            ["umockdev-run", "--", build / "capso-config"], env=environment_on(screen), stdin=subprocess.DEVNULL
        )
        try:
            close_window(screen, process)
        finally:
            if process.poll() is None:
                process.kill()
                process.wait()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("task", choices=["pictures", "none", "twenty", "no-bus"])
    arguments = parser.parse_args()
    build = arguments.build.resolve()
    tasks = {
        "pictures": lambda: pictures(build),
        "none": lambda: start_and_end(build, "none", 0),
        "twenty": lambda: start_and_end(build, "twenty", 20),
        "no-bus": lambda: without_a_bus(build),
    }
    try:
        tasks[arguments.task]()
    except (DemoError, subprocess.TimeoutExpired) as error:
        print(f"{arguments.task}: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
