"""Runs of the unmodified capso-cli on simulated devices, and what the devices saw and hold afterwards."""

import ctypes
import json
import os
import pathlib
import signal
import subprocess
import tempfile
import time
import unittest

PATIENCE = 120  # seconds; far more than anything here takes on a machine of its own

# What these tests know of the products, apart from what the program and the simulator know.
PRODUCTS = {
    "velk3": {"name": "VELK3 Grabber", "id": "e5c1:3601", "soft": "e5c1:3600", "edid": True},
    "sorn3": {"name": "SORN3 Grabber", "id": "e5c1:3621", "soft": "e5c1:3620", "edid": False},
    "velk3_4k": {"name": "VELK3 4K Grabber", "id": "e5c1:3631", "soft": "e5c1:3630", "edid": True},
}
# What each setting is called, and its bit in the flags byte.
SETTINGS = {"input-resolution": 0x01, "aspect-ratio": 0x02, "performance": 0x04, "audio-selector": 0x10}
ALL_SETTINGS = sum(SETTINGS.values())
NEW_VERSION = "2.0.0"  # of every sample package
RETRY = "Do not disconnect. Retry. Call Support."
CONTINUED = "DO NOT INTERRUPT"


def libusb_text(code):
    """libusb's sentence for one of its codes, in the words of the version that is installed."""
    strerror = ctypes.CDLL("libusb-1.0.so.0").libusb_strerror
    strerror.restype = ctypes.c_char_p
    return strerror(code).decode()


NO_DEVICE = libusb_text(-4)
TIMEOUT = libusb_text(-7)
STALL = libusb_text(-9)


class Result:
    """What one run came to: the program's exit code and outputs, the devices' transcript and memories."""

    def __init__(self, code, out, err, folder):
        self.code = code
        self.out = out
        self.err = err
        self.folder = folder

    @property
    def lines(self):
        return self.out.splitlines()

    @property
    def objects(self):
        """One object for each line of the output."""
        return [json.loads(line) for line in self.lines]

    def memory(self, device, name):
        path = self.folder / "memory" / device / f"{name}.bin"
        return path.read_bytes()

    def state(self, device):
        return json.loads((self.folder / "memory" / device / "state.json").read_text())


def transcript(folder):
    """The complete lines so far."""
    path = folder / "transcript.jsonl"
    text = path.read_text() if path.exists() else ""
    return [json.loads(line) for line in text.split("\n")[:-1]]


class Running:
    """A run that goes on while a test watches it."""

    def __init__(self, process, folder, pid_file):
        self.process = process
        self.folder = folder
        self.pid_file = pid_file

    def wait_for(self, what, condition):
        until = time.monotonic() + PATIENCE
        while time.monotonic() < until:
            found = condition()
            if found:
                return found
            if self.process.poll() is not None:
                raise AssertionError(f"the program ended before {what}: {self.process.communicate()}")
            time.sleep(0.01)
        raise AssertionError(f"waited in vain for {what}")

    def wait_for_request(self, name, device=None):
        def seen():
            return any(
                entry.get("name") == name and device in (None, entry["device"]) for entry in transcript(self.folder)
            )

        self.wait_for(name, seen)

    def wait_for_event(self, event):
        self.wait_for(event, lambda: any(entry.get("event") == event for entry in transcript(self.folder)))

    def signal(self, number):
        pid = self.wait_for("its process id", lambda: self.pid_file.exists() and self.pid_file.read_text().strip())
        os.kill(int(pid), number)

    def finish(self):
        out, err = self.process.communicate(timeout=PATIENCE)
        return Result(self.process.returncode, out, err, self.folder)


def run_emulated(command, *, check=False, **settings):
    """subprocess.run() under wine, whose services the first program starts: they would hold a pipe open long after its end,
    so what is captured goes to files.

    Wine's desktop starts with the first program that wants a window, if only for its messages, and ends a second after the
    last. Now and then a program that starts meanwhile never gets a message of its own, and now and then wine kills one at
    its end. So a run is made at most three times.
    """
    for last in (False, False, True):
        try:
            ran = run_emulated_once(command, **settings)
            if last or ran.returncode != -signal.SIGKILL:
                break
        except subprocess.TimeoutExpired:
            if last:
                raise
    if check:
        ran.check_returncode()
    return ran


