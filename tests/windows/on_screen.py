#!/usr/bin/env python3
"""The Windows programs on a screen that nobody sees, under wine.

    on_screen.py --build BUILD program      the program as it is shipped starts, finds no device, says so and ends
    on_screen.py --build BUILD planted      it loads no DLL and no plug-in from where somebody else has put one
    on_screen.py --build BUILD choice       a package is chosen in Windows' own file dialog
    on_screen.py --build BUILD session      Windows may end the session, but not during an update
    on_screen.py --build BUILD driver       a device without a driver gets one from the libwdi.dll beside the program, a double
    on_screen.py --build BUILD dialog       the tests of the dialog, on Windows' platform of Qt
    on_screen.py --build BUILD pictures     an update, an error, a repair and the three pages, into BUILD/pictures

They have the fonts that Windows has, or free ones with the same measures. The program as it is shipped is what the build
installs, or with --folder FOLDER what is in there.
"""

import argparse
import collections
import os
import pathlib
import re
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
CHOICE_TITLE = "Select firmware update file"
ROW_HEIGHT = 16  # pixels, of a list's first row
# So many pixels of a list's text must be unlike what is behind it, or the picture is taken for blank. wine smooths no
# letters, so to count colours would tell nothing.
FEWEST_PIXELS = 150

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
# DLLs that a program of this kind, or what it loads, may look for by name and that Windows itself does not have.
LOOKED_FOR = ["libwdi", "libusbK", "libusb0", "UsbDkHelper", "wintab32", "libEGL", "libGLESv2", "zlib1", "icuuc"]
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

    def __init__(self, build, folder=None):
        self.build = build
        self.folder = folder
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

    def start(self, *command, log=subprocess.DEVNULL, folder=None, **environment):
        return subprocess.Popen(
            [WINE, *map(str, command)],
            env={**self.environment, **environment},
            cwd=folder or self.build,
            stdin=subprocess.DEVNULL,
            stdout=log,
            stderr=subprocess.STDOUT,
        )

    def run(self, *command):
        if self.start(*command).wait(120) != 0:
            raise DemoError("wine: " + " ".join(map(str, command)))


def shipped(windows):
    """The folder with the program as an owner has it."""
    if windows.folder:
        return windows.folder
    folder = windows.build / "shipped"
    shutil.rmtree(folder, ignore_errors=True)
    subprocess.run(["cmake", "--install", windows.build, "--prefix", folder, "--strip"],
                   env={**os.environ, "DESTDIR": ""}, stdout=subprocess.DEVNULL, check=True)
    return folder


def take_pictures(windows, program, function, log_file):
    """Runs a function of a tst_program, and photographs it where it waits for that.

    Returns where the list is, for each picture: x, y, width, height.
    """
    folder = windows.build / "pictures"
    lists = {}
    with open(log_file, "wb") as log:
        process = windows.start_test(program, function, log=log, CAPSO_PICTURES=f"Z:{folder}")
        try:
            end = time.monotonic() + 240
            while process.poll() is None and time.monotonic() < end:
                for ready in folder.glob("*.ready"):
                    text = ready.read_text()
                    if not text.endswith("\n"):
                        continue
                    lists[ready.stem] = tuple(int(number) for number in text.split())
                    windows.screen.photograph("root", folder / f"{ready.stem}.png")
                    ready.unlink()
                time.sleep(0.1)
            code = process.wait(1)
        finally:
            process.kill()
    if code != 0:
        raise DemoError(f"{function} ended with {code}; see {log_file}")
    return lists


def pixels(picture, area):
    x, y, width, height = area
    result = subprocess.run(["convert", picture, "-crop", f"{width}x{height}+{x}+{y}", "+repage", "-depth", "8", "rgb:-"],
                            stdout=subprocess.PIPE, check=True)
    if len(result.stdout) != 3 * width * height:
        raise DemoError(f"{picture.name} has no area {area}")
    return result.stdout


