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
    def make_inventory(self):
        lines = {}
        for host in HOSTS:
            folder = self.folder / host
            (folder / "kept").mkdir(parents=True)
            scene = folder / "rack.scene"
            fault = "fault grabber FPGA_WRITE nth 2 stall\n" if host in FAILING else ""
            scene.write_text(f'device grabber\n product velk3\n serial "{host.upper()}"\n{fault}')
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
