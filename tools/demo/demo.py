#!/usr/bin/env python3
"""Shows the program on simulated devices; see ./demo, which builds first and then calls this.

With a display a person clicks. Without one the program is driven through a whole update and a whole repair from
outside, by the mouse and the keyboard of an X server of its own, and photographed on the way.
"""

import argparse
import os
import pathlib
import shutil
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))

from screen import FEWEST_COLOURS, Screen, Window  # noqa: E402
from simulation import DemoError, Simulation, compare_memories, environment_without_settings, wait_for  # noqa: E402

PROJECT = pathlib.Path(__file__).resolve().parents[2]
SCENE = "demo"
TITLE = "Capso Config"
BLOCK = 4096  # bytes of an image in one transfer


def say(text):
    print(text, flush=True)


def make_packages(folder):
    """Packages of real size, and beside each the images that a device must hold after it."""
    script = PROJECT / "simulator" / "packages" / "make_packages.py"
    subprocess.run([sys.executable, script, folder, "--real-size"], check=True, stdout=subprocess.DEVNULL)


def report(simulation, states, packages):
    """Prints the verdict on each device and on all.

    Returns the verdicts by device: True, False, or None if it was not written.
    """
    results = compare_memories(simulation, states, packages)
    for name, _, text in results:
        say(f"  {name}: {text}")
    verdicts = {name: verdict for name, verdict, _ in results}
    written = [verdict for verdict in verdicts.values() if verdict is not None]
    if written:
        say("memories match" if all(written) else "memories differ")
    else:
        say("nothing was written")
    return verdicts


def check_exit_code(code):
    if code != 0:
        raise DemoError(f"the program or the simulator ended with exit code {code}")


# ---- with a display


def attended(build, packages, log):
    """Leaves the program to the person at the screen."""
    say(f"1. Click a device, choose its package ({packages}/velk3.fw, sorn3.fw or velk3_4k.fw) and click UPDATE.")
    say("2. Try it on the device in repair mode too; look at the other tabs; close the window to compare memories.")
    with Simulation(build, SCENE, os.environ, packages, log) as simulation:
        simulation.wait_for("the simulator", simulation.ready, timeout=60)
        states = simulation.devices()
        code = simulation.process.wait()
        verdicts = report(simulation, states, packages)
    check_exit_code(code)
    return False not in verdicts.values()


# ---- without


def has_signal(entry):
    """Whether this answer to a status poll tells of a picture: bytes 24 and 25 are its width."""
    return entry["status"] == "ok" and any(bytes.fromhex(entry["data"])[24:26])


