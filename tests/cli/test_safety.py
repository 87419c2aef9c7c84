"""What capso-cli holds to whatever happens around it: a package that changes, files that are closed, a slow reader."""

import concurrent.futures
import contextlib
import fcntl
import json
import os
import pathlib
import shutil
import signal
import subprocess
import time
import unittest
import zipfile

from support import CONTINUED, PATIENCE, CliTest, anywhere, table, transcript, with_tables

VELK3 = object()  # stands for the package's path

TWO = "device a\n product velk3\n latency 5\ndevice b\n product velk3"
FAST = "device g\n product velk3\n busy-polls 0"


@with_tables
class ChangingPackage(CliTest):
    """Each device of several is given the bytes that were judged."""

    def own_package(self, name="own.fw"):
        path = self.folder / name
        shutil.copy(self.package("velk3"), path)
        return path

    def update_both_while(self, path, change):
        running = self.start(TWO, "update", str(path), "SIM00001", "SIM00002")
        running.wait_for_request("FX3_START", "a")
        change(path)
        result = running.finish()
        self.assert_code(result, 0)
        for device in ("a", "b"):
            self.assert_updated(result, device, "velk3")

    def test_written_over(self):
        self.update_both_while(self.own_package(), lambda path: shutil.copyfile(self.package("legacy"), path))

    def test_replaced(self):
        def replace(path):
            other = self.folder / "other"
            shutil.copy(self.package("sorn3"), other)
            other.rename(path)

        self.update_both_while(self.own_package(), replace)

    def test_taken_away(self):
        self.update_both_while(self.own_package(), pathlib.Path.unlink)

    def test_leaves_no_copy(self):
        before = set(os.listdir("/tmp"))
        running = self.start("device velk3\n product velk3\n latency 5", "update", str(self.own_package()))
        running.wait_for_request("FX3_START")
        running.signal(9)
        running.finish()
        self.assertEqual([n for n in set(os.listdir("/tmp")) - before if n.startswith("tmpf")], [])

    @anywhere
    @table(
        ("folder", lambda path: path.mkdir(), "Cannot open firmware package: it is not a file"),
        ("pipe", os.mkfifo, "Cannot open firmware package: it is not a file"),
        ("device", lambda path: path.symlink_to("/dev/zero"), "Cannot open firmware package: it is not a file"),
        ("too_long", lambda path: (path.touch(), os.truncate(path, 256 * 1024 * 1024 + 1)),
         "Cannot open firmware package: it is too long"),
        ("nothing", lambda path: None, "Cannot open firmware package: No such file"),
        ("empty", lambda path: path.touch(), "Cannot open firmware package: "),
    )
    def test_no_package(self, make, text):
        self.expect_no_package(make, text)

    def test_no_package_that_can_be_read(self):
        self.expect_no_package(lambda path: path.symlink_to("/proc/self/mem"),
                               "Cannot open firmware package: Input/output error")

    def expect_no_package(self, make, text):
        path = self.folder / "no.fw"
        make(path)
        for words in (["update", str(path)], ["package", str(path)]):
            ran = self.alone(*words, timeout=60)
            self.assertEqual(ran.returncode, 1)
            place = f"{path}: " if words[0] == "package" else ""
            self.assertTrue(ran.stderr.startswith(f"capso-cli: {place}{text}"), ran.stderr)
            self.assertEqual(ran.stdout, "")


class NoFilesLeft(CliTest):
    def test_it_is_said(self):
        """Wherever the system has no file left for it, that is an error, and the copy's own is said."""
        errors = []
        for limit in range(3, 16):
            shell = f'ulimit -n {limit}; exec "{self.cli}" package "{self.package("velk3")}"'
            ran = subprocess.run(["sh", "-c", shell], capture_output=True, text=True, timeout=60)
            errors.append(ran.stderr)
            self.assertEqual(ran.returncode == 0, ran.stderr == "", ran)
        self.assertTrue(any("no copy of it can be made: Too many open files" in text for text in errors), errors)
        self.assertEqual(errors[-1], "")


