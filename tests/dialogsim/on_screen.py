#!/usr/bin/env python3
"""The unmodified program on an X server of its own, driven by the mouse and the keyboard from outside.

    on_screen.py --build BUILD pictures     a picture of each tab with a device's values, and of a box
    on_screen.py --build BUILD light        a picture of each tab on screens of four densities, in light colours, and of
                                            the focus on each control in turn
    on_screen.py --build BUILD dark         the same in dark colours
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
from screen import NORMAL_DENSITY, Screen  # noqa: E402
from simulation import DemoError, Simulation, environment_without_settings, wait_for  # noqa: E402

# Of Mesa, or of Qt to reach it. Qt itself is linked with libGL.so, which loads them when it is asked to.
DRIVER = re.compile(r"/(libqxcb-glx-|libqxcb-egl-|libGLX_mesa|libEGL_mesa|libgallium|\w+_dri\.so)")


# In percent of the normal one.
DENSITIES = [100, 125, 150, 200]

# What a person who has chosen dark colours in the settings of a Plasma desktop has in kdeglobals, which Qt itself reads
# there.
DARK = """[Colors:Button]
BackgroundNormal=49,54,59
ForegroundNormal=252,252,252
[Colors:Selection]
BackgroundNormal=61,174,233
ForegroundNormal=252,252,252
[Colors:Tooltip]
BackgroundNormal=49,54,59
ForegroundNormal=252,252,252
[Colors:View]
BackgroundNormal=27,30,32
ForegroundNormal=252,252,252
[Colors:Window]
BackgroundNormal=42,46,50
ForegroundNormal=252,252,252
"""


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
    code = process.wait(240)
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
        simulation.wait_for("the simulator", simulation.ready)
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


def desktop(colours, folder):
    """The environment of a desktop with light or with dark colours."""
    if colours == "light":
        return {}
    settings = folder / "dark-desktop"
    settings.mkdir(exist_ok=True)
    (settings / "kdeglobals").write_text(DARK, encoding="ascii")
    return {"XDG_CURRENT_DESKTOP": "KDE", "KDE_SESSION_VERSION": "5", "XDG_CONFIG_HOME": str(settings)}


class Look:
    """The program on a screen of one density and in one set of colours, driven by the keyboard alone."""

    def __init__(self, screen, simulation, folder, name):
        self.screen = screen
        self.simulation = simulation
        self.prefix = f"{folder}/{name}"
        self.window = simulation.wait_for("the window", lambda: screen.windows(TITLE))[0]
        simulation.wait_for("the scan", self.scanned)
        screen.run("xdotool", "windowfocus", self.window)
        self.before = None

    def scanned(self):
        closed = {entry["device"] for entry in self.simulation.transcript() if entry.get("event") == "close"}
        return len(closed) == 3

    def row(self, name):
        """The row of the device, which is its place in the order in which the scan opens them."""
        opened = [entry["device"] for entry in self.simulation.transcript() if entry.get("event") == "open"]
        return list(dict.fromkeys(opened)).index(name)

    def key(self, key):
        self.screen.run("xdotool", "key", key)

    def picture(self, stage):
        """A picture that differs from the one before: what the keyboard did can be seen.

        On a busy machine the program needs its time to show it.
        """
        path = pathlib.Path(f"{self.prefix}-{stage}.png")
        now = self.screen.photograph_when_still(self.window, path, unlike=[self.before])
        if now == self.before:
            raise DemoError(f"the picture {path.name} shows nothing new")
        self.before = now

    def wait_for_answers(self, request, count):
        self.simulation.wait_for(
            f"{count} answers to {request}",
            lambda: len([e for e in self.simulation.transcript() if e.get("name") == request]) >= count,
        )

    def pages(self, with_focus):
        """Chooses a device and shows the pages, walking through what is on each if asked to."""
        self.picture("0-devices")
        self.key("Tab")
        for _ in range(self.row("velk3") + 1):
            self.key("Down")
        self.wait_for_answers("INPUT_STATUS", 1)
        self.picture("1-firmware")
        self.key("Tab")  # to the tab bar
        if with_focus:
            self.walk("1-firmware", 5)
        self.key("Right")
        self.wait_for_answers("GET_DEVICE_FLAGS", 1)
        self.picture("2-settings")
        if with_focus:
            self.walk("2-settings", 7)
        self.key("Right")
        self.wait_for_answers("USER_MODE", 3)
        self.picture("3-user-modes")
        if with_focus:
            # Three groups, two of them switched on with two boxes each, and the button.
            self.walk("3-user-modes", 10)

    def walk(self, page, others):
        """From the tab bar through the `others` that take the focus, and back to it: each shows that it has it."""
        seen = {self.without_focus(page): "nothing"}
        for step in range(1, others + 1):
            self.key("Tab")
            stage = f"{page}-focus-{step}"
            self.picture(stage)
            other = seen.setdefault(self.before, stage)
            if other != stage:
                raise DemoError(f"{self.prefix}-{stage}.png looks as with the focus on {other}")
        self.key("Tab")
        self.picture(f"{page}-focus-0")
        if self.before in seen:
            raise DemoError(f"the tab bar of {self.prefix}-{page} does not show that it has the focus")

    def without_focus(self, page):
        """The picture while another window has the keyboard."""
        self.screen.run("xdotool", "windowfocus", self.screen.root())
        self.picture(f"{page}-focus-none")
        without = self.before
        self.screen.run("xdotool", "windowfocus", self.window)
        self.picture(f"{page}-focus-back")
        return without


def check_colours(screen, simulation, folder, colours):
    """The lower part of the window, which has no banner, is as light or as dark as it was asked for."""
    window = simulation.wait_for("the window", lambda: screen.windows(TITLE))[0]
    path = folder / "colours.png"
    screen.photograph_when_still(window, path)
    crop = ["-gravity", "South", "-crop", "100%x30%+0+0"]
    brightness = float(screen.run("convert", str(path), *crop, "-format", "%[fx:mean]", "info:"))
    if (brightness < 0.5) != (colours == "dark"):
        raise DemoError(f"with {colours} colours the window's brightness is {brightness:.2f} of 1")


def look(build, folder, density, colours):
    """Returns the window's size."""
    with Screen(NORMAL_DENSITY * density // 100) as screen:
        environment = {**environment_on(screen), **desktop(colours, folder)}
        with Simulation(build, "several", environment, build, folder / "look.log") as simulation:
            simulation.wait_for("the simulator", simulation.ready)
            check_colours(screen, simulation, folder, colours)
            program = Look(screen, simulation, folder, str(density))
            size = screen.size(program.window)
            program.pages(with_focus=density == 100)
            close_window(screen, simulation.process)
            return size


def looks(build, colours):
    folder = build / "pictures" / "looks" / colours
    folder.mkdir(parents=True, exist_ok=True)
    for old in folder.glob("*.png"):
        old.unlink()
    normal = None
    for density in DENSITIES:
        size = look(build, folder, density, colours)
        normal = normal or size
        for pixels, at_normal in zip(size, normal):
            expected = at_normal * density / 100
            # A line of text is a pixel wider or narrower from one density to the next.
            if abs(pixels - expected) > 0.02 * expected:
                raise DemoError(f"the window has the size {size} at {density} percent, and {normal} at 100")
    print(f"pictures: {folder}")


def start_and_end(build, scene, devices):
    with Screen() as screen, simulation_of(scene, build, screen) as simulation:
        simulation.wait_for("the simulator", simulation.ready)
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
    parser.add_argument("task", choices=["pictures", "light", "dark", "none", "twenty", "no-bus"])
    arguments = parser.parse_args()
    build = arguments.build.resolve()
    tasks = {
        "pictures": lambda: pictures(build),
        "light": lambda: looks(build, "light"),
        "dark": lambda: looks(build, "dark"),
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
