"""An X server without a screen, and a window on it that is driven and photographed from outside."""

import os
import re
import subprocess

from simulation import DemoError, wait_for

SCREEN = "800x720x24"

# A row of the list must show at least so many colours, or the picture is taken for blank. Its letters are smoothed at
# their edges, which alone brings more than that; the banner and the icons would hide an empty window.
FEWEST_COLOURS = 12


class Screen:
    """Xvfb under a display number of its own. Use it in a `with`."""

    def __enter__(self):
        reader, writer = os.pipe()
        try:
            self.server = subprocess.Popen(
                ["Xvfb", "-displayfd", str(writer), "-screen", "0", SCREEN, "-nolisten", "tcp", "-noreset"],
                pass_fds=[writer],
                stdin=subprocess.DEVNULL,
                stderr=subprocess.DEVNULL,
            )
        except FileNotFoundError as missing:
            raise DemoError("Xvfb is missing: tools/install-dependencies screen") from missing
        os.close(writer)
        with os.fdopen(reader) as answer:
            number = answer.readline().strip()
        if not number:
            raise DemoError("Xvfb does not start")
        self.display = f":{number}"
        return self

    def __exit__(self, *_):
        self.server.terminate()
        self.server.wait()

    def run(self, *command):
        """Runs an X client and returns what it prints; None if it fails."""
        result = subprocess.run(
            command,
            env={**os.environ, "DISPLAY": self.display},
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            check=False,
        )
        return result.stdout if result.returncode == 0 else None

    def windows(self, title):
        """The visible windows whose whole title matches."""
        found = self.run("xdotool", "search", "--onlyvisible", "--name", f"^({title})$")
        return found.split() if found else []

    def titles_of_others(self, title):
        """The titles of the visible windows other than the one that is called `title`."""
        found = self.run("xdotool", "search", "--onlyvisible", "--name", ".")
        titles = {(self.run("xdotool", "getwindowname", window) or "").strip() for window in (found or "").split()}
        return sorted(titles - {title, ""})

    def photograph(self, window, path):
        if self.run("import", "-window", window, str(path)) is None:
            raise DemoError(f"cannot take the picture {path.name}")

    def colours(self, path, area):
        x, y, width, height = area
        crop = f"{width}x{height}+{x}+{y}"
        count = self.run("convert", str(path), "-crop", crop, "+repage", "-format", "%k", "info:")
        return int(count) if count else 0


class Window:
    """The program's window, and where everything in it is."""

    def __init__(self, screen, title, form_map, rows):
        self.screen = screen
        self.title = title
        self.id = wait_for(f"the window '{title}'", lambda: screen.windows(title))[0]
        self.places = {}
        listing = screen.run("env", "QT_QPA_PLATFORM=xcb", str(form_map), str(rows))
        if not listing:
            raise DemoError("the map of the form cannot be made")
        for line in listing.splitlines():
            name, *numbers = line.split()
            self.places[name] = tuple(int(number) for number in numbers)
        geometry = screen.run("xdotool", "getwindowgeometry", self.id) or ""
        size = tuple(int(n) for n in re.search(r"Geometry: (\d+)x(\d+)", geometry).groups())
        if size != self.places["window"][2:]:
            raise DemoError(f"the window has the size {size}, the form {self.places['window'][2:]}")

    def click(self, name):
        """Clicks into the widget's left part, which stays where it is if something makes the window wider."""
        x, y, width, height = self.places[name]
        point = str(x + min(width // 2, 40)), str(y + height // 2)
        self.screen.run("xdotool", "mousemove", "--window", self.id, *point, "click", "1")

    def key(self, keys):
        # There is no window manager that would give the window the focus.
        self.screen.run("xdotool", "windowfocus", self.id)
        self.screen.run("xdotool", "key", keys)

    def enter_text(self, name, text):
        self.click(name)
        self.key("ctrl+a")
        self.screen.run("xdotool", "type", "--delay", "25", text)

    def photograph_when_still(self, path):
        """Takes a picture as soon as two in a row are equal, and no later than after some ten."""
        before = None
        for _ in range(10):
            self.screen.photograph(self.id, path)
            now = path.read_bytes()
            if now == before:
                return
            before = now

    def fewest_colours_of_a_row(self, path):
        rows = [place for name, place in self.places.items() if name.startswith("devicesList/")]
        return min(self.screen.colours(path, place) for place in rows)