def drawn(picture, area):
    """How many pixels are not what most of them are."""
    data = pixels(picture, area)
    counts = collections.Counter(data[start : start + 3] for start in range(0, len(data), 3))
    return counts.total() - counts.most_common(1)[0][1]


def program(windows):
    # What the list must look like: a test compares the text, and waits while it is photographed.
    pictures = windows.build / "pictures"
    expected = pictures / "empty-list.png"
    area = take_pictures(windows, windows.build / "tst_program.exe", "emptyListSaysWhatToDo",
                         windows.build / "empty-list.log")["empty-list"]
    if drawn(expected, area) < FEWEST_PIXELS:
        raise DemoError(f"the empty list says nothing: {expected}")

    # By the way to the log that the documents name.
    folder = shipped(windows)
    log_file = folder / "log.txt"
    log_file.unlink(missing_ok=True)
    process = windows.start("cmd", "/c", "capso-config.exe > log.txt 2>&1", folder=folder)
    seen = pictures / "no-device.png"
    try:
        window = wait_for("the window", lambda: windows.screen.windows(TITLE), timeout=60)[0]

        def is_shown():
            windows.screen.photograph("root", seen)
            return pixels(seen, area) == pixels(expected, area)

        wait_for(f"the text of the empty list: {seen} and {expected}", is_shown, timeout=60)
        windows.screen.run("xdotool", "windowfocus", window)
        windows.screen.run("xdotool", "key", "Escape")
        code = process.wait(60)
    finally:
        process.kill()
    lines = log_file.read_text().splitlines()
    if code != 0 or "Scan devices" not in lines:
        raise DemoError(f"the program ended with {code}; its log is {log_file}")


def loaded_files(log_file):
    """What wine has loaded for a program, by its trace."""
    text = log_file.read_text(errors="replace")
    return {match.replace("\\\\", "\\") for match in re.findall(r'build_module Loaded L"([^"]*)"', text)}


def planted(windows):
    folder = shipped(windows)
    other = windows.build / "planted by others"
    shutil.rmtree(other, ignore_errors=True)
    for plugins in ["platforms", "styles"]:
        shutil.copytree(folder / plugins, other / plugins)
    names = [file.name for file in folder.glob("*.dll")] + [f"{name}.dll" for name in LOOKED_FOR]
    for name in names:
        shutil.copy(folder / "libwinpthread-1.dll", other / name)

    def in_wine(path):
        return "Z:" + str(path).replace("/", "\\")

    ways = {
        "QT_QPA_PLATFORM_PLUGIN_PATH": ([], {"QT_QPA_PLATFORM_PLUGIN_PATH": in_wine(other / "platforms")}),
        "QT_PLUGIN_PATH": ([], {"QT_PLUGIN_PATH": in_wine(other)}),
        "-platformpluginpath": (["-platformpluginpath", in_wine(other / "platforms")], {}),
        "the current folder and PATH": ([], {"WINEPATH": in_wine(other)}),
    }
    # Each way of Qt's leads there in a program that does nothing against it; tst_processstartup says the same of the others.
    control = windows.build / "tst_form.exe"
    for way, (arguments, environment) in list(ways.items())[:3]:
        log_file = windows.build / "planted-control.log"
        with open(log_file, "wb") as log:
            windows.start(control, *arguments, "-functions", log=log, WINEDEBUG="-all,+loaddll", **environment).wait(120)
        if not any(file.startswith(in_wine(other)) for file in loaded_files(log_file)):
            raise DemoError(f"{way} leads {control.name} to no planted plug-in; see {log_file}")
    for way, (arguments, environment) in ways.items():
        log_file = windows.build / "planted.log"
        with open(log_file, "wb") as log:
            process = windows.start(folder / "capso-config.exe", *arguments, log=log, folder=other,
                                    WINEDEBUG="-all,+loaddll", **environment)
            try:
                window = wait_for("the window", lambda: windows.screen.windows(TITLE), timeout=60)[0]
                wait_for("the scan's line in the log", lambda: b"Scan devices" in log_file.read_bytes(), timeout=60)
                windows.screen.run("xdotool", "windowfocus", window)
                windows.screen.run("xdotool", "key", "Escape")
                code = process.wait(60)
            finally:
                process.kill()
        files = loaded_files(log_file)
        own = {file for file in files if file.startswith(in_wine(folder) + "\\")}
        foreign = {file for file in files - own if not re.match(r"(?i)c:\\windows\\", file)}
        plugins = {in_wine(folder / plugin) for plugin in ["platforms/qwindows.dll", "styles/qwindowsvistastyle.dll"]}
        if code != 0 or foreign or not plugins <= own:
            raise DemoError(f"{way}: ended with {code}, loaded {foreign}, and of its own {own}; see {log_file}")
    print(f"{len(ways)} ways to a planted DLL lead nowhere")


