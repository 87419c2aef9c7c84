"""capso-cli list, and what holds for every command: wrong use, help, outputs that fail."""

import json
import os
import subprocess

from support import PATIENCE, PRODUCTS, CliTest, anywhere, table, with_tables

COMMANDS = ("list", "update", "settings", "modes", "signal", "package", "doctor")
VELK3 = object()  # stands for the package's path


@with_tables
class List(CliTest):
    @table(*[(product, product) for product in PRODUCTS])
    def test_running(self, product):
        facts = PRODUCTS[product]
        result = self.run_cli(product, "list")
        self.assertEqual(result.out, f"{facts['name']}  SIM00001  1.0.0  normal  {facts['id']}  1-1\n")
        self.assert_code(result, 0)
        self.assertEqual(result.err, "")

    @table(*[(product, product) for product in PRODUCTS])
    def test_repair(self, product):
        facts = PRODUCTS[product]
        soft = self.run_cli(f"soft-{product}", "list")
        self.assertEqual(soft.out, f"{facts['name']}  SIM00001  -  soft repair  {facts['soft']}  1-1\n")
        hard = self.run_cli(f"hard-{product}", "list")
        self.assertEqual(hard.out, "WestBridge  SIM00001  -  hard repair  04b4:00f3  1-1\n")

    def test_nothing_is_done_as_well(self):
        result = self.run_cli("none", "list")
        self.assert_code(result, 0)
        self.assertEqual((result.out, result.err), ("", "no capture devices found\n"))

    def test_json_is_one_object(self):
        result = self.run_cli("velk3", "list", "--json")
        self.assertEqual(len(result.lines), 1)
        (device,) = result.objects[0]["devices"]
        wanted = {
            "model": "VELK3 Grabber", "serial": "SIM00001", "version": "1.0.0", "mode": "normal", "id": "e5c1:3601",
            "bus": 1, "port": "1-1", "address": 2, "usable": True,
        }
        self.assertEqual({name: device[name] for name in wanted}, wanted)

    def test_columns_line_up_whatever_the_texts(self):
        result = self.run_cli("several", "list")
        self.assertEqual(len(result.lines), 3)
        self.assertEqual(len({line.index("  normal  ") for line in result.lines}), 1)

    def test_texts_of_a_device_do_not_steer_the_terminal(self):
        scene = 'device g\n product velk3\n product-string "\033[2JVELK3"\n serial "\033]0;x\007"'
        result = self.run_cli(scene, "list")
        self.assertEqual(result.out, "?[2JVELK3  ?]0;x?  1.0.0  normal  e5c1:3601  1-1\n")

    def test_the_locale_changes_nothing(self):
        for locale in ("C", "POSIX", "xx_XX.nonsense"):
            result = self.run_cli("velk3", "list", environment={"LC_ALL": locale})
            self.assertEqual(result.out, "VELK3 Grabber  SIM00001  1.0.0  normal  e5c1:3601  1-1\n", locale)
            self.assertEqual(result.err, "", locale)

    def test_modules_are_heard_only_when_asked_for(self):
        self.assertEqual(self.run_cli("velk3", "list").err, "")
        loud = self.run_cli("velk3", "list", "--verbose")
        self.assertIn("Scan devices", loud.err)
        self.assertEqual(loud.out, "VELK3 Grabber  SIM00001  1.0.0  normal  e5c1:3601  1-1\n")


    def test_libusb_is_heard_with_the_program(self):
        """On its way, and not past it: a reader who takes nothing would stop libusb in the middle of a request."""
        result = self.run_cli("velk3", "list", environment={"LIBUSB_DEBUG": "4"})
        self.assert_code(result, 0)
        self.assertRegex(result.err, r"(?m)libusb: [a-z]+ \[libusb_[a-z_]+\]")
        self.assertNotIn("\n\n", result.err)