def run_emulated_once(command, *, capture_output, encoding, **settings):
    # wine hands on the arguments that the locale can express.
    environment = {**os.environ, "LC_ALL": "C.UTF-8"}
    captured = {name: tempfile.TemporaryFile() for name in ("stdout", "stderr")
                if capture_output or settings.get(name) == subprocess.PIPE}
    ran = subprocess.run(command, env=environment, check=False, **{**settings, **captured, "timeout": PATIENCE // 4})
    for name, file in captured.items():
        with file:
            file.seek(0)
            data = file.read()
        setattr(ran, name, data.decode(encoding).replace("\r\n", "\n") if encoding else data)
    return ran


class CliTest(unittest.TestCase):
    """A test with a folder of its own. `build` and `emulator` are set by the runner."""

    build = None
    emulator = None  # what runs the program where it is one for another system
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="cli-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.runs = 0

    @property
    def cli(self):
        return str(self.build / ("capso-cli.exe" if self.emulator else "capso-cli"))

    def alone(self, *words, **options):
        """Runs capso-cli without any device."""
        settings = {"capture_output": True, "encoding": "utf-8", "timeout": PATIENCE, **options}
        if not self.emulator:
            return subprocess.run([self.cli, *words], **settings)
        return run_emulated([self.emulator, self.cli, *words], **settings)

    def package(self, name):
        return str(self.build / "packages" / f"{name}.fw")

    def image(self, product, name):
        return (self.build / "packages" / product / f"{name}.bin").read_bytes()

    def scene(self, text):
        """The name of a built-in scene, or the path of one that is written here."""
        if "\n" not in text and " " not in text:
            return text
        path = self.folder / "test.scene"
        path.write_text(text + "\n")
        return str(path)

    def start(self, scene, *command, environment=None, program=None, **popen):
        """capso-cli with these arguments, or another program, on the scene."""
        self.runs += 1
        folder = self.folder / f"run{self.runs}"
        pid_file = self.folder / f"pid{self.runs}"
        words = list(program) if program else [self.cli, *command]
        # The shell becomes the program, so that a test knows its process id.
        # The simulator ignores SIGPIPE, and a program would inherit that.
        shell = ["env", "--default-signal=PIPE", "sh", "-c", f'echo $$ >"{pid_file}"; exec "$@"', "sh", *words]
        variables = {
            "LC_ALL": "C.UTF-8",
            "TERM": "xterm",
            **{name: value for name, value in os.environ.items() if name not in ("LC_ALL", "TERM", "NO_COLOR")},
            "CAPSO_SIM_DIR": str(folder),
            **(environment or {}),
        }
        pipes = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **popen}
        process = subprocess.Popen(
            [str(self.build / "capso-sim"), self.scene(scene), "--", *shell], env=variables, text=True, **pipes
        )
        self.addCleanup(stop, process)
        return Running(process, folder, pid_file)

    def run_cli(self, scene, *command, **options):
        return self.start(scene, *command, **options).finish()

    def control(self, running, command):
        """A command to the simulator of this run; its answer without the "ok"."""
        socket = running.folder / "control"
        running.wait_for("the control socket", socket.exists)
        words = [str(self.build / "capso-sim"), "--control", str(running.folder), *command.split()]
        answer = subprocess.run(words, capture_output=True, text=True)
        self.assertEqual(answer.returncode, 0, answer.stdout)
        return answer.stdout.removeprefix("ok").strip()

    # -- what is compared

    def assert_code(self, result, code):
        self.assertEqual(result.code, code, f"out: {result.out}\nerr: {result.err}")

    def assert_updated(self, result, device, product):
        for name in ("fx3", "fpga", *(["edid"] if PRODUCTS[product]["edid"] else [])):
            self.assertEqual(result.memory(device, name), self.image(product, name), f"{device}: {name}")

    def assert_nothing_written(self, result):
        """No device was sent anything but what a scan or a reading command asks."""
        writes = [entry for entry in transcript(result.folder) if entry.get("requestType") == 0x40]
        self.assertEqual(writes, [])

    def written_devices(self, result):
        return {entry["device"] for entry in transcript(result.folder) if entry.get("requestType") == 0x40}


def stop(process):
    if process.poll() is None:
        process.send_signal(signal.SIGTERM)
    try:
        process.communicate(timeout=20)
    except (subprocess.TimeoutExpired, ValueError):
        process.kill()


def anywhere(function):
    """Marks a test that needs neither a device nor Linux: it is run as a Windows program, too."""
    function.anywhere = True
    return function


def table(*rows):
    """Makes a test method for each row: its first word names the test, the others are its arguments."""

    def decorate(function):
        function.rows = rows
        return function

    return decorate


def with_tables(cls):
    """Replaces the methods that table() has marked by one test for each row."""
    for name, function in list(vars(cls).items()):
        for row in getattr(function, "rows", ()):

            def test(self, function=function, arguments=row[1:]):
                function(self, *arguments)

            test.anywhere = getattr(function, "anywhere", False)
            setattr(cls, f"{name}_{row[0]}", test)
        if hasattr(function, "rows"):
            delattr(cls, name)
    return cls
