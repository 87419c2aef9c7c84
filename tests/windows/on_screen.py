#!/usr/bin/env python3
"""The Windows programs on a screen that nobody sees, under wine.

    on_screen.py --build BUILD program      the program as it is shipped starts, finds no device and ends
    on_screen.py --build BUILD driver       a device without a driver gets one from the libwdi.dll beside the program, a double
    on_screen.py --build BUILD dialog       the tests of the dialog, on Windows' platform of Qt
    on_screen.py --build BUILD pictures     an update, an error, a repair and the three pages, into BUILD/pictures

They have the fonts that Windows has, or free ones with the same measures.
"""

import argparse
import os
import pathlib
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools" / "demo"))

from screen import Screen  # noqa: E402
from simulation import DemoError, wait_for  # noqa: E402

WINE = ROOT / "packaging" / "windows" / "wine"
WINESERVER = "/usr/lib/wine/wineserver64"
TITLE = "Capso Config"

# Windows' font: the family and the file of the one that stands in its place. wine brings a Tahoma, in which a dialog's
# texts are set; Liberation Sans has Arial's measures; Open Sans is a little wider than Segoe UI.
FONTS = {
    "Arial": ("Liberation Sans", "liberation/LiberationSans-{}.ttf"),
    "Segoe UI": ("Open Sans", "open-sans/OpenSans-{}.ttf"),
}
FONT_FOLDER = pathlib.Path("/usr/share/fonts/truetype")

# Not tried on a screen: tst_densescreen asks for a second density, which wine's has not.
DIALOG_TESTS = [
    "accessibility", "devicelist", "emptylist", "firmwaretab", "form", "keyboard", "overlap", "settingstab",
    "usermodestab", "workers",
]
LIBWDI_DOUBLE = ROOT / "tests" / "unit" / "driver" / "libwdi" / "libwdidouble.c"
LIBWDI_CALLS = [
    "set_log_level", "create_list", "destroy_list", "prepare_driver", "create_list", "install_driver", "destroy_list",
]
PICTURES = {
    "pagesShowWhatTheDeviceHolds": ["firmware", "settings", "user-modes"],
    "updateFromAFileToItsEnd": ["update", "update-completed"],
    "failureIsSaidAndTheNextUpdateWorks": ["error-box"],
    "brokenDeviceIsRepaired": ["repair"],
}


class Windows:
    """wine with a screen and fonts of its own. Use it in a `with`."""

    def __init__(self, build):
        self.build = build
        self.prefix = build.parent / "wine-screen"

    def __enter__(self):
        self.screen = Screen()
        self.screen.__enter__()
        self.environment = {
            **{name: value for name, value in os.environ.items() if not name.startswith("QT_")},
            "CAPSO_WINE_PREFIX": str(self.prefix),
            "DISPLAY": self.screen.display,
            "QT_QPA_PLATFORM": "windows",
        }
        self.end()
        if not (self.prefix / "fonts").exists():
            self.run("cmd", "/c", "exit")
            self.install_fonts()
            (self.prefix / "fonts").touch()
            self.end()
        return self

    def __exit__(self, *_):
        self.end()
        self.screen.__exit__()

    def end(self):
        """A wine that was started on another screen would go on using that one."""
        subprocess.run([WINESERVER, "-k"], env={**os.environ, "WINEPREFIX": str(self.prefix)},
                       stderr=subprocess.DEVNULL, check=False)

    def install_fonts(self):
        for name, (family, files) in FONTS.items():
            for weight in ["Regular", "Bold"]:
                file = FONT_FOLDER / files.format(weight)
                if not file.exists():
                    raise DemoError(f"{file} is missing: tools/install-dependencies windows")
                shutil.copy(file, self.prefix / "drive_c" / "windows" / "Fonts")
            self.run("reg", "add", r"HKCU\Software\Wine\Fonts\Replacements", "/v", name, "/d", family, "/f")

    def start_test(self, program, *arguments, log, **environment):
        """Qt Test talks to the debugger where there is no console."""
        return self.start(program, *arguments, log=log, QT_FORCE_STDERR_LOGGING="1", **environment)

    def start(self, *command, log=subprocess.DEVNULL, **environment):
        return subprocess.Popen(
            [WINE, *map(str, command)],
            env={**self.environment, **environment},
            cwd=self.build,
            stdin=subprocess.DEVNULL,
            stdout=log,
            stderr=subprocess.STDOUT,
        )

    def run(self, *command):
        if self.start(*command).wait(120) != 0:
            raise DemoError("wine: " + " ".join(map(str, command)))


