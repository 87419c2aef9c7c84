#!/usr/bin/env python3
"""The driver installer as a Windows program, under wine, with a libwdi.dll beside it that is a real DLL: libwdidouble.c.

check.py SOURCE_FOLDER WINE WORK_FOLDER

What the double was asked and what arrived on standard output are compared with what is written down here.
"""

import os
import pathlib
import shutil
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
PREFIX = "x86_64-w64-mingw32-"
FUNCTIONS = ["strerror", "set_log_level", "create_list", "destroy_list", "prepare_driver", "install_driver"]

LIST = "create_list all=1 hubs=0 trim=1"
PACKAGE = " rest=zero path=null inf='quorlin_capso_hdmi_configuration.inf' options=zero"
BOOT = r"4b4 f3 0 WestBridge|USB\1|USB\VID_04B4&PID_00F3"
BOOT_TOO = r"4b4 f3 0 FX3|USB\2|USB\VID_04B4&PID_00F3&REV_1"
OTHER = r"4b4 f4 0 Other product|USB\3|HW3"
LONG = "n" * 60 + "M" * 67 + "cut" * 20  # 127 characters are kept


def record(desc, device="null", hardware="null", composite=0, interface=0):
    return f"4b4:f3 composite={composite} mi={interface} desc={desc} id={device} hw={hardware}{PACKAGE}"


BOOT_CALLS = [
    "set_log_level 0", LIST, "destroy_list", "prepare_driver " + record("'WestBridge'"), LIST,
    "install_driver " + record("'WestBridge'", r"'USB\1'", r"'USB\VID_04B4&PID_00F3'"), "destroy_list",
]
BOOT_PRINTED = [
    "Set device desc: WestBridge", "WDI driver prepare: Success", "Installing driver(s)...",
    r"Found device: USB\VID_04B4&PID_00F3: Install status: Success (0)", "result 0",
]

# name: (script, arguments, calls, printed)
CASES = {
    "a listed device": (
        ["list 0", "device " + OTHER, "device " + BOOT, "list 0", "device " + BOOT, "device " + OTHER],
        ["4b4 f3 0 single"], BOOT_CALLS, BOOT_PRINTED),
    "each installation loads the library anew": (
        ["list 0", "device " + BOOT, "list 0", "device " + BOOT],
        ["4b4 f3 0 single", "4b4 f3 0 single"], BOOT_CALLS * 2, BOOT_PRINTED * 2),
    "two devices, the second needs rights": (
        ["list 0", "device " + BOOT, "device " + BOOT_TOO, "list 0", "device " + BOOT, "device " + BOOT_TOO,
         "device " + BOOT, "install 0", "install -15"],
        ["4b4 f3 0 single"],
        ["set_log_level 0", LIST, "destroy_list", "prepare_driver " + record("'FX3'"), LIST,
         "install_driver " + record("'FX3'", r"'USB\1'", r"'USB\VID_04B4&PID_00F3'"),
         "install_driver " + record("'FX3'", r"'USB\2'", r"'USB\VID_04B4&PID_00F3&REV_1'"), "destroy_list"],
        ["Set device desc: WestBridge", "Set device desc: FX3", "WDI driver prepare: Success", "Installing driver(s)...",
         r"Found device: USB\VID_04B4&PID_00F3: Install status: Success (0)",
         r"Found device: USB\VID_04B4&PID_00F3&REV_1: Install status: Operation requires elevated privileges (-15)",
         "result -2"]),
    "a failure of another kind": (
        ["list 0", "device " + BOOT, "list 0", "device " + BOOT, "device " + BOOT_TOO, "install -7"],
        ["4b4 f3 0 single"], BOOT_CALLS,
        BOOT_PRINTED[:3] + [r"Found device: USB\VID_04B4&PID_00F3: Install status: Another failure (-7)", "result -1"]),
    "preparation needs rights": (
        ["list 0", "device " + BOOT, "prepare -15"], ["4b4 f3 0 single"], BOOT_CALLS[:4],
        ["Set device desc: WestBridge", "WDI driver prepare: Operation requires elevated privileges", "result -2"]),
    "preparation fails": (
        ["list 0", "prepare -3"], ["4b4 f3 0 single"], BOOT_CALLS[:3] + ["prepare_driver " + record("''")],
        ["WDI driver prepare: Another failure", "result -1"]),
    "no list": (
        ["list -1", "list -2"], ["4b4 f3 0 single"],
        ["set_log_level 0", LIST, "prepare_driver " + record("null"), LIST, "install_driver " + record("null")],
        ["WDI driver prepare: Success", "Installing driver(s)...", "Install status: Success (0)", "result 0"]),
    "not connected": (
        ["list 0", "device " + OTHER, "list 0", "device " + OTHER], ["4b4 f3 0 single"],
        ["set_log_level 0", LIST, "destroy_list", "prepare_driver " + record("''"), LIST,
         "install_driver " + record("''"), "destroy_list"],
        ["WDI driver prepare: Success", "Installing driver(s)...", "Install status: Success (0)", "result 0"]),
    "an interface of a composite device": (
        ["list 0", "device " + BOOT, r"device 4b4 f3 3 Interface 3|ID3|HW&MI_03", "list 0",
         r"device 4b4 f3 3 Interface 3|ID3|HW&MI_03", "device " + BOOT],
        ["4b4 f3 3 composite"],
        ["set_log_level 0", LIST, "destroy_list", "prepare_driver " + record("'Interface 3'", composite=1, interface=3), LIST,
         "install_driver " + record("'Interface 3'", "'ID3'", "'HW&MI_03'", 1, 3), "destroy_list"],
        ["Set device desc: Interface 3", "WDI driver prepare: Success", "Installing driver(s)...",
         "Found device: HW&MI_03: Install status: Success (0)", "result 0"]),
    "a long name": (
        ["list 0", f"device 4b4 f3 0 {LONG}|a|b", "list -1"], ["4b4 f3 0 single"],
        ["set_log_level 0", LIST, "destroy_list", f"prepare_driver " + record(f"'{LONG[:127]}'"), LIST,
         "install_driver " + record(f"'{LONG[:127]}'")],
        [f"Set device desc: {LONG}", "WDI driver prepare: Success", "Installing driver(s)...",
         "Install status: Success (0)", "result 0"]),
}


