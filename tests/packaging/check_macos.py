#!/usr/bin/env python3
"""What Linux can say of the bundle for macOS: the property list parses and has what a bundle needs, and the icon that it
names is one, with a picture for each common size.

check_macos.py SOURCE_FOLDER VERSION
"""

import pathlib
import plistlib
import struct
import sys

REQUIRED = {
    "CFBundleExecutable": "capso-config", "CFBundlePackageType": "APPL", "CFBundleName": "Capso Config",
    "CFBundleInfoDictionaryVersion": "6.0", "NSHighResolutionCapable": True, "NSPrincipalClass": "NSApplication",
}
# Type codes of the pictures: 16 and 32 pixels (with masks), 48, 128, 256 and 512.
SIZES = {b"is32": 16, b"il32": 32, b"ih32": 48, b"it32": 128, b"ic08": 256, b"ic09": 512}


def icon_types(data):
    magic, length = struct.unpack(">4sI", data[:8])
    assert magic == b"icns" and length == len(data), "no icon file, or cut short"
    at, types = 8, set()
    while at < length:
        kind, size = struct.unpack(">4sI", data[at:at + 8])
        assert size >= 8, "a picture without an end"
        types.add(kind)
        at += size
    return types


def main():
    folder, version = pathlib.Path(sys.argv[1]) / "packaging/macos", sys.argv[2]
    text = (folder / "Info.plist.in").read_text().replace("${PROJECT_VERSION}", version)
    assert "${" not in text, "something is left to be filled in"
    info = plistlib.loads(text.encode())
    wanted = dict(REQUIRED, CFBundleVersion=version, CFBundleShortVersionString=version)
    wrong = {key: info.get(key) for key, value in wanted.items() if info.get(key) != value}
    assert not wrong, f"wrong in Info.plist: {wrong}"
    types = icon_types((folder / info["CFBundleIconFile"]).read_bytes())
    assert types >= SIZES.keys(), f"the icon lacks {SIZES.keys() - types}"
    print(f"Info.plist has what a bundle needs; the icon has {len(SIZES)} sizes")


if __name__ == "__main__":
    main()
