"""Devices that the system shows and nobody can use, and capso-cli doctor."""

import os
import pathlib
import shutil
import unittest

from support import CliTest, anywhere, table, transcript, with_tables

DENIED = "device g\n product velk3\n access denied"
SILENT = "device g\n product velk3\nfault g FX3_STATUS every stall"
LINUX = pathlib.Path(__file__).resolve().parents[2] / "packaging" / "linux"
RULES = [
    f"{folder}/udev/rules.d/70-capso-config.rules" for folder in ("/etc", "/run", "/usr/local/lib", "/usr/lib", "/lib")
]
INSTALLED = next((path for path in RULES if os.path.exists(path)), "")


class HoldingTest(CliTest):
    def run_held(self, *command, scene="velk3"):
        """The command while another program has claimed the device."""
        client = self.build / "sim_usbclient"
        script = f'"{client}" "open e5c1:3601" "claim 0" "wait ffff:ffff 20000" >/dev/null & holder=$!; '
        script += 'sleep 1; "$@"; code=$?; kill $holder; exit $code'
        return self.run_cli(scene, program=["sh", "-c", script, "sh", self.cli, *command])


@with_tables
class Access(HoldingTest):
    def refused(self, result, reason, code):
        self.assert_code(result, code)
        self.assertIn(reason, result.err)
        self.assertEqual(result.out, "")
        self.assert_nothing_written(result)

    @table(
        ("denied_device", DENIED, "no right to open it", 4),
        ("silent_device", SILENT, "it does not answer", 1),
    )
    def test(self, scene, reason, code):
        """It is listed with the reason, and every command says it."""
        listed = self.run_cli(scene, "list")
        self.assert_code(listed, 0)
        self.assertEqual(listed.out, f"-  -  -  -  e5c1:3601  1-1  ({reason})\n")
        (row,) = self.run_cli(scene, "list", "--json").objects[0]["devices"]
        self.assertEqual((row["usable"], row["reason"], row["port"]), (False, reason, "1-1"))
        text = f"cannot use [e5c1:3601] at 1-1: {reason}"
        update = ["update", self.package("velk3")]
        for command in ([*update, "1-1"], update, ["settings", "1-1"], ["modes"], ["signal", "1-1"]):
            self.refused(self.run_cli(scene, *command), text, code)
        self.refused(self.run_cli(scene, *update, "--all"), f"1-1: {reason}", code)

    def test_serial_number_that_may_be_a_denied_devices(self):
        result = self.run_cli(DENIED, "signal", "SIM00001")
        self.refused(result, "there is no device 'SIM00001' among those that can be used; these cannot", 4)
        self.assertIn("[e5c1:3601] at 1-1: no right to open it", result.err)
        self.refused(self.run_cli(DENIED, "signal", "1-7"), "there is no device '1-7'", 3)
        self.refused(self.run_cli(DENIED, "signal", "1-7\n"), "among those that can be used; these cannot", 4)

    def test_all_but_the_denied_one(self):
        scene = DENIED + "\ndevice b\n product velk3"
        result = self.run_cli(scene, "update", self.package("velk3"), "--all", "--json")
        self.assert_code(result, 5)
        self.assert_updated(result, "b", "velk3")
        rows = {row["device"]["port"]: row for row in result.objects[-1]["devices"]}
        self.assertEqual((rows["1-1"]["result"], rows["1-1"]["status"]), ("failed", 4))
        self.assertEqual(rows["1-2"]["result"], "updated")

    def test_denied_one_in_soft_repair_counts(self):
        """Its ids say that it is the package's: to pass over it in silence would call everything done."""
        scene = "device g\n product velk3\n mode soft\n access denied\ndevice b\n product velk3"
        result = self.run_cli(scene, "update", self.package("velk3"), "--all")
        self.assert_code(result, 5)
        self.assertEqual(self.written_devices(result), {"b"})
        self.assertEqual(result.out, "SIM00002: Update Completed\n")
        self.assertIn("capso-cli: 1-1: no right to open it\n", result.err)
        self.assertTrue(result.err.endswith("1 of 2 devices failed: 1-1\n"), result.err)

    def test_denied_one_in_hard_repair_does_not(self):
        scene = "device g\n product velk3\n mode hard\n access denied\ndevice b\n product velk3"
        result = self.run_cli(scene, "update", self.package("velk3"), "--all")
        self.assert_code(result, 0)
        self.assertEqual(self.written_devices(result), {"b"})

    def test_denied_one_of_another_product_is_nobodys_business(self):
        scene = "device a\n product sorn3\n access denied\ndevice b\n product velk3"
        result = self.run_cli(scene, "update", self.package("velk3"), "--all")
        self.assert_code(result, 0)
        self.assertEqual(result.out, "SIM00002: Update Completed\n")

    def test_held_device(self):
        for command in (["update", self.package("velk3"), "1-1"], ["settings", "1-1"], ["modes", "1-1"], ["signal"]):
            result = self.run_held(*command)
            self.assert_code(result, 4)
            self.assertIn("cannot use [e5c1:3601] at 1-1: another program holds it", result.err)
            self.assert_nothing_written(result)