@with_tables
class Usage(CliTest):
    @table(
        ("nothing", [], "A command is required"),
        ("command", ["frobnicate"], "frobnicate"),
        ("option", ["list", "--loud"], "--loud"),
        ("no_package", ["update"], "PACKAGE"),
        ("version_left_out", ["update", "x.fw", "--unless-version", "--all"], "'--all' is no version"),
        ("all_and_named", ["update", "x.fw", "S1", "--all"], "--all"),
        ("list_of_one", ["list", "S1"], "S1"),
        ("two_devices", ["signal", "S1", "S2"], "DEVICE"),
        ("setting", ["settings", "S1", "brightness=on"], "'brightness=on' is not NAME=on or NAME=off"),
        ("setting_value", ["settings", "performance=1"], "'performance=1' is not NAME=on or NAME=off"),
        ("setting_twice_a_device", ["settings", "S1", "S2"], "'S2' is not NAME=on or NAME=off"),
        ("mode_0", ["modes", "S1", "0=on"], "'0=on' is not N=WIDTHxHEIGHT"),
        ("mode_4", ["modes", "S1", "4=on"], "'4=on' is not N=WIDTHxHEIGHT"),
        ("mode_size", ["modes", "S1", "1=1280"], "'1=1280' is not N=WIDTHxHEIGHT"),
        ("empty_package", ["update", ""], "an argument is empty"),
        ("empty_package_to_look_at", ["package", ""], "an argument is empty"),
        ("empty_device", ["settings", "", "performance=on"], "an argument is empty"),
        ("empty_device_of_modes", ["modes", "", "1=off"], "an argument is empty"),
        ("empty_device_of_signal", ["signal", ""], "an argument is empty"),
        ("empty_device_to_update", ["update", VELK3, ""], "an argument is empty"),
        ("empty_version", ["update", VELK3, "--unless-version", ""], "an argument is empty"),
        ("empty_version_in_one_word", ["update", VELK3, "--unless-version=", "SIM00001"], "'--unless-version='"),
        ("list_of_nothing", ["settings", "[]", "performance=on"], "'[]'"),
        ("list_of_one_device", ["update", VELK3, "[SIM00001]"], "'[SIM00001]'"),
        ("no_object", ["update", VELK3, "{}"], "'{}'"),
        ("mode_and_a_line", ["modes", "1=800x600\n"], "is not N=WIDTHxHEIGHT"),
        ("mode_too_wide", ["modes", "S1", "1=65536x1"], "'1=65536x1' is not N=WIDTHxHEIGHT"),
    )
    def test_wrong(self, words, said):
        result = self.run_cli("velk3", *[self.package("velk3") if word is VELK3 else word for word in words])
        self.assert_code(result, 2)
        self.assertTrue(result.err.startswith("capso-cli: "), result.err)
        self.assertIn(said, result.err)
        self.assertEqual(result.out, "")
        self.assert_nothing_written(result)

    @table(
        ("nothing", [], "A command is required"),
        ("command", ["frobnicate"], "frobnicate"),
        ("option", ["list", "--loud"], "--loud"),
        ("empty", ["update", ""], "an argument is empty"),
        ("setting", ["settings", "brightness=on"], "'brightness=on' is not NAME=on or NAME=off"),
        ("mode", ["modes", "4=on"], "'4=on' is not N=WIDTHxHEIGHT"),
    )
    @anywhere
    def test_wrong_for_a_script(self, words, said):
        for arguments in (["--json", *words], [*words, "--json"], [*words, "--json=true"], ["--json=1", *words]):
            ran = self.alone(*arguments)
            self.assertEqual(ran.returncode, 2)
            (line,) = ran.stdout.splitlines()
            told = json.loads(line)
            self.assertEqual(told["status"], 2)
            self.assertIn(said, told["error"])
            self.assertNotIn("\n", told["error"])
            self.assertTrue(ran.stderr.startswith("capso-cli: "), ran.stderr)

    @table(("not_asked", []), ("denied", ["--json=false"]))
    @anywhere
    def test_wrong_for_a_person(self, words):
        ran = self.alone(*words, "frobnicate")
        self.assertEqual((ran.returncode, ran.stdout), (2, ""))

    @anywhere
    def test_help_of_each_command_has_an_example(self):
        for command in COMMANDS:
            ran = self.alone(command, "--help", check=True)
            self.assertIn(f"Examples:\n  capso-cli {command}", ran.stdout, command)
            self.assertEqual(ran.stderr, "")

    @anywhere
    def test_help_names_every_command_and_status(self):
        ran = self.alone("--help", check=True)
        for command in COMMANDS:
            self.assertRegex(ran.stdout, rf"\n  {command} +\S")
        for status in range(6):
            self.assertRegex(ran.stdout, rf"\n  {status}  \S")

    @anywhere
    def test_version(self):
        ran = self.alone("--version", check=True)
        self.assertRegex(ran.stdout, r"^capso-cli [0-9]+\.[0-9]+\.[0-9]+\n$")

    @anywhere
    def test_without_a_bus_nothing_is_found(self):
        ran = self.alone("list")
        self.assertEqual((ran.returncode, ran.stdout, ran.stderr), (0, "", "no capture devices found\n"))

    @anywhere
    @table(
        ("settings", ["settings"]),
        ("settings_changed", ["settings", "SIM00001", "performance=on"]),
        ("modes", ["modes"]),
        ("signal", ["signal", "1-2"]),
        ("watched", ["signal", "--watch"]),
        ("update", ["update", VELK3]),
        ("update_of_one", ["update", VELK3, "SIM00001"]),
        ("update_of_all", ["update", VELK3, "--all"]),
    )
    def test_without_a_bus_there_is_no_such_device(self, words):
        words = [self.package("velk3") if word is VELK3 else word for word in words]
        ran = self.alone(*words, "--json")
        (line,) = ran.stdout.splitlines()
        told = json.loads(line)
        self.assertEqual((ran.returncode, told["status"]), (3, 3))
        self.assertEqual(ran.stderr, f"capso-cli: {told['error']}\n")


