#!/usr/bin/env python3
"""Shows capso-cli on simulated devices; see ./demo --cli, which builds first and then calls this.

Each command runs by itself, as in a shell; the simulated devices keep what they hold from one to the next.
"""

import argparse
import os
import pathlib
import shutil
import subprocess
import sys

PROJECT = pathlib.Path(__file__).resolve().parents[2]
SCENE = "demo"  # each product, and a velk3 in soft repair
DEVICES = {"velk3": "velk3", "sorn3": "sorn3", "velk3_4k": "velk3_4k", "broken": "velk3"}
MEMORIES = {"microcode.bin": "fx3.bin", "fpga.bin": "fpga.bin", "edid.bin": "edid.bin"}

COMMANDS = [
    "list",
    "package velk3.fw",
    "update sorn3.fw",
    "update velk3_4k.fw",
    "update velk3.fw --all",
    "update velk3.fw --all --unless-version 2.0.0",
    "settings SIM00001",
    "settings SIM00001 performance=on audio-selector=off",
    "modes SIM00003 1=2560x1440 2=on",
    "signal SIM00002",
    "doctor",
    "list",
]


def run(build, folder, command):
    print(f"\n$ capso-cli {command}", flush=True)
    words = [str(build / "capso-sim"), "--state", str(folder / "kept"), SCENE, "--", str(build / "capso-cli")]
    environment = {name: value for name, value in os.environ.items() if name != "CAPSO_SIM_DIR"}
    code = subprocess.run([*words, *command.split()], cwd=folder / "packages", env=environment).returncode
    if code != 0:
        print(f"demo: capso-cli {command}: exit status {code}", file=sys.stderr)
    return code == 0


def memories_match(folder):
    same = True
    for device, product in DEVICES.items():
        for kept, image in MEMORIES.items():
            wanted = folder / "packages" / product / image
            if not wanted.exists():
                continue
            held = folder / "kept" / device / kept
            if not held.exists() or held.read_bytes() != wanted.read_bytes():
                print(f"demo: {device} does not hold {product}/{image}", file=sys.stderr)
                same = False
    return same


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, default=PROJECT / "build" / "release")
    parser.add_argument("--folder", type=pathlib.Path, default=PROJECT / "build" / "demo" / "cli")
    arguments = parser.parse_args()
    build, folder = arguments.build.resolve(), arguments.folder.resolve()
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    script = PROJECT / "simulator" / "packages" / "make_packages.py"
    subprocess.run([sys.executable, script, folder / "packages"], check=True)

    if not all(run(build, folder, command) for command in COMMANDS):
        return 1
    if not memories_match(folder):
        print("memories differ")
        return 1
    print("\nmemories match")
    return 0


if __name__ == "__main__":
    sys.exit(main())