@with_tables
class Names(CliTest):
    def test_package_whose_path_is_no_text(self):
        path = os.fsencode(self.folder) + b"/\xff\xfe.fw"
        shutil.copy(self.package("velk3"), path)
        result = self.run_cli("velk3", program=[self.cli, "update", path])
        self.assert_code(result, 0)
        self.assert_updated(result, "velk3", "velk3")
        ran = subprocess.run([self.cli, "package", "--json", path], capture_output=True)
        self.assertEqual(ran.returncode, 0, ran.stderr)
        self.assertTrue(json.loads(ran.stdout)["packages"][0]["good"])


CLOSED = {"none": "", "input": "<&-", "output": ">&-", "errors": "2>&-", "all": "<&- >&- 2>&-"}


@with_tables
class ClosedFiles(CliTest):
    """A device or a package that became standard output would be written to."""

    @table(*[(name, redirection) for name, redirection in CLOSED.items()])
    def test_update(self, redirection):
        package = self.folder / "own.fw"
        shutil.copy(self.package("velk3"), package)
        shell = (f'exec 8<&0; "{self.cli}" update "{package}" {redirection}; echo "code $?" >"{self.folder}/code"')
        result = self.run_cli("device velk3\n product velk3\n busy-polls 0", program=["sh", "-c", shell])
        self.assertEqual((self.folder / "code").read_text(), "code 0\n")
        self.assert_updated(result, "velk3", "velk3")
        self.assertEqual(package.read_bytes(), pathlib.Path(self.package("velk3")).read_bytes())

    @table(*[(name, redirection) for name, redirection in CLOSED.items() if name != "none"])
    def test_no_file_takes_their_place(self, redirection):
        """While the program waits, what stands in their place can be neither read nor written."""
        shell = f'exec "{self.cli}" signal {redirection}'
        # It ends once it has something to say that nobody can get.
        slow = "device g\n product velk3\nfault g FX3_STATUS every delay 900"
        running = self.start(slow, program=["sh", "-c", shell])
        running.wait_for_event("open")
        pid = running.pid_file.read_text().strip()
        for number, closing, refusing in ((0, "<&-", os.O_WRONLY), (1, " >&-", os.O_RDONLY), (2, "2>&-", os.O_RDONLY)):
            if closing in " " + redirection:
                facts = pathlib.Path(f"/proc/{pid}/fdinfo/{number}").read_text()
                flags = int(facts.split("flags:")[1].split()[0], 8)
                self.assertEqual(flags & os.O_ACCMODE, refusing, os.readlink(f"/proc/{pid}/fd/{number}"))
        running.finish()

    def test_a_result_that_nobody_can_get_is_a_failure(self):
        result = self.run_cli("velk3", program=["sh", "-c", f'exec "{self.cli}" list >&-'])
        self.assert_code(result, 1)
        self.assertEqual(result.err, "capso-cli: cannot write standard output: Bad file descriptor\n")


GIBIBYTE = 1 << 30


