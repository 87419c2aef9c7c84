"""What must not end an update: signals, a lost terminal, a second copy. And what a terminal is shown."""

import fcntl
import json
import os
import pathlib
import pty
import select
import signal
import struct
import termios
import time

from support import CONTINUED, PATIENCE, CliTest, table, transcript, with_tables

IMAGES = [
    "FX3_START", "FX3_WRITE", "FX3_COMPLETE", "FPGA_START", "FPGA_WRITE", "FPGA_COMPLETE", "EDID_START", "EDID_WRITE",
]
# After each of them a signal comes. The device takes its time for each request that follows, the completion of the EDID
# among them, so that it comes in the middle of one.
REPAIR = ["MEMORY_ACCESS", "start", "unplug", *IMAGES]  # "unplug": the device is off the bus, the program waits for it
STEPS = {"normal": IMAGES, "soft": REPAIR, "hard": REPAIR}
SLOW = [*IMAGES, "MEMORY_START"]
SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT, signal.SIGTSTP)


def scene(mode, count=1):
    return (
        f"device g\n product velk3\n mode {mode}\n count {count}\n busy-polls 20\n latency 10\n return after 1500"
    )


@with_tables
class Signals(CliTest):
    @table(*[(f"{number.name}_{mode}", number, mode) for number in SIGNALS for mode in STEPS])
    def test_update_goes_on_to_its_end(self, number, mode):
        errors = self.folder / "errors"
        slow = "".join(f"\nfault g {request} delay 400" for request in SLOW)
        # The end must not come before the last signal, however busy the machine is.
        slow += "\nfault g EDID_COMPLETE delay 5000"
        with open(errors, "w") as file:
            running = self.start(scene(mode) + slow, "update", self.package("velk3"), "SIM00001", stderr=file)
        for count, step in enumerate(STEPS[mode], 1):
            if step.islower():
                running.wait_for_event(step)
            else:
                running.wait_for_request(step)
            running.signal(number)
            running.wait_for("its answer", lambda wanted=count: errors.read_text().count(CONTINUED) == wanted)
        result = running.finish()
        self.assert_code(result, 0)
        self.assertEqual(result.out, "SIM00001: Update Completed\n")
        self.assertEqual(errors.read_text().count(CONTINUED), len(STEPS[mode]))
        for name in ("fx3", "fpga", "edid"):
            self.assertEqual(result.memory("g", name), self.image("velk3", name))

    @table(*[(number.name, number) for number in SIGNALS[:-1]])
    def test_settings_are_written_to_their_end(self, number):
        quiet = "device g\n product velk3\nfault g SET_DEVICE_FLAGS delay 500"
        result = self.interrupted(quiet, ["settings", "performance=on"], number, "GET_DEVICE_FLAGS", 1)
        self.assert_code(result, 0)
        self.assertEqual(result.state("g")["flags"], 0x04)
        self.assertIn("performance=on\n", result.out)

    @table(*[(number.name, number) for number in SIGNALS[:-1]])
    def test_modes_are_written_to_their_end(self, number):
        """Both of them: half of what was asked for would be nobody's wish."""
        modes = "\n user-mode 0 640x480 on\n user-mode 1 640x480 on\n user-mode 2 640x480 on"
        quiet = f"device g\n product velk3{modes}\nfault g USER_MODE out delay 500"
        result = self.interrupted(quiet, ["modes", "1=off", "3=800x600"], number, "USER_MODE", 3)
        self.assert_code(result, 0)
        self.assertEqual(result.lines, ["1=640x480 off", "2=640x480 on", "3=800x600 on"])
        held = [(mode["width"], mode["disabled"]) for mode in result.state("g")["userModes"]]
        self.assertEqual(held, [(640, 1), (640, 0), (800, 0)])

    def interrupted(self, scene, words, number, request, count):
        """On a busy machine the program may be at its end before the signal comes: then once more."""
        for _ in range(5):
            running = self.start(scene, *words)
            try:
                self.interrupt_after(running, request, number, count)
            except ProcessLookupError:
                running.finish()
                continue
            return running.finish()
        raise AssertionError("the signal never came in time")

    def interrupt_after(self, running, request, number, count=1):
        """The signal comes when so many of these were answered and the next request is on its way."""

        def next_is_under_way():
            answered = [entry for entry in transcript(running.folder) if "transfer" in entry]
            if len([entry for entry in answered if entry.get("name") == request]) < count:
                return False
            state = json.loads(self.control(running, "state g"))
            return state["calls"]["SUBMITURB"] > len(answered)

        running.wait_for("the write", next_is_under_way)
        running.signal(number)

    def test_failure_is_still_a_failure(self):
        running = self.start(scene("normal") + "\nfault g FPGA_WRITE nth 2 stall", "update", self.package("velk3"))
        running.wait_for_request("FX3_WRITE")
        running.signal(signal.SIGTERM)
        self.assert_code(running.finish(), 1)

    @table(*[(number.name, number) for number in SIGNALS])
    def test_the_next_device_is_not_begun(self, number):
        running = self.start(scene("normal", 3), "update", self.package("velk3"), "--all")
        running.wait_for_request("FPGA_WRITE")
        running.signal(number)
        result = running.finish()
        self.assert_code(result, 5)
        (written,) = self.written_devices(result)
        self.assert_updated(result, written, "velk3")
        self.assertEqual(result.err.count("interrupted before its update began"), 2)
        self.assertEqual(result.err.count(CONTINUED), 1)

    @table(
        ("scan", ["list"], "FX3_STATUS", 1),
        ("settings", ["settings", "performance=on"], "GET_DEVICE_FLAGS", 2),
        ("written_settings", ["settings", "performance=on"], "SET_DEVICE_FLAGS", 3),
        ("modes", ["modes"], "USER_MODE", 2),
    )
    def test_is_stopped_with_no_device_in_its_hands(self, words, request, claim):
        """The request that is made after so many claims is under way, the first of which is the scan's."""
        quiet = f"device g\n product velk3\nfault g {request} nth 1 delay 700"
        # A group of its own, which has a parent outside: the system stops no other.
        running = self.start(quiet, *words, preexec_fn=os.setpgrp)
        def claims():
            return sum(entry.get("event") == "claim" for entry in transcript(running.folder))

        running.wait_for("the request", lambda: claims() == claim)
        running.signal(signal.SIGTSTP)
        state = pathlib.Path(f"/proc/{running.pid_file.read_text().strip()}/stat")
        running.wait_for("its stop", lambda: state.read_text().rsplit(")", 1)[1].split()[0] == "T")
        events = [entry["event"] for entry in transcript(running.folder) if "event" in entry]
        self.assertEqual(events.count("claim"), events.count("release"), events)
        self.assertEqual(events.count("open"), events.count("close"), events)
        running.signal(signal.SIGCONT)
        result = running.finish()
        self.assert_code(result, 0)
        self.assertNotEqual(result.out, "")
        self.assertEqual(result.err, "")

    def test_interrupted_scan_dies_of_the_signal_and_gives_the_device_back(self):
        quiet = "device g\n product velk3\n kernel-driver uvcvideo\nfault g FX3_STATUS every delay 800"
        running = self.start(quiet, "update", self.package("velk3"))
        running.wait_for_event("claim")
        running.signal(signal.SIGINT)
        result = running.finish()
        self.assert_code(result, 128 + signal.SIGINT)
        self.assertEqual(result.err, "interrupted, ends once every device has been asked\n")
        self.assert_nothing_written(result)
        attached = [e for e in transcript(result.folder) if e.get("event") == "driver-attach"]
        self.assertTrue(attached)

    def test_ignored_signals_stay_ignored(self):
        script = 'trap "" HUP; exec "$@"'
        words = ["sh", "-c", script, "sh", self.cli, "update", self.package("velk3")]
        running = self.start(scene("normal"), program=words)
        running.wait_for_request("FX3_WRITE")
        running.signal(signal.SIGHUP)
        result = running.finish()
        self.assert_code(result, 0)
        self.assertNotIn(CONTINUED, result.err)

    def test_a_stop_that_is_ignored_from_the_start_stays_so(self):
        words = ["env", "--ignore-signal=TSTP", self.cli, "update", self.package("velk3")]
        running = self.start(scene("normal"), program=words)
        running.wait_for_request("FX3_WRITE")
        running.signal(signal.SIGTSTP)
        result = running.finish()
        self.assert_code(result, 0)
        self.assertNotIn(CONTINUED, result.err)