@with_tables
class Doctor(HoldingTest):
    def rules_lines(self):
        if INSTALLED:
            return [f"udev rules: {INSTALLED}"]
        return ["udev rules: not installed", f"    {self.install_rules()}"]

    def install_rules(self):
        return (
            f"{self.cli} doctor --rules | sudo tee /etc/udev/rules.d/70-capso-config.rules >/dev/null && "
            "sudo udevadm control --reload && sudo udevadm trigger --action=add --subsystem-match=usb"
        )

    def test_well(self):
        result = self.run_cli("velk3", "doctor")
        self.assert_code(result, 0)
        self.assertEqual(result.lines, ["1-1 e5c1:3601: 5 Gbit/s, may be opened: yes, held: no", *self.rules_lines()])

    def test_touches_no_device(self):
        seen = transcript(self.run_cli("velk3", "doctor").folder)
        self.assertEqual([entry["event"] for entry in seen], ["plug"])

    def test_denied(self):
        result = self.run_cli(DENIED, "doctor")
        self.assert_code(result, 4)
        self.assertEqual(result.lines[0], "1-1 e5c1:3601: 5 Gbit/s, may be opened: no, held: no")
        self.assertTrue(result.lines[1].startswith("  this user may not open it"))
        if INSTALLED:
            self.assertIn("plugdev", result.lines[2])
        else:
            self.assertEqual(result.lines[2], f"    {self.install_rules()}")

    @unittest.skipIf(INSTALLED, "the rules are installed here")
    def test_a_command_that_mends_several_things_is_shown_once(self):
        result = self.run_cli(DENIED + "\n count 3", "doctor")
        self.assert_code(result, 4)
        self.assertEqual(result.lines.count(f"    {self.install_rules()}"), 1, result.out)
        self.assertEqual(len(result.lines), 3 + 3 + 2)

    @unittest.skipIf(INSTALLED, "the rules are installed here")
    def test_the_command_names_the_program_as_a_shell_reads_it(self):
        program = self.folder / "it's here" / "capso-cli"
        program.parent.mkdir()
        shutil.copy(self.cli, program)
        result = self.run_cli("velk3", program=[program, "doctor"])
        self.assertIn(f"    '{self.folder}/it'\\''s here/capso-cli' doctor --rules | sudo tee", result.out)

    @anywhere
    def test_the_rules_are_at_hand(self):
        rules = (LINUX / "70-capso-config.rules").read_text()
        ran = self.alone("doctor", "--rules")
        self.assertEqual((ran.returncode, ran.stdout, ran.stderr), (0, rules, ""))

    def test_held(self):
        result = self.run_held("doctor", "--json")
        self.assert_code(result, 4)
        (device,) = result.objects[0]["devices"]
        self.assertTrue(device["held"])
        (problem,) = device["problems"]
        self.assertEqual(problem["command"], "sudo fuser -v /dev/bus/usb/001/002")

    def test_rules_for_a_script(self):
        (told,) = self.run_cli("velk3", "doctor", "--json").objects
        self.assertEqual(told["rules"], INSTALLED)
        self.assertIn(told["rulesState"], ("installed", "different") if INSTALLED else ("missing",))

    def test_slow_link(self):
        result = self.run_cli("device g\n product velk3\n speed 480", "doctor")
        self.assert_code(result, 0)
        self.assertEqual(result.lines[:2], [
            "1-1 e5c1:3601: 480 Mbit/s, may be opened: yes, held: no",
            "  its link is slower than USB 3: use a USB 3 port and cable",
        ])

    def test_nothing(self):
        result = self.run_cli("device other\n product other\n id 1234:5678", "doctor")
        self.assert_code(result, 0)
        self.assertEqual(result.err, "the system knows no capture device\n")
        self.assertEqual(result.lines, self.rules_lines())

    def test_no_bus(self):
        result = self.run_cli("none", "doctor")
        self.assert_code(result, 1)
        self.assertEqual(
            result.err,
            "capso-cli: this system does not show its USB devices, so what keeps one from being used is not known\n",
        )
