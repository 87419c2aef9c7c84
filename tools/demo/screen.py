"""An X server without a screen, and a window on it that is driven and photographed from outside."""

import os
import re
import subprocess
import time

from simulation import DemoError, wait_for

# Pixels of a screen of normal density, which has 96 dots to the inch.
WIDTH, HEIGHT = 800, 720
NORMAL_DENSITY = 96

# A row of the list must show at least so many colours, or the picture is taken for blank. Its letters are smoothed at
# their edges, which alone brings more than that; the banner and the icons would hide an empty window.
FEWEST_COLOURS = 12


class Screen:
    """Xvfb under a display number of its own. Use it in a `with`.

    Its density is told to the programs as a desktop tells it. As much fits on one as on the other.
    """

    def __init__(self, density=NORMAL_DENSITY):
        self.density = density

    def __enter__(self):
        size = f"{WIDTH * self.density // NORMAL_DENSITY}x{HEIGHT * self.density // NORMAL_DENSITY}x24"
        reader, writer = os.pipe()
        try:
            self.server = subprocess.Popen(
                ["Xvfb", "-displayfd", str(writer), "-screen", "0", size, "-nolisten", "tcp", "-noreset"],
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
        # Xvfb has a density of its own that is not quite the normal one.
        self.set_resource(f"Xft.dpi:\t{self.density}\n")
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

    def set_resource(self, resource):
        command = ["xprop", "-root", "-f", "RESOURCE_MANAGER", "8s", "-set", "RESOURCE_MANAGER", resource]
        if self.run(*command) is None:
            raise DemoError("cannot set the screen's density: tools/install-dependencies screen")

    def windows(self, title):
        """The visible windows whose whole title matches."""
        found = self.run("xdotool", "search", "--onlyvisible", "--name", f"^({title})$")
        return found.split() if found else []

    def size(self, window):
        """Its width and height in pixels."""
        geometry = self.run("xdotool", "getwindowgeometry", window) or ""
        return tuple(int(n) for n in re.search(r"Geometry: (\d+)x(\d+)", geometry).groups())

    def root(self):
        """The window behind all others."""
        return (self.run("xdotool", "search", "--maxdepth", "0", "--name", ".*") or "").split()[0]

    def titles_of_others(self, title):
        """The titles of the visible windows other than the one that is called `title`."""
        found = self.run("xdotool", "search", "--onlyvisible", "--name", ".")
        titles = {(self.run("xdotool", "getwindowname", window) or "").strip() for window in (found or "").split()}
        return sorted(titles - {title, ""})

    def photograph(self, window, path):
        if self.run("import", "-window", window, str(path)) is None:
            raise DemoError(f"cannot take the picture {path.name}")

    def photograph_when_still(self, window, path, unlike=(), times=3):
        """Takes a picture as soon as so many in a row are equal, and show something else than the pictures `unlike`.

        Returns the picture's bytes; after a minute, those of the last one, whatever it shows.
        """
        deadline = time.monotonic() + 60
        equal = 0
        before = None
        while True:
            self.photograph(window, path)
            now = path.read_bytes()
            equal = equal + 1 if now == before else 1
            before = now
            if (equal >= times and now not in unlike) or time.monotonic() > deadline:
                return now

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
        size = screen.size(self.id)
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

    def photograph_when_still(self, path, unlike=(), times=3):
        return self.screen.photograph_when_still(self.id, path, unlike, times)

    def fewest_colours_of_a_row(self, path):
        rows = [place for name, place in self.places.items() if name.startswith("devicesList/")]
        return min(self.screen.colours(path, place) for place in rows)