class Terminal:
    """A terminal whose other end the test holds."""

    def __init__(self):
        self.master, self.slave = pty.openpty()
        fcntl.ioctl(self.slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 100, 0, 0))

    def close_slave(self):
        os.close(self.slave)
        self.slave = None

    def read_all(self):
        """What was written until nobody has the terminal open any more."""
        text = b""
        until = time.monotonic() + PATIENCE
        while time.monotonic() < until:
            ready, _, _ = select.select([self.master], [], [], 1)
            if not ready:
                continue
            try:
                piece = os.read(self.master, 65536)
            except OSError:
                break
            if not piece:
                break
            text += piece
        return text.decode()


@with_tables
class OnTerminal(CliTest):
    def on_terminal(self, *command, scene="velk3", **environment):
        terminal = Terminal()
        running = self.start(scene, *command, stderr=terminal.slave, environment=environment)
        terminal.close_slave()
        shown = terminal.read_all()
        os.close(terminal.master)
        return running.finish(), shown

    def test_progress_is_one_line_that_is_written_anew(self):
        result, shown = self.on_terminal("update", self.package("velk3"))
        self.assert_code(result, 0)
        self.assertNotIn("\n", shown)
        lines = shown.split("\r\033[K")
        self.assertTrue(any(line.startswith("SIM00001: 34 % bitstream") for line in lines), lines)
        self.assertTrue(any(line.endswith(" left") for line in lines), lines)
        self.assertEqual(lines[-1], "", "the line is taken away at the end")

    def test_colours_only_where_they_are_wanted(self):
        plain = "capso-cli: there is no device 'X'\r\n"
        red = "capso-cli: \033[31mthere is no device 'X'\033[0m\r\n"
        self.assertEqual(self.on_terminal("signal", "X")[1], red)
        self.assertEqual(self.on_terminal("signal", "X", NO_COLOR="1")[1], plain)
        self.assertEqual(self.on_terminal("signal", "X", TERM="dumb")[1], plain)
        self.assertEqual(self.run_cli("velk3", "signal", "X").err, "capso-cli: there is no device 'X'\n")

    def test_lost_terminal(self):
        """The terminal goes away in the middle, as when an SSH connection breaks."""
        terminal = Terminal()
        # A session of its own with the terminal as its own, so that losing it sends SIGHUP.
        words = ["setsid", "--ctty", "--wait", self.cli, "update", self.package("velk3")]
        running = self.start(
            "device velk3\n product velk3\n latency 10\n busy-polls 20", program=words,
            stdin=terminal.slave, stdout=terminal.slave, stderr=terminal.slave,
        )
        terminal.close_slave()
        running.wait_for_request("FX3_WRITE")
        os.close(terminal.master)
        result = running.finish()
        self.assert_code(result, 0)
        self.assert_updated(result, "velk3", "velk3")


@with_tables
class TwoCopies(CliTest):
    def test_second_copy_is_refused(self):
        second = f'sleep 1; "{self.cli}" update "{self.package("velk3")}" SIM00001; echo "second $?"'
        first = f'"{self.cli}" update "{self.package("velk3")}" SIM00001; echo "first $?"'
        result = self.run_cli(
            "device velk3\n product velk3\n latency 20\n busy-polls 20",
            program=["sh", "-c", f"({second}) & ({first}); wait"],
        )
        self.assertIn("first 0\n", result.out)
        self.assertIn("second 4\n", result.out)
        self.assertIn("another program holds it", result.err)
        self.assert_updated(result, "velk3", "velk3")
        self.assertEqual(
            len([e for e in transcript(result.folder) if e.get("name") == "FX3_START"]), 1, "one update alone"
        )