def build(compiler, output, *arguments):
    subprocess.run([PREFIX + compiler, "-Wall", "-Wextra", "-Werror", "-O1", "-static", "-o", output, *arguments], check=True)


class Run:
    def __init__(self, source, wine, work):
        self.wine = wine
        self.folder = work / "program beside"
        self.elsewhere = work / "elsewhere"
        shutil.rmtree(work, ignore_errors=True)
        self.folder.mkdir(parents=True)
        self.elsewhere.mkdir()
        self.on_path = work / "on the search path"
        self.on_path.mkdir()
        self.dlls = work / "dlls"
        self.dlls.mkdir()
        build("g++-posix", self.folder / "installdriver.exe", "-std=c++17", "-I", source, HERE / "installdriver.cpp",
              source / "platforminstaller_windows.cpp", source / "winusbinstall.cpp")
        for missing in [None, *FUNCTIONS]:
            without = [f"-Dwdi_{missing}=other"] if missing else []
            build("gcc-posix", self.dlls / f"{missing}.dll", "-shared", *without, HERE / "libwdidouble.c")
        self.failures = 0
        self.cases = 0

    def check(self, name, dll, script, arguments, calls, printed, folder=None):
        """dll: a file to be libwdi.dll in the folder (that of the program unless another is given), or None."""
        for place in (self.folder, self.elsewhere, self.on_path):
            for file in place.glob("libwdi*"):
                file.unlink()
        place = folder or self.folder
        if dll:
            shutil.copy(dll, place / "libwdi.dll")
            (place / "libwdi.dll.script").write_bytes("".join(line + "\n" for line in script).encode())
        searched = "Z:" + str(self.on_path).replace("/", "\\")  # wine puts it before the system's own PATH
        run = subprocess.run([self.wine, self.folder / "installdriver.exe", *" ".join(arguments).split()],
                             cwd=self.elsewhere, env={**os.environ, "WINEPATH": searched}, stdout=subprocess.PIPE,
                             timeout=300, check=False)
        note = place / "libwdi.dll.calls"
        seen = note.read_text().splitlines() if note.exists() else []
        said = run.stdout.decode().splitlines()
        self.cases += 1
        for what, expected, actual in (("calls", calls, seen), ("printed", printed, said), ("exit", 0, run.returncode)):
            if expected != actual:
                self.failures += 1
                print(f"FAILED {name}: {what}\n  expected {expected}\n  actual   {actual}")


def main():
    run = Run(*(pathlib.Path(argument).resolve() for argument in sys.argv[1:4]))
    whole = run.dlls / "None.dll"
    for name, (script, arguments, calls, printed) in CASES.items():
        run.check(name, whole, script, arguments, calls, printed)
    once = ["4b4 f3 0 single"]
    for function in FUNCTIONS:
        run.check(f"without wdi_{function}", run.dlls / f"{function}.dll", [], once, [],
                  [f"libwdi.dll has no wdi_{function}", "result -1"])
    absent = ["Can't load libwdi.dll: error 126", "result -1"]
    run.check("no library", None, [], once, [], absent)
    run.check("one in the current folder only", whole, [], once, [], absent, run.elsewhere)
    run.check("one on the search path only", whole, [], once, [], absent, run.on_path)
    broken = run.dlls / "broken.dll"
    broken.write_bytes(b"This is no program.\n" * 100)
    run.check("no DLL at all", broken, [], once, [], ["Can't load libwdi.dll: error 193", "result -1"])
    print(f"{run.cases} cases, {run.failures} failed")
    return 1 if run.failures else 0


if __name__ == "__main__":
    sys.exit(main())