class Visit:
    """One unattended visit to the program: what is done, in which order, and what is waited for."""

    def __init__(self, screen, simulation, build, packages, pictures):
        self.screen = screen
        self.simulation = simulation
        self.packages = packages
        self.pictures = pictures
        self.taken = {}
        self.states = simulation.devices()
        self.rows = self.rows_after_scan()
        self.window = Window(screen, TITLE, build / "demo-form-map", len(self.rows))

    def rows_after_scan(self):
        """The devices in the order of their rows, which is the order in which the scan opens them."""

        def scanned():
            opened = [e["device"] for e in self.simulation.transcript() if e.get("event") == "open"]
            closed = [e["device"] for e in self.simulation.transcript() if e.get("event") == "close"]
            recognised = [name for name, state in self.states.items() if state["product"] != "other"]
            return list(dict.fromkeys(opened)) if set(recognised) <= set(closed) else None

        return self.simulation.wait_for("the first scan", scanned)

    def device(self, *modes, product=None):
        """The first device of the list that is in one of these modes."""
        for name in self.rows:
            if self.states[name]["mode"] in modes and product in (None, self.states[name]["product"]):
                return name
        raise DemoError(f"the scene has no device in the mode {' or '.join(modes)}")

    def picture(self, stage, text, over=None):
        """Takes a picture of what stands, or of what passes: then `over` tells whether it has."""
        path = self.pictures / f"{len(self.taken) + 1:02}-{stage}.png"
        picture = self.window.photograph_when_still(path, self.taken.values(), times=1 if over else 3)
        if over and over():
            path.unlink()
            say(f"  {text} (the machine is too busy for a picture of it)")
            return
        if self.window.fewest_colours_of_a_row(path) < FEWEST_COLOURS:
            raise DemoError(f"the picture {path.name} shows an empty list")
        if picture in self.taken.values():
            raise DemoError(f"the picture {path.name} shows nothing new")
        self.taken[path.name] = picture
        say(f"  {text} ({path.name})")

    def wait_for(self, what, condition):
        """Waits for what the devices see, and not beyond a box that reports a failure."""

        def alive():
            self.simulation.check_alive()
            boxes = self.screen.titles_of_others(TITLE)
            if boxes:
                raise DemoError(f"waiting for {what}, the program showed a box: {', '.join(boxes)}")

        wait_for(what, condition, alive)

    def select(self, name):
        """Clicks the device's row until the device itself is asked for its input signal."""
        for _ in range(10):
            mark = self.simulation.count()
            self.window.click(f"devicesList/{self.rows.index(name)}")
            until = time.monotonic() + 10
            while time.monotonic() < until:
                if self.simulation.seen(name, mark, name="INPUT_STATUS"):
                    return
                self.simulation.check_alive()
                time.sleep(0.1)
        raise DemoError(f"the row of {name} cannot be selected")

    def start_update(self, name):
        product = self.states[name]["product"]
        self.window.enter_text("firmwareLineEdit", str(self.packages / f"{product}.fw"))
        mark = self.simulation.count()
        self.window.click("updateButton")
        return mark

    def wait_for_half_of_bitstream(self, name, mark):
        size = (self.packages / self.states[name]["product"] / "fpga.bin").stat().st_size
        half = size // BLOCK // 2
        self.wait_for(
            f"half of {name}'s bitstream", lambda: len(self.simulation.seen(name, mark, name="FPGA_WRITE")) >= half
        )

    def over(self, name, mark):
        return lambda: self.simulation.seen(name, mark, name="FPGA_COMPLETE")

    def wait_for_end_of_update(self, name, mark):
        """The last image is complete, and the scan that follows every update has been through the list."""
        has_edid = (self.packages / self.states[name]["product"] / "edid.bin").exists()
        last = "EDID_COMPLETE" if has_edid else "FPGA_COMPLETE"
        self.wait_for(f"{name}'s {last}", lambda: self.simulation.seen(name, mark, name=last, status="ok"))
        self.wait_for_scan(self.simulation.transcript().index(self.simulation.seen(name, mark, name=last)[-1]))

    def wait_for_scan(self, mark):
        """Every device of the list was opened and given back."""

        def scanned(name):
            opened = len(self.simulation.seen(name, mark, event="open"))
            closed = len(self.simulation.seen(name, mark, event="close"))
            return opened > 0 and closed >= opened

        self.wait_for("the rescan", lambda: all(scanned(name) for name in self.rows))

    # -- the stages

    def look_around(self, name):
        self.picture("devices", f"{len(self.rows)} devices are listed")
        self.select(name)

        def signal_was_told():
            return any(has_signal(answer) for answer in self.simulation.seen(name, name="INPUT_STATUS"))

        self.wait_for(f"a signal at {name}", signal_was_told)
        self.picture("selected", f"{name} is selected, its input signal is in the status line")
        mark = self.simulation.count()
        self.window.click("tabWidget/1")
        self.wait_for("the flags", lambda: self.simulation.seen(name, mark, name="GET_DEVICE_FLAGS"))
        self.picture("settings", "its settings")
        self.window.click("tabWidget/2")
        self.wait_for("the user modes", lambda: len(self.simulation.seen(name, mark, name="USER_MODE")) >= 3)
        self.picture("user-modes", "its user modes")
        self.window.click("tabWidget/0")

    def update(self, name):
        mark = self.start_update(name)
        self.wait_for_half_of_bitstream(name, mark)
        self.picture("updating", f"{name} is being updated", self.over(name, mark))
        self.wait_for_end_of_update(name, mark)
        self.picture("updated", "the update is completed")

    def repair(self, name):
        self.select(name)
        self.picture("broken", f"{name} is selected, which is in {self.states[name]['mode']} repair")
        mark = self.start_update(name)
        self.wait_for("its sandbox's start", lambda: self.simulation.seen(name, mark, event="start", accepted=True))
        self.picture("sandbox-started", "its sandbox was loaded, read back and started", self.over(name, mark))
        self.wait_for_half_of_bitstream(name, mark)
        self.picture("repairing", "it came back, and is being written", self.over(name, mark))
        self.wait_for_end_of_update(name, mark)
        self.wait_for(f"{name} to run again", lambda: self.simulation.state(name)["mode"] == "normal")
        mark = self.simulation.count()
        self.window.click("rescanDevicesButton")
        self.wait_for_scan(mark)
        self.picture("repaired", "after its power was cycled, it is listed as a running device")

    def leave(self):
        """Closes the dialog; the simulator ends with it."""
        self.window.key("Escape")
        try:
            return self.simulation.process.wait(60)
        except subprocess.TimeoutExpired as too_long:
            raise DemoError("the window does not close") from too_long


