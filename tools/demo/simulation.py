"""Runs the program on simulated devices, and follows what they see."""

import json
import os
import pathlib
import subprocess
import tempfile
import time


class DemoError(Exception):
    """Something did not go as it should; the text says what."""


def wait_for(what, condition, alive=lambda: None, timeout=240.0):
    """Polls until `condition` gives something true, and returns that. `alive` raises when waiting is pointless."""
    deadline = time.monotonic() + timeout
    while True:
        result = condition()
        if result:
            return result
        alive()
        if time.monotonic() > deadline:
            raise DemoError(f"waited {timeout:.0f} seconds in vain for {what}")
        time.sleep(0.2)


class Simulation:
    """A built-in scene of capso-sim with the program on it. Use it in a `with`: leaving it ends both.

    The program starts in the folder `start_in`, where its file dialog opens. That must hold no file of the scene's
    name, which would be taken for the scene. What the program and the simulator have to say goes to the file `log`.
    """

    def __init__(self, build, scene, environment, start_in, log):
        self.simulator = build / "capso-sim"
        for program in (self.simulator, build / "capso-config"):
            if not program.exists():
                raise DemoError(f"{program} is not built")
        # The control socket is in there, and the path of a socket has to be short: not below the build folder.
        self.folder = tempfile.TemporaryDirectory(prefix="capso-demo-")
        self.directory = pathlib.Path(self.folder.name)
        self.entries = []
        self.unread = 0
        with log.open("wb") as output:
            self.process = subprocess.Popen(
                [self.simulator, scene, "--", build / "capso-config"],
                env={**environment, "CAPSO_SIM_DIR": str(self.directory)},
                cwd=start_in,
                stdin=subprocess.DEVNULL,
                stdout=output,
                stderr=output,
            )

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(30)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        self.folder.cleanup()

    def check_alive(self):
        code = self.process.poll()
        if code is not None:
            raise DemoError(f"the program has ended early, with exit code {code}")

    def control(self, *command):
        """Sends one command to the simulator and returns its answer without the leading "ok"."""
        answer = subprocess.run(
            [self.simulator, "--control", self.directory, *command],
            stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False,
        )
        if answer.returncode != 0:
            raise DemoError(f"the simulator refuses '{' '.join(command)}': {answer.stdout}{answer.stderr}".strip())
        return answer.stdout.strip().removeprefix("ok").strip()

    def ready(self):
        return (self.directory / "control").exists()

    def devices(self):
        """The state of every device, by name."""
        return {name: self.state(name) for name in self.control("list").split()}

    def state(self, name):
        return json.loads(self.control("state", name))

    def transcript(self):
        """Everything that the devices have seen so far, oldest first."""
        path = self.directory / "transcript.jsonl"
        if path.exists():
            with path.open("rb") as file:
                file.seek(self.unread)
                text = file.read()
            whole = text.rfind(b"\n") + 1  # the last line may still be growing
            self.unread += whole
            self.entries += [json.loads(line) for line in text[:whole].splitlines()]
        return self.entries

    def count(self):
        """How far the transcript has come: a mark for seen()."""
        return len(self.transcript())

    def seen(self, device, since=0, **fields):
        """The entries of a device from a mark on that have these fields."""
        return [
            entry
            for entry in self.transcript()[since:]
            if entry.get("device") == device and all(entry.get(key) == value for key, value in fields.items())
        ]

    def wait_for(self, what, condition, timeout=240.0):
        return wait_for(what, condition, self.check_alive, timeout)


def compare_memories(simulation, states, packages):
    """Compares each device that was written with its product's package.

    Returns a list of (device, verdict, text): the verdict is True, False, or None for a device that nobody wrote.
    """
    results = []
    for name, state in states.items():
        starts = [e for e in simulation.seen(name) if e.get("name") in ("FX3_START", "FPGA_START", "EDID_START")]
        if not starts:
            results.append((name, None, "not written"))
            continue
        package = packages / state["product"]
        differing = [
            image.name
            for image in sorted(package.glob("*.bin"))
            if image.read_bytes() != (simulation.directory / "memory" / name / image.name).read_bytes()
        ]
        if not list(package.glob("*.bin")):
            raise DemoError(f"no images to compare with in {package}")
        if differing:
            results.append((name, False, f"memories differ from {state['product']}.fw: {', '.join(differing)}"))
        else:
            results.append((name, True, f"memories match {state['product']}.fw"))
    return results


def environment_without_settings():
    """The environment, without what would make the program look different on each machine."""
    return {
        key: value
        for key, value in os.environ.items()
        if not key.startswith(("QT_", "XDG_CURRENT_DESKTOP", "KDE_", "GTK_", "WAYLAND_", "LD_PRELOAD"))
    }