@unittest.skipIf("ASAN_OPTIONS" in os.environ or "TSAN_OPTIONS" in os.environ, "sanitizers reserve more than any limit")
@with_tables
class NoThreadsLeft(CliTest):
    """Wherever the system has no thread left for it, the program comes to an end, and says so.

    Each thread wants a stack of a gibibyte here, and so many of them fit into what the process may reserve.
    """

    def limited(self, gibibytes, words):
        return ["prlimit", f"--stack={GIBIBYTE}:", f"--as={gibibytes * GIBIBYTE}", self.cli, *words]

    def test_without_any(self):
        ran = subprocess.run(self.limited(1, ["package", "/nowhere/x.fw"]), capture_output=True, text=True, timeout=60)
        self.assertEqual(ran.returncode, 1)
        self.assertEqual(ran.stderr, "capso-cli: /nowhere/x.fw: Cannot open firmware package: No such file\n")

    def test_without_any_and_with_a_full_disk(self):
        words = ["package", self.package("velk3"), self.package("sorn3")]
        with open("/dev/full", "w") as full:
            ran = subprocess.run(self.limited(1, words), stdout=full, stderr=subprocess.PIPE, text=True, timeout=60)
        self.assertEqual(ran.returncode, 1)
        self.assertEqual(ran.stderr, "capso-cli: cannot write standard output: No space left on device\n")

    @table(
        ("update", ["update", VELK3]),
        ("settings", ["settings", "performance=on"]),
        ("list", ["list"]),
    )
    def test_from_too_few_to_enough(self, words):
        words = [self.package("velk3") if word is VELK3 else word for word in words]
        errors = []
        for gibibytes in range(1, 20):
            result = self.run_cli(FAST, program=self.limited(gibibytes, words))
            if result.code == 0:
                break
            errors.append(result.err)
            self.assert_code(result, 1)
            self.assertEqual(self.written_devices(result), set())
        self.assertIn("capso-cli: the system gives this program no thread\n", errors)
        self.assert_code(result, 0)
        if words[0] == "update":
            self.assert_updated(result, "g", "velk3")


class FileSizeLimit(CliTest):
    def test_it_is_said_and_nothing_is_written(self):
        """A limit that the copy of the package reaches would end the program, in the middle of a later update too."""
        shell = f'ulimit -f 1; exec "{self.cli}" update "{self.package("velk3")}"'
        result = self.run_cli("velk3", program=["sh", "-c", shell])
        self.assert_code(result, 1)
        self.assertIn("File too large", result.err)
        self.assertEqual(self.written_devices(result), set())


class StalledPipe:
    """A pipe that is full, and whose reader takes nothing until it is told to."""

    def __init__(self):
        self.reader, self.writer = os.pipe()
        self.filling = b"x" * fcntl.fcntl(self.writer, fcntl.F_SETPIPE_SZ, 4096)
        os.write(self.writer, self.filling)

    def close_writer(self):
        os.close(self.writer)

    def read_all(self):
        with open(self.reader, "rb") as file:
            text = file.read()
        assert text.startswith(self.filling)
        return text[len(self.filling):].decode()


WRITTEN = ("EDID_COMPLETE", "SET_DEVICE_FLAGS", "USER_MODE")


