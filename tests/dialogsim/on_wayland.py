#!/usr/bin/env python3
"""The unmodified program under a Wayland compositor that has no screen and no input devices.

    on_wayland.py --build BUILD     starts, scans, and is photographed: the window is whole, and every device has its row
"""

import argparse
import os
import pathlib
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "demo"))

from screen import FEWEST_COLOURS  # noqa: E402
from simulation import DemoError, Simulation, environment_without_settings, wait_for  # noqa: E402

SCENE, DEVICES = "several", 3

# Nothing but the window is to be seen on a background of a colour that the window has not.
SETTINGS = """[core]
idle-time=0
[shell]
background-color=0xff00ff00
panel-position=none
locking=false
startup-animation=none
animation=none
close-animation=none
focus-animation=none
"""


class Compositor:
    """Weston in a folder of its own. Use it in a `with`."""

    def __enter__(self):
        self.temporary = tempfile.TemporaryDirectory(prefix="capso-wayland-")
        self.folder = pathlib.Path(self.temporary.name)
        (self.folder / "weston.ini").write_text(SETTINGS, encoding="ascii")
        self.environment = {
            **environment_without_settings(),
            "XDG_RUNTIME_DIR": self.temporary.name,
            "XDG_PICTURES_DIR": self.temporary.name,
            "WAYLAND_DISPLAY": "capso",
            "QT_QPA_PLATFORM": "wayland",
            # The frame, which Qt draws there: each of its versions has another.
            "QT_WAYLAND_DISABLE_WINDOWDECORATION": "1",
        }
        self.environment.pop("DISPLAY", None)
        usage = subprocess.run(["weston", "--help"], capture_output=True, text=True, check=True).stdout
        renderer = "--renderer=pixman" if "--renderer" in usage else "--use-pixman"  # the latter up to version 11
        environment = dict(self.environment)
        del environment["WAYLAND_DISPLAY"]
        self.process = subprocess.Popen(
            # Only with --debug does it let itself be photographed.
            ["weston", "--backend=headless-backend.so", renderer, "--width=900", "--height=900", "--socket=capso",
             f"--config={self.folder}/weston.ini", f"--log={self.folder}/weston.log", "--debug"],
            env=environment, cwd=self.folder, stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
        )
        try:
            wait_for("weston", (self.folder / "capso").exists, self.check_alive, 60)
        except DemoError as error:
            self.__exit__()
            raise error
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()
        self.temporary.cleanup()

    def check_alive(self):
        if self.process.poll() is not None:
            log = self.folder / "weston.log"
            raise DemoError("weston has ended:\n" + (log.read_text(errors="replace") if log.exists() else ""))

    def run(self, *command):
        result = subprocess.run(
            command, env=self.environment, cwd=self.folder, stdin=subprocess.DEVNULL, capture_output=True, text=True,
            check=False,
        )
        if result.returncode != 0:
            raise DemoError(f"{command[0]}: {result.stdout}{result.stderr}")
        return result.stdout

    def photograph(self, path):
        self.run("weston-screenshooter")
        (picture,) = self.folder.glob("*.png")
        path.write_bytes(picture.read_bytes())
        picture.unlink()


def places(compositor, build):
    """Where everything in the window is: left, top, width, height, by name."""
    listing = compositor.run(build / "demo-form-map", str(DEVICES))
    return {name: tuple(map(int, numbers)) for name, *numbers in map(str.split, listing.splitlines())}


def check_picture(compositor, path, place):
    """Returns what is not as it should be; nothing if all is."""
    box = compositor.run("convert", path, "-format", "%@", "info:")
    size, left, top = box.split("+")
    width, height = map(int, size.split("x"))
    if (width, height) != place["window"][2:]:
        return f"what is on the background has the size {size}, the form {place['window'][2:]}"
    rows = [numbers for name, numbers in place.items() if name.startswith("devicesList/")]
    for row, (x, y, row_width, row_height) in enumerate(rows):
        crop = f"{row_width}x{row_height}+{int(left) + x}+{int(top) + y}"
        colours = int(compositor.run("convert", path, "-crop", crop, "+repage", "-format", "%k", "info:"))
        if colours < FEWEST_COLOURS:
            return f"row {row} of the list has {colours} colours"
    return "" if len(rows) == DEVICES else f"the list has {len(rows)} rows"


def show(build):
    folder = build / "pictures"
    folder.mkdir(exist_ok=True)
    path = folder / "wayland.png"
    with Compositor() as compositor:
        place = places(compositor, build)
        log = folder / "wayland.log"
        with Simulation(build, SCENE, compositor.environment, build, log) as simulation:
            simulation.wait_for("the simulator", simulation.ready, timeout=60)
            simulation.wait_for(
                "the scan",
                lambda: len({e["device"] for e in simulation.transcript() if e.get("event") == "close"}) == DEVICES,
            )

            problem = "there is no picture"

            def is_right():
                nonlocal problem
                compositor.check_alive()
                compositor.photograph(path)
                problem = check_picture(compositor, path, place)
                return not problem

            # What was scanned is shown within moments.
            try:
                simulation.wait_for("the window", is_right, timeout=60)
            except DemoError as error:
                raise DemoError(f"{error}: {problem} ({path})") from error
    print(f"picture: {path}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True)
    arguments = parser.parse_args()
    try:
        show(arguments.build.resolve())
    except DemoError as error:
        print(f"wayland: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
