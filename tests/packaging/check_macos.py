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
# Type codes of the pictures, and their pixels: up to 128 the colours, run-length encoded, with a mask of a byte each; then JPEG 2000.
PACKED = {b"is32": 16, b"il32": 32, b"ih32": 48, b"it32": 128}
MASKS = {b"s8mk": 16, b"l8mk": 32, b"h8mk": 48, b"t8mk": 128}
JPEG = {b"ic08": 256, b"ic09": 512}


def pictures_of(data):
    magic, length = struct.unpack(">4sI", data[:8])
    assert magic == b"icns" and length == len(data), "no icon file, or cut short"
    at, pictures = 8, {}
    while at < length:
        kind, size = struct.unpack(">4sI", data[at:at + 8])
        assert size >= 8, "a picture without an end"
        pictures[kind] = data[at + 8:at + size]
        at += size
    return pictures


def unpacked_length(data):
    """Bytes from 128 on say how often the next one comes (125 less), others how many follow as they are (1 more)."""
    at, length = 0, 0
    while at < len(data):
        if data[at] >= 128:
            length += data[at] - 125
            at += 2
        else:
            length += data[at] + 1
            at += data[at] + 2
    assert at == len(data), "a picture is cut short"
    return length


def check_icon(data):
    pictures = pictures_of(data)
    lacking = (PACKED.keys() | MASKS.keys() | JPEG.keys()) - pictures.keys()
    assert not lacking, f"the icon lacks {lacking}"
    for kind, pixels in PACKED.items():
        packed = pictures[kind]
        if kind == b"it32":
            assert packed[:4] == bytes(4), "the picture of 128 pixels begins with four zeros"
            packed = packed[4:]
        assert unpacked_length(packed) == 3 * pixels * pixels, f"{kind} has not {pixels} pixels a side"
    for kind, pixels in MASKS.items():
        assert len(pictures[kind]) == pixels * pixels, f"{kind} has not {pixels} pixels a side"
        assert len(set(pictures[kind])) > 1, f"{kind} hides nothing or everything"
    for kind, pixels in JPEG.items():
        assert pictures[kind].startswith(b"\0\0\0\x0cjP  \r\n\x87\n"), f"{kind} is not JPEG 2000"
        header = struct.pack(">I4sII", 22, b"ihdr", pixels, pixels)
        assert header in pictures[kind][:64], f"{kind} has not {pixels} pixels a side"


def main():
    folder, version = pathlib.Path(sys.argv[1]) / "packaging/macos", sys.argv[2]
    text = (folder / "Info.plist.in").read_text().replace("${PROJECT_VERSION}", version)
    assert "${" not in text, "something is left to be filled in"
    info = plistlib.loads(text.encode())
    wanted = dict(REQUIRED, CFBundleVersion=version, CFBundleShortVersionString=version)
    wrong = {key: info.get(key) for key, value in wanted.items() if info.get(key) != value}
    assert not wrong, f"wrong in Info.plist: {wrong}"
    check_icon((folder / info["CFBundleIconFile"]).read_bytes())
    print(f"Info.plist has what a bundle needs; the icon has {len(PACKED) + len(JPEG)} sizes")


if __name__ == "__main__":
    main()