@with_tables
class StalledReader(CliTest):
    """Who reads nothing, as a pager or a terminal that Ctrl+S has stopped, stops nothing that is begun with a device."""

    def start_stalled(self, *words, stalled, scene=FAST):
        pipe = StalledPipe()
        running = self.start(scene, *words, **{name: pipe.writer for name in stalled})
        pipe.close_writer()
        return running, pipe

    def wait_for_the_end_of_the_work(self, running, device="g"):
        """The last request is answered and the device given back."""

        def done():
            entries = transcript(running.folder)
            last = [i for i, entry in enumerate(entries) if entry.get("name") in WRITTEN and entry["requestType"] == 64]
            return last and any(e.get("event") == "close" for e in entries[last[-1]:] if e["device"] == device)

        running.wait_for("the end of the work", done)

    @table(
        ("output", ["stdout"], []),
        ("errors", ["stderr"], []),
        ("both", ["stdout", "stderr"], []),
        ("errors_verbose", ["stderr"], ["--verbose"]),
        ("output_json", ["stdout"], ["--json"]),
    )
    def test_update(self, stalled, more):
        running, pipe = self.start_stalled("update", self.package("velk3"), *more, stalled=stalled)
        self.wait_for_the_end_of_the_work(running)
        self.assertIsNone(running.process.poll(), "it waits for its reader")
        with concurrent.futures.ThreadPoolExecutor() as at_once:
            text = at_once.submit(pipe.read_all)
            result = running.finish()
        self.assert_code(result, 0)
        self.assert_updated(result, "g", "velk3")
        said = text.result()
        if "stdout" in stalled:
            self.assertIn('"result":"updated"' if more else "SIM00001: Update Completed\n", said)
        if "stderr" in stalled:
            self.assertIn("SIM00001: 100 % done\n", said)
        if "--verbose" in more:
            self.assertIn("Update steps: 3\n", said)

    def test_all_devices_one_after_another(self):
        scene = "device a\n product velk3\n busy-polls 0\ndevice b\n product velk3\n busy-polls 0"
        words = ["update", self.package("velk3"), "SIM00001", "SIM00002"]
        running, pipe = self.start_stalled(*words, stalled=["stdout", "stderr"], scene=scene)
        self.wait_for_the_end_of_the_work(running, "b")
        pipe.read_all()
        result = running.finish()
        self.assert_code(result, 0)
        self.assert_updated(result, "b", "velk3")

    def test_do_not_interrupt_is_said_beside_it(self):
        errors = self.folder / "errors"
        pipe = StalledPipe()
        with open(errors, "w") as file:
            running = self.start(
                FAST + "\n latency 10", "update", self.package("velk3"), "--json", stdout=pipe.writer, stderr=file)
        pipe.close_writer()
        running.wait_for_request("FX3_WRITE")
        running.signal(signal.SIGINT)
        running.wait_for("the answer", lambda: CONTINUED in errors.read_text())
        pipe.read_all()
        self.assert_code(running.finish(), 0)

    def signal_until_it_ends(self, running, number):
        until = time.monotonic() + PATIENCE / 2
        while running.process.poll() is None and time.monotonic() < until:
            with contextlib.suppress(ProcessLookupError):  # it has ended, and the simulator not yet
                running.signal(number)
            time.sleep(0.2)
        self.assertIsNotNone(running.process.poll(), "it waits for its reader in spite of the signal")

    @table(
        ("update", ["update", VELK3], 0),
        ("failed_update", ["update", VELK3], 1),
        ("settings", ["settings", "performance=on"], 0),
        ("modes", ["modes", "1=off"], 0),
    )
    def test_signal_after_the_work_leaves_the_devices_status(self, words, code):
        words = [self.package("velk3") if word is VELK3 else word for word in words]
        fault = "\nfault g EDID_COMPLETE stall" if code else ""
        running, _ = self.start_stalled(*words, stalled=["stdout", "stderr"], scene=FAST + fault)
        self.wait_for_the_end_of_the_work(running)
        time.sleep(0.5)  # it waits for its reader by now, or a signal is one of those before
        self.signal_until_it_ends(running, signal.SIGTERM)
        self.assert_code(running.finish(), code)

    @table(*[(f"{command[0]}_{number.name}", command, number)
             for command in (["list"], ["settings"], ["modes"], ["signal"], ["signal", "--watch"], ["doctor"])
             for number in (signal.SIGINT, signal.SIGTERM)])
    def test_signal_ends_what_only_reads(self, words, number):
        running, _ = self.start_stalled(*words, stalled=["stdout"])
        running.wait_for("its process id", running.pid_file.exists)
        time.sleep(1)  # it has read the device by now, or will soon
        self.signal_until_it_ends(running, number)
        self.assert_code(running.finish(), 128 + number)

    def test_signal_ends_looking_into_packages(self):
        pipe = StalledPipe()
        words = [self.cli, "package", *[self.package("velk3")] * 3]
        process = subprocess.Popen(words, stdout=pipe.writer)
        caught = pathlib.Path(f"/proc/{process.pid}/status")
        time.sleep(0.5)
        bits = int(caught.read_text().split("SigCgt:")[1].split()[0], 16)
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT):
            self.assertFalse(bits >> (number - 1) & 1, "the system ends it, wherever it waits")
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(PATIENCE), -signal.SIGINT)