# Each command, and whether it writes to a device: then the exit status tells of the device alone.
EACH_COMMAND = (
    ("list", ["list"], False),
    ("update", ["update", VELK3], True),
    ("settings", ["settings"], False),
    ("settings_written", ["settings", "performance=on"], True),
    ("modes", ["modes"], False),
    ("modes_written", ["modes", "1=on"], True),
    ("signal", ["signal"], False),
    ("package", ["package", VELK3], False),
    ("doctor", ["doctor"], False),
)


@with_tables
class Outputs(CliTest):
    def run_words(self, words, **options):
        words = [self.package("velk3") if word is VELK3 else word for word in words]
        return self.run_cli("device velk3\n product velk3\n busy-polls 0", *words, **options)

    def said(self, result):
        """On standard error, but for an update's progress."""
        return "".join(line + "\n" for line in result.err.splitlines() if " % " not in line)

    @table(*EACH_COMMAND)
    def test_full_disk_is_said(self, words, writes):
        for more in ([], ["--json"]):
            with open("/dev/full", "w") as full:
                result = self.run_words([*words, *more], stdout=full)
            self.assert_code(result, 0 if writes else 1)
            self.assertEqual(
                self.said(result), "capso-cli: cannot write standard output: No space left on device\n"
            )

    @table(*EACH_COMMAND)
    def test_closed_pipe_is_no_news(self, words, writes):
        reader, writer = os.pipe()
        os.close(reader)
        with open(writer, "w") as pipe:
            result = self.run_words(words, stdout=pipe)
        self.assert_code(result, 0 if writes else 1)
        self.assertEqual(self.said(result), "")

    @anywhere
    @table(
        ("list", ["list", "--json"]), ("package", ["package", VELK3]), ("help", ["--help"]), ("version", ["--version"])
    )
    def test_without_devices(self, words):
        words = [self.package("velk3") if word is VELK3 else word for word in words]
        reader, writer = os.pipe()
        os.close(reader)
        with open(writer, "w") as pipe:
            ran = self.alone(*words, capture_output=False, stdout=pipe, stderr=subprocess.PIPE)
        self.assertEqual(ran.returncode, 1)
        self.assertNotIn("capso-cli", ran.stderr, "who has gone misses nothing")
        with open("/dev/full", "w") as full:
            ran = self.alone(*words, capture_output=False, stdout=full, stderr=subprocess.PIPE)
        self.assertEqual(ran.returncode, 1)
        self.assertRegex(ran.stderr, r"(^|\n)capso-cli: cannot write standard output: \S[^\n]*\n$")

    def test_help_that_nobody_can_get_is_a_failure(self):
        with open("/dev/full", "w") as full:
            self.assertEqual(subprocess.run([self.cli, "--help"], stdout=full).returncode, 1)

    def test_closed_pipe_ends_watching(self):
        reader, writer = os.pipe()
        os.close(reader)
        with open(writer, "w") as pipe:
            result = self.run_words(["signal", "--watch"], stdout=pipe)
        self.assert_code(result, 1)

    def test_reader_that_goes_ends_watching(self):
        running = self.start("velk3", "signal", "--watch")
        self.assertNotEqual(running.process.stdout.readline(), "")
        running.process.stdout.close()
        self.assertEqual(running.process.wait(PATIENCE), 1)

    @table(*EACH_COMMAND)
    def test_no_locale(self, words, _writes):
        usual = self.run_words(words)
        self.assert_code(usual, 0)
        self.assertNotEqual(usual.out, "")
        for locale in ("C", "xx_XX.nonsense"):
            result = self.run_words(words, environment={"LC_ALL": locale})
            self.assertEqual((result.code, result.out, result.err), (0, usual.out, usual.err), locale)

    def test_full_disk_does_not_make_an_update_fail(self):
        with open("/dev/full", "w") as full:
            result = self.run_cli("velk3", "update", self.package("velk3"), stdout=full)
        self.assert_code(result, 0)
        self.assert_updated(result, "velk3", "velk3")
        self.assertIn("cannot write standard output: No space left on device\n", result.err)

    def test_closed_pipes_do_not_make_an_update_fail(self):
        shell = f'("{self.cli}" update "{self.package("velk3")}" 2>&1; echo $? >"{self.folder}/code") | exec true'
        result = self.run_cli("velk3", program=["sh", "-c", shell])
        self.assertEqual((self.folder / "code").read_text(), "0\n")
        self.assert_updated(result, "velk3", "velk3")