def program(windows):
    log_file = windows.build / "program.log"
    with open(log_file, "wb") as log:
        process = windows.start(windows.build / "capso-config.exe", log=log)
        try:
            window = wait_for("the window", lambda: windows.screen.windows(TITLE))[0]
            # The log of a window program, by the way that its documents name.
            wait_for("the scan's line in the log", lambda: b"Scan devices" in log_file.read_bytes())
            windows.screen.photograph_when_still("root", windows.build / "pictures" / "no-device.png")
            windows.screen.run("xdotool", "windowfocus", window)
            windows.screen.run("xdotool", "key", "Escape")
            code = process.wait(60)
        finally:
            process.kill()
    if code != 0:
        raise DemoError(f"the program ended with {code}; its log is {log_file}")


def driver(windows):
    folder = windows.build / "with libwdi"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    for file in [windows.build / "tst_program.exe", *windows.build.glob("*.dll")]:
        shutil.copy(file, folder)
    for plugins in ["platforms", "styles"]:
        shutil.copytree(windows.build / plugins, folder / plugins)
    library = folder / "libwdi.dll"
    subprocess.run(["x86_64-w64-mingw32-gcc-posix", "-shared", "-static", "-o", library, LIBWDI_DOUBLE], check=True)
    listing = ["list 0", r"device 4b4 f3 0 WestBridge|USB\1|USB\VID_04B4&PID_00F3"]
    (folder / "libwdi.dll.script").write_bytes("".join(line + "\n" for line in listing * 2).encode())
    output = folder / "output.log"
    with open(output, "wb") as log:
        process = windows.start_test(
            folder / "tst_program.exe", "deviceWithoutADriverIsListedWhereOneCanBeInstalled", log=log
        )
        try:
            code = process.wait(120)
        finally:
            process.kill()
    said = output.read_text(encoding="utf-8", errors="replace").splitlines()
    expected = [
        "Set device desc: WestBridge", "WDI driver prepare: Success", "Installing driver(s)...",
        r"Found device: USB\VID_04B4&PID_00F3: Install status: Success (0)",
    ]
    missing = [line for line in expected if line not in said]
    calls = [line.split(" ")[0] for line in (folder / "libwdi.dll.calls").read_text().splitlines()]
    if code != 0 or missing or calls != LIBWDI_CALLS:
        raise DemoError(f"ended with {code}, did not print {missing}, called {calls}; see {output}")


def dialog(windows):
    failed = []
    for name in DIALOG_TESTS:
        log_file = windows.build / f"screen-{name}.log"
        with open(log_file, "wb") as log:
            process = windows.start_test(windows.build / f"tst_{name}.exe", "-silent", log=log)
            try:
                code = process.wait(300)
            finally:
                process.kill()
        text = log_file.read_text(encoding="utf-8", errors="replace")
        totals = [line for line in text.splitlines() if line.startswith("Totals:")]
        print(name, *totals)
        if code != 0 or len(totals) != 1:
            print(text)
            failed.append(name)
    if failed:
        raise DemoError("failed: " + ", ".join(failed))


def pictures(windows):
    folder = windows.build / "pictures"
    for function, names in PICTURES.items():
        for name in names:
            (folder / f"{name}.png").unlink(missing_ok=True)
        log_file = windows.build / f"pictures-{function}.log"
        with open(log_file, "wb") as log:
            process = windows.start_test(
                windows.build / "tst_program.exe", function, log=log, CAPSO_PICTURES=f"Z:{folder}"
            )
            try:
                end = time.monotonic() + 240
                while process.poll() is None and time.monotonic() < end:
                    for ready in folder.glob("*.ready"):
                        windows.screen.photograph("root", folder / f"{ready.stem}.png")
                        ready.unlink()
                    time.sleep(0.1)
                code = process.wait(1)
            finally:
                process.kill()
        missing = [name for name in names if not (folder / f"{name}.png").exists()]
        if code != 0 or missing:
            raise DemoError(f"{function} ended with {code}, without pictures: {missing}; see {log_file}")
    print(f"pictures: {folder}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True)
    tasks = {"program": program, "driver": driver, "dialog": dialog, "pictures": pictures}
    parser.add_argument("task", choices=tasks)
    arguments = parser.parse_args()
    build = arguments.build.resolve()
    (build / "pictures").mkdir(exist_ok=True)
    try:
        with Windows(build) as windows:
            tasks[arguments.task](windows)
    except (DemoError, subprocess.TimeoutExpired) as error:
        print(f"{arguments.task}: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
