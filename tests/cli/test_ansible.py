"""The playbook of docs/ansible over twelve machines, each a simulated bus of its own, of which two fail."""

import json
import os
import pathlib
import subprocess
import sys

from support import CliTest

PLAYBOOK = pathlib.Path(__file__).resolve().parents[2] / "docs" / "ansible" / "update.yml"
CALLBACKS = pathlib.Path(__file__).resolve().parent / "callbacks"
HOSTS = [f"rack{number:02}" for number in range(1, 13)]
FAILING = {"rack04", "rack09"}


class Ansible(CliTest):
    def make_inventory(self, hosts=HOSTS, mode="normal"):
        lines = {}
        for host in hosts:
            folder = self.folder / host
            (folder / "kept").mkdir(parents=True)
            scene = folder / "rack.scene"
            fault = "fault grabber FPGA_WRITE nth 2 stall\n" if host in FAILING else ""
            scene.write_text(f'device grabber\n product velk3\n serial "{host.upper()}"\n mode {mode}\n{fault}')
            lines[host] = {
                "ansible_connection": "local",
                "ansible_python_interpreter": sys.executable,
                "folder": str(folder),
                "capso_cli": [
                    str(self.build / "capso-sim"), "--state", str(folder / "kept"), str(scene), "--", self.cli,
                ],
            }
        inventory = self.folder / "inventory.json"
        inventory.write_text(json.dumps({"all": {"hosts": lines}}))
        return inventory

    def play(self, inventory, *options):
        environment = {
            **os.environ, "LC_ALL": "C.UTF-8", "HOME": str(self.folder), "ANSIBLE_FORKS": "12",
            "ANSIBLE_STDOUT_CALLBACK": "told", "ANSIBLE_CALLBACK_PLUGINS": str(CALLBACKS),
            "ANSIBLE_RETRY_FILES_ENABLED": "0",
            "ANSIBLE_LOCAL_TEMP": str(self.folder / "tmp"),
        }
        package = pathlib.Path(self.package("velk3"))
        environment["PWD"] = str(package.parent)
        words = [
            "ansible-playbook", "-i", str(inventory), str(PLAYBOOK), "-e", f"package={package.name}",
            "-e", "version=2.0.0", *options,
        ]
        ran = subprocess.run(words, capture_output=True, text=True, env=environment, cwd=package.parent, timeout=500)
        self.assertIn("{", ran.stdout, ran.stderr)
        return ran, json.loads(ran.stdout[ran.stdout.index("{"):])

    def messages(self, answer, task):
        return {host: result["msg"] for host, result in answer["tasks"][task].items()}

    def assert_told_and_not_done(self, inventory, hosts):
        """With --check, on these machines alone: to say it of two is as good as of twelve, and quicker."""
        def memories():
            files = [path for host in HOSTS for path in (self.folder / host / "kept").rglob("*.bin")]
            return {path: path.read_bytes() for path in files if path.stat().st_size}

        before = memories()
        ran, answer = self.play(inventory, "--check", "--limit", ",".join(hosts))
        self.assertEqual(ran.returncode, 0, ran.stdout)
        for host in hosts:
            self.assertEqual((answer["stats"][host]["failures"], answer["stats"][host]["changed"]), (0, 0))
        self.assertEqual(memories(), before)
        return self.messages(answer, "Say what would be done")

    def test_check_tells_what_all_leaves_out(self):
        inventory = self.make_inventory(["rack01"], "hard")
        told = self.assert_told_and_not_done(inventory, ["rack01"])
        self.assertEqual(
            told["rack01"],
            "1 listed; RACK01 at 1-1 is in hard repair and would be left out: update it there, by its name")

    def test_check_tells_of_a_repair(self):
        told = self.assert_told_and_not_done(self.make_inventory(["rack01"], "soft"), ["rack01"])
        self.assertEqual(
            told["rack01"], "1 listed; RACK01 at 1-1 would be repaired, if it shows a repair id of what velk3.fw is for")

    def test_version_as_a_number(self):
        inventory = self.make_inventory(["rack01"])
        scene = self.folder / "rack01" / "rack.scene"
        scene.write_text(scene.read_text() + ' version "2.0"\n')
        number = ["-e", '{"version": 2.0}']
        _, answer = self.play(inventory, "--check", *number)
        told = self.messages(answer, "Say what would be done")
        self.assertEqual(told["rack01"], "1 listed; RACK01 at 1-1 would be left out, it has version 2.0")
        ran, answer = self.play(inventory, *number)
        self.assertEqual((ran.returncode, answer["stats"]["rack01"]["changed"]), (0, 0), ran.stdout)

    def test_check_finds_a_package_that_is_not_there(self):
        ran, answer = self.play(self.make_inventory(["rack01"]), "--check", "-e", "package=typo.fw")
        self.assertEqual(ran.returncode, 2)
        self.assertRegex(self.messages(answer, "Look for the package")["rack01"], "^there is no package /.*/typo.fw$")

    def test_nothing_is_left_behind_by_a_failure(self):
        """What the update says is cut off, as where the program is killed."""
        inventory = self.make_inventory(["rack01"])
        told = json.loads(inventory.read_text())
        host = told["all"]["hosts"]["rack01"]
        cut = 'test "$1" = update && { echo \'{"event":\'; exit 137; }; exec "$0" "$@"'
        *sim, cli = host["capso_cli"]
        host["capso_cli"] = [*sim, "sh", "-c", cut, cli]
        inventory.write_text(json.dumps(told))
        ran, answer = self.play(inventory)
        self.assertEqual(ran.returncode, 2, ran.stdout)
        self.assertEqual(answer["stats"]["rack01"]["failures"], 1)
        self.assertEqual(list((self.folder / "rack01").glob("*.capso")), [])

    def test_twelve_machines_of_which_two_fail(self):
        inventory = self.make_inventory()
        told = self.assert_told_and_not_done(inventory, ["rack01", "rack04"])
        for host in ("rack01", "rack04"):
            self.assertEqual(
                told[host],
                f"1 listed; {host.upper()} at 1-1 would be updated from version 1.0.0, if velk3.fw fits it")
        ran, first = self.play(inventory)
        self.assertEqual(ran.returncode, 2, ran.stderr)
        stats = first["stats"]
        self.assertEqual({host for host in HOSTS if stats[host]["failures"]}, FAILING)
        self.assertEqual({host for host in HOSTS if stats[host]["changed"]}, set(HOSTS) - FAILING)
        reports = self.messages(first, "Report")
        for host in HOSTS:
            self.assertEqual(list((self.folder / host).glob("*.capso")), [], "the package was left behind")
            kept = self.folder / host / "kept" / "grabber"
            if host in FAILING:
                self.assertIn(f"{host.upper()} at 1-1 failed: Error: failed to write FPGA block:", reports[host])
            else:
                self.assertIn(f"{host.upper()} at 1-1 updated", reports[host])
                for file, image in (("microcode", "fx3"), ("fpga", "fpga"), ("edid", "edid")):
                    self.assertEqual((kept / f"{file}.bin").read_bytes(), self.image("velk3", image), host)

        ran, second = self.play(inventory)
        stats = second["stats"]
        self.assertEqual(ran.returncode, 2, ran.stderr)
        self.assertEqual({host for host in HOSTS if stats[host]["failures"]}, FAILING)
        self.assertEqual({host for host in HOSTS if stats[host]["changed"]}, set())
        reports = self.messages(second, "Report")
        for host in set(HOSTS) - FAILING:
            self.assertIn(f"{host.upper()} at 1-1 left out", reports[host])
        told = self.assert_told_and_not_done(inventory, ["rack01"])
        self.assertEqual(told["rack01"], "1 listed; RACK01 at 1-1 would be left out, it has version 2.0.0")