def choice(windows):
    folder = windows.build / "choice"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    package = folder / "some package.fw"
    package.touch()
    path = "Z:" + str(package).replace("/", "\\")
    place = folder / "click"
    log_file = windows.build / "choice.log"
    screen = windows.screen
    with open(log_file, "wb") as log:
        process = windows.start_test(windows.build / "tst_onwindows.exe", "packageIsChosenInTheSystemsFileDialog",
                                     log=log, CAPSO_CLICK=f"Z:{place}", CAPSO_CHOSEN=path)
        try:
            wait_for("the window", lambda: place.exists() and place.read_text().endswith("\n"), timeout=60)
            screen.run("xdotool", "mousemove", *place.read_text().split(), "click", "1")
            opened = wait_for("the file dialog", lambda: screen.windows(CHOICE_TITLE), timeout=60)[0]
            screen.photograph_when_still("root", windows.build / "pictures" / "file-dialog.png")
            screen.run("xdotool", "windowfocus", opened)
            screen.run("xdotool", "type", "--delay", "25", path)
            screen.run("xdotool", "key", "Return")
            code = process.wait(120)
        finally:
            process.kill()
    check_function(code, log_file)


def session(windows):
    log_file = windows.build / "session.log"
    with open(log_file, "wb") as log:
        process = windows.start_test(windows.build / "tst_onwindows.exe", "sessionMayNotEndDuringAnUpdateOnly", log=log)
        try:
            code = process.wait(120)
        finally:
            process.kill()
    check_function(code, log_file)


def check_function(code, log_file):
    """One function of a Qt Test program, with initTestCase() and cleanupTestCase()."""
    text = log_file.read_text(encoding="utf-8", errors="replace")
    if code != 0 or "Totals: 3 passed, 0 failed, 0 skipped" not in text:
        print(text)
        raise DemoError(f"ended with {code}")


def driver(windows):
    folder = windows.build / "with libwdi"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    for file in [windows.build / "window_program.exe", *windows.build.glob("*.dll")]:
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
            folder / "window_program.exe", "deviceWithoutADriverIsListedWhereOneCanBeInstalled", log=log
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
        lists = take_pictures(windows, windows.build / "tst_program.exe", function, log_file)
        for name in names:
            if name not in lists:
                raise DemoError(f"{function}: no picture {name}; see {log_file}")
            # The upper end of the list has the device's row.
            x, y, width, _ = lists[name]
            if drawn(folder / f"{name}.png", (x, y, width, ROW_HEIGHT)) < FEWEST_PIXELS:
                raise DemoError(f"{name}.png: nothing is drawn where the device's row is")
    print(f"pictures: {folder}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--folder", type=pathlib.Path)
    tasks = {
        "program": program, "planted": planted, "choice": choice, "session": session, "driver": driver, "dialog": dialog,
        "pictures": pictures,
    }
    parser.add_argument("task", choices=tasks)
    arguments = parser.parse_args()
    build = arguments.build.resolve()
    (build / "pictures").mkdir(exist_ok=True)
    try:
        with Windows(build, arguments.folder and arguments.folder.resolve()) as windows:
            tasks[arguments.task](windows)
    except (DemoError, subprocess.TimeoutExpired) as error:
        print(f"{arguments.task}: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
