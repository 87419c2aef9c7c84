#!/usr/bin/env python3
"""Checks who includes whom in src/ and simulator/ against the table of docs/architecture.md.

CMake keeps a module from seeing the project headers of modules that it does not link. It cannot keep a
module from a system header, nor a header from being included by more than its module: that is checked here.
"""

import pathlib
import re
import sys
import tempfile

# Which modules a module may include, and which libraries' headers (by pattern of the include).
QT_WIDGETS = r"Q(Application|Dialog|Widget|MessageBox|FileDialog|ListWidget.*|.*Button|CheckBox|.*Layout|Label)"
RULES = {
    "platform": {
        "modules": {"platform", "usb"},
        "never": [r"libusb\.h", r"zip\.h", r"zlib\.h", QT_WIDGETS, r"(context|device|driver|little|proberesult|usb|vendor|wdi).*\.h"],
    },
    "usb": {"modules": {"usb"}, "never": [r"zip\.h", r"zlib\.h", QT_WIDGETS]},
    "zip": {"modules": {"zip"}, "never": [r"Q[A-Z].*", r"libusb\.h", r"zlib\.h"]},
    "devicescanner": {"modules": {"devicescanner", "usb"}, "never": [r"zip\.h", r"zlib\.h", QT_WIDGETS]},
    "usbview": {
        "modules": {"usbview", "devicescanner", "usb"},
        "never": [r"zip\.h", r"libusb\.h", r"zlib\.h", QT_WIDGETS],
    },
    "configdevicetask": {
        "modules": {"configdevicetask", "usb"},
        "never": [r"zip\.h", r"zlib\.h", QT_WIDGETS],
    },
    "updatetask": {"modules": {"updatetask", "usb", "zip"}, "never": [r"zip\.h", QT_WIDGETS]},
    "displaytexts": {
        "modules": {"displaytexts", "configdevicetask", "usb"},
        "never": [r"zip\.h", r"libusb\.h", r"zlib\.h", QT_WIDGETS, r"QText.*"],
    },
    "updaterepair": {
        "modules": {
            "updaterepair", "displaytexts", "devicescanner", "usbview", "updatetask", "configdevicetask", "usb",
            "images", "platform",
        },
        "never": [
            r"zip\.h", r"libusb\.h", r"zlib\.h",
            r"usbaccess\.h", r"driverdecision\.h", r"platforminstaller\.h", r"proberesult\.h",
        ],
    },
    "cli": {
        "modules": {
            "cli", "displaytexts", "usbview", "devicescanner", "updatetask", "configdevicetask", "platform", "usb", "zip",
        },
        "never": [
            r"zip\.h", r"libusb\.h", r"zlib\.h", QT_WIDGETS, r"QText.*",
            r"usbaccess\.h", r"driverdecision\.h", r"platforminstaller\.h", r"proberesult\.h",
        ],
    },
    "main.cpp": {"modules": {"usb", "updaterepair", "platform"}, "never": [r"libusb\.h", r"zip\.h", r"zlib\.h"]},
    "images": {"modules": {"images"}, "never": [r"zip\.h", r"libusb\.h", r"zlib\.h", QT_WIDGETS]},
    "simulator": {"modules": {"simulator"}, "never": [r"Q[A-Z].*", r"libusb\.h"]},
}
# C libraries' headers stay out of our headers, so that nobody gets them by accident.
NEVER_IN_HEADERS = [r"libusb\.h", r"zip\.h", r"zlib\.h"]
# Headers that only their own module may include.
PRIVATE = {
    "edidwriter.h": "updatetask",
    "imagewriter.h": "updatetask",
    "sandboxloader.h": "updatetask",
    "updatereport.h": "updatetask",
    "updatetexts.h": "updatetask",
    "openarchive.h": "zip",
    "probes.h": "devicescanner",
}

INCLUDE = re.compile(r'^\s*#\s*include\s+[<"]([^>"]+)[>"]', re.MULTILINE)


def module_of(path, root):
    parts = path.relative_to(root).parts
    return parts[1] if parts[0] == "src" else parts[0]


def check(root):
    files = [p for top in ("src", "simulator") for p in sorted((root / top).rglob("*")) if p.suffix in (".h", ".cpp")]
    home = {p.name: module_of(p, root) for p in files if p.suffix == ".h"}
    problems = []
    for path in files:
        module = module_of(path, root)
        rule = RULES.get(module)
        if rule is None:
            problems.append(f"{path.relative_to(root)}: no rule for the module '{module}'")
            continue
        for include in INCLUDE.findall(path.read_text(encoding="utf-8")):
            name = include.split("/")[-1]
            offence = None
            if name in home and home[name] not in rule["modules"]:
                offence = f"the module '{home[name]}' is out of its reach"
            elif name in PRIVATE and module != PRIVATE[name]:
                offence = f"private to '{PRIVATE[name]}'"
            elif any(re.fullmatch(pattern, name) for pattern in rule["never"]):
                offence = "a library that this module must not know"
            elif path.suffix == ".h" and any(re.fullmatch(p, name) for p in NEVER_IN_HEADERS):
                offence = "a C library's header inside a header"
            if offence:
                problems.append(f"{path.relative_to(root)}: includes {include}: {offence}")
    return len(files), problems


def self_test():
    """Every kind of offence is found, and nothing but the offences."""
    offences = {
        "src/zip/a.cpp": "#include <QString>\n",
        "src/usb/b.cpp": '#include "dialog.h"\n',
        "src/updaterepair/c.cpp": "#include <libusb.h>\n",
        "src/usb/d.h": "#include <libusb.h>\n",
        "simulator/e.cpp": '#include "record.h"\n',
        "src/attic/f.cpp": "",
    }
    fine = {
        "src/usb/record.h": "#include <QString>\n",
        "src/updaterepair/dialog.h": '#include "record.h"\n',
        "src/usb/g.cpp": "#include <libusb.h>\n",
    }
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        for name, text in {**offences, **fine}.items():
            (root / name).parent.mkdir(parents=True, exist_ok=True)
            (root / name).write_text(text, encoding="utf-8")
        _, problems = check(root)
    found = {problem.split(":")[0] for problem in problems}
    if found != set(offences):
        sys.exit(f"expected {sorted(offences)}, found {sorted(found)}")


def main():
    if sys.argv[1:] == ["--self-test"]:
        self_test()
        return
    count, problems = check(pathlib.Path(sys.argv[1]))
    print("\n".join(problems) or f"{count} files, every include within its module's reach")
    sys.exit(1 if problems or count == 0 else 0)


if __name__ == "__main__":
    main()