class SlowReader(CliTest):
    def test_pipe_that_does_not_block(self):
        """As when standard output is a pipe that is shared with a program that has made it so."""
        reader, writer = os.pipe()
        fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 4096)
        fcntl.fcntl(writer, fcntl.F_SETFL, fcntl.fcntl(writer, fcntl.F_GETFL) | os.O_NONBLOCK)
        words = [self.cli, "package", "--json", *[self.package("velk3")] * 20]
        process = subprocess.Popen(words, stdout=writer, stderr=subprocess.PIPE, text=True)
        os.close(writer)
        time.sleep(0.5)  # it has filled the pipe by now, or will soon
        with open(reader) as file:
            text = file.read()
        _, errors = process.communicate(timeout=60)
        self.assertEqual((process.returncode, errors), (0, ""))
        self.assertEqual(len(json.loads(text)["packages"]), 20)


BROKEN = "device {0}\n product velk3\n mode {1}\n behind-hub {2}\n port 2\n return after 200\n busy-polls 0\n"


@with_tables
class EqualPorts(CliTest):
    """A repair finds its device again by bus, last port and ids: another one there must not be taken for it."""

    @table(("soft", "soft"), ("hard", "hard"))
    def test_beside_a_running_sandbox(self, mode):
        scene = BROKEN.format("mine", mode, 1) + BROKEN.format("other", "sandbox", 3)
        result = self.run_cli(scene, "update", self.package("velk3"), "SIM00001", "--json")
        self.assert_code(result, 1)
        self.assertEqual(self.written_devices(result), set())
        (row,) = result.objects[-1]["devices"]
        self.assertEqual(row["error"], "it might be taken for the device at 1-3.2, which runs its repair firmware on a "
                                       "port of the same number: unplug that one first")

    def test_one_after_another(self):
        """The first repair leaves its sandbox running: the second would find that one."""
        scene = BROKEN.format("a", "soft", 1) + BROKEN.format("b", "soft", 3)
        result = self.run_cli(scene, "update", self.package("velk3"), "--all")
        self.assert_code(result, 5)
        (written,) = self.written_devices(result)
        self.assert_updated(result, written, "velk3")
        self.assertEqual(len(result.lines), 1, result.out)

    def test_other_products_and_ports_are_no_hindrance(self):
        scene = BROKEN.format("mine", "soft", 1) + BROKEN.format("far", "sandbox", 3).replace("port 2", "port 4")
        scene += "device sorn\n product sorn3\n mode sandbox\n behind-hub 3\n port 2\n"
        result = self.run_cli(scene, "update", self.package("velk3"), "SIM00001")
        self.assert_code(result, 0)
        self.assert_updated(result, "mine", "velk3")

    def test_a_sandbox_is_not_in_its_own_way(self):
        result = self.run_cli("running-sandbox", "update", self.package("velk3"))
        self.assert_code(result, 0)


class Texts(CliTest):
    @anywhere
    def test_texts_of_a_package_do_not_steer_the_terminal(self):
        path = self.folder / "a.fw"
        names = ["right\u202eleft", "c1\x9b2J", "line\u2028end", "tag\U000e0041"]
        with zipfile.ZipFile(self.package("velk3")) as sample, zipfile.ZipFile(path, "w") as archive:
            for entry in sample.namelist():
                archive.writestr(entry, sample.read(entry))
            for name in names:
                archive.writestr(name, b"")
        text = self.alone("package", path, check=True).stdout
        for name in ("right?left", "c1?2J", "line?end", "tag?,"):
            self.assertIn(name, text)
        raw = self.alone("package", "--json", path, encoding=None, check=True).stdout
        for escape in (rb"\u202e", rb"\u009b", rb"\u2028", rb"\udb40\udc41"):
            self.assertIn(escape, raw)
        told = {entry["name"] for entry in json.loads(raw)["packages"][0]["entries"]}
        self.assertLessEqual(set(names), told, "scripts are told what it is")