def unattended(build, packages, pictures, log):
    environment = {**environment_without_settings(), "QT_QPA_PLATFORM": "xcb"}
    with Screen() as screen:
        with Simulation(build, SCENE, {**environment, "DISPLAY": screen.display}, packages, log) as simulation:
            return visit_alone(screen, simulation, build, packages, pictures)


def visit_alone(screen, simulation, build, packages, pictures):
    try:
        simulation.wait_for("the simulator", simulation.ready, timeout=60)
        visit = Visit(screen, simulation, build, packages, pictures)
        healthy = visit.device("normal", product="velk3")
        broken = visit.device("soft", "soft-f", "hard")
        visit.look_around(healthy)
        visit.update(healthy)
        visit.repair(broken)
        code = visit.leave()
    except DemoError:
        screen.run("import", "-window", "root", str(pictures / "failed.png"))
        raise
    finally:
        transcript = simulation.directory / "transcript.jsonl"
        if transcript.exists():
            shutil.copy(transcript, pictures)
    verdicts = report(simulation, visit.states, packages)
    check_exit_code(code)
    return False not in verdicts.values() and verdicts[healthy] and verdicts[broken]


def main():
    parser = argparse.ArgumentParser(description="The program on simulated devices.")
    parser.add_argument("--build", type=pathlib.Path, default=PROJECT / "build" / "release")
    parser.add_argument("--pictures", type=pathlib.Path, default=PROJECT / "build" / "demo")
    parser.add_argument("--unattended", action="store_true", help="also where there is a display")
    arguments = parser.parse_args()

    pictures = arguments.pictures.resolve()
    pictures.mkdir(parents=True, exist_ok=True)
    for old in pictures.glob("*.png"):
        old.unlink()
    log = pictures / "program.log"
    packages = pictures / "packages"
    make_packages(packages)
    has_display = bool(os.environ.get("DISPLAY") or os.environ.get("WAYLAND_DISPLAY"))
    try:
        if has_display and not arguments.unattended:
            succeeded = attended(arguments.build.resolve(), packages, log)
        else:
            say("Driving the program on simulated devices, on a display of its own:")
            succeeded = unattended(arguments.build.resolve(), packages, pictures, log)
            say(f"pictures: {pictures}")
    except DemoError as error:
        if log.exists():
            print("\n".join(log.read_text(errors="replace").splitlines()[-15:]), file=sys.stderr)
        print(f"demo: {error} (the program's log: {log})", file=sys.stderr)
        return 1
    return 0 if succeeded else 1


if __name__ == "__main__":
    sys.exit(main())
