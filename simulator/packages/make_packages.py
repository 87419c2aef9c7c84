#!/usr/bin/env python3
"""Makes sample firmware packages, and beside each the images that a device must hold after it.

The same options always give the same bytes, so that tests can compare. Standard library only.
"""

import argparse
import pathlib
import struct
import zipfile
import zlib

SANDBOX_ADDRESS = 0x40013000  # somewhere in the controller's system memory
SECTION_GAP = 0x100
PACKAGE_TIME = (2020, 1, 1, 0, 0, 0)  # so that an archive does not depend on when it was made

# What a package of each kind holds. key None: no product.info, as the oldest packages.
PACKAGES = {
    "velk3": {
        "key": "velk3",
        "fpga": "velk3.bin",
        "fx3": "velk3.img",
        "sandbox": "velk3-sandbox.img",
        "edid": "edid_velk3_uvc.edid",
    },
    "sorn3": {
        "key": "sorn3",
        "fpga": "sorn3.bin",
        "fx3": "sorn3.img",
        "sandbox": "sorn3-sandbox.img",
    },
    "velk3_4k": {
        "key": "velk3_4k",
        "fpga": "velk3_4k.bin",
        "fx3": "velk3_4k.img",
        "sandbox": "velk3_4k-sandbox.img",
        "edid": "edid_velk3_4k_uvc.edid",
    },
    "legacy": {
        "fpga": "velk3.bin",
        "fx3": "QuorlinDriverlessGrabber.img",
        "sandbox": "usb-sandbox.img",
        "edid": "edid_velk3_uvc.edid",
    },
    "edid-only": {
        "key": "velk3",
        "edid": "edid_velk3_uvc.edid",
    },
}


def noise(seed, size):
    """Bytes that look random but never change: compressed firmware looks like that."""
    state = zlib.crc32(seed.encode()) | 1
    words = []
    for _ in range((size + 3) // 4):
        # xorshift32
        state ^= state << 13 & 0xFFFFFFFF
        state ^= state >> 17
        state ^= state << 5 & 0xFFFFFFFF
        words.append(state)
    return struct.pack("<%dI" % len(words), *words)[:size]


def image(seed, size):
    """Half noise, half runs of one byte, in turns of 512 bytes: an image that deflates somewhat."""
    data = bytearray(noise(seed, size))
    for start in range(512, size, 1024):
        end = min(start + 512, size)
        data[start:end] = bytes([start // 1024 & 0xFF]) * (end - start)
    return bytes(data)


def microcode(name, size, version):
    """Firmware that names its version, as far as the size allows."""
    data = bytearray(image(name + " microcode", size))
    marker = b"VERSION=" + version.encode("ascii") + b"\0"
    if len(marker) <= size:
        at = min(64, size - len(marker))
        data[at:at + len(marker)] = marker
    return bytes(data)


def boot_image(name, size):
    """An FX3 boot image of about that size: two sections, the entry, the sum of all data words."""
    words = max(2, size // 4)
    sizes = [words - words // 3, words // 3]
    data = noise(name + " sandbox", 4 * words)
    out = bytearray(b"CY\x1c\xb0")
    address = SANDBOX_ADDRESS
    offset = 0
    for count in sizes:
        if count == 0:
            continue
        out += struct.pack("<II", count, address) + data[offset:offset + 4 * count]
        offset += 4 * count
        address += 4 * count + SECTION_GAP
    out += struct.pack("<II", 0, SANDBOX_ADDRESS)
    out += struct.pack("<I", sum(struct.unpack("<%dI" % words, data)) & 0xFFFFFFFF)
    return bytes(out)


def with_checksum(block):
    """The first 127 bytes, and the byte that makes the sum of all 128 zero."""
    return block[:127] + bytes([-sum(block[:127]) & 0xFF])


def detailed_timing_1080p60():
    """The 18-byte timing descriptor of 1920x1080 at 60 frames a second (148.5 MHz)."""
    return bytes.fromhex("023a801871382d40582c450008222100001e")


def display_name(name):
    text = name.upper().encode("ascii")[:12] + b"\n"
    return b"\0\0\0\xfc\0" + text.ljust(13, b" ")


def base_edid(name, extensions):
    """An EDID 1.3 base block."""
    block = bytearray()
    block += bytes.fromhex("00ffffffffffff00")
    block += struct.pack(">H", (3 << 10) | (1 << 5) | 16)       # maker "CAP"
    block += struct.pack("<HI", 0x3601, 0x00C0FFEE)             # product, serial
    block += bytes([1, 30, 1, 3])                               # week 1 of 2020, version 1.3
    block += bytes([0x80, 52, 29, 120, 0x0A])                   # digital, 52 x 29 cm, gamma 2.2
    block += bytes.fromhex("ee91a3544c99260f5054")              # sRGB's colours
    block += bytes.fromhex("210800")                            # 640x480, 800x600, 1024x768 at 60 Hz
    block += bytes.fromhex("d1c081c0810001010101010101010101")  # standard timings
    block += detailed_timing_1080p60()
    block += display_name(name)
    block += b"\0\0\0\xfd\0" + bytes([24, 75, 15, 135, 17, 0, 0x0A]) + b"      "  # range limits
    block += b"\0\0\0\x10\0" + bytes(13)                        # no descriptor
    block += bytes([extensions])
    assert len(block) == 127, len(block)
    return with_checksum(bytes(block))


def extension_block(number):
    """A CTA-861 block: a few video formats, basic audio."""
    data = bytes.fromhex("47901f0405140312" "230907078301000067030c0010003844")
    block = bytes([2, 3, 4 + len(data), 0xF1]) + data + detailed_timing_1080p60()
    # The padding ends in the block's number, so that blocks in the wrong order show.
    return with_checksum(block.ljust(126, b"\0") + bytes([number & 0xFF]))


def edid(name, blocks):
    if blocks == 0:
        return b""
    data = base_edid(name, min(blocks - 1, 255))
    for number in range(1, blocks):
        data += extension_block(number)
    return data


def edid_text(name, data):
    lines = ["EDID of " + name, "made by make_packages.py", "offset | 16 bytes"]
    for at in range(0, len(data), 16):
        lines.append("0x%02x | %s" % (at, " ".join("%02x" % b for b in data[at:at + 16])))
    return ("\n".join(lines) + "\n").encode("ascii")


def images_of(kind, content, options):
    """The raw images of a package, by the name of the file beside it."""
    images = {}
    if "fx3" in content:
        images["fx3.bin"] = microcode(kind, options.fx3_size, options.version)
    if "fpga" in content:
        images["fpga.bin"] = image(kind + " bitstream", options.fpga_size)
    if "sandbox" in content:
        images["sandbox.img"] = boot_image(kind, options.sandbox_size)
    if "edid" in content:
        images["edid.bin"] = edid(kind, options.edid_blocks)
    return images


def entries_of(kind, content, images, options):
    """Names and contents of the archive's entries, in order."""
    entries = []
    if "key" in content:
        entries.append(("product.info", (content["key"] + "\n").encode("ascii")))
    for role, file in (("fpga", "fpga.bin"), ("fx3", "fx3.bin"), ("sandbox", "sandbox.img")):
        if role in content:
            entries.append((content[role], images[file]))
    if "edid" in content:
        entries.append((content["edid"], edid_text(kind, images["edid.bin"])))
    entries.append(("version.txt", (options.version + "\n").encode("ascii")))
    return entries


def write_archive(path, entries, method):
    with zipfile.ZipFile(path, "w") as archive:
        for name, data in entries:
            info = zipfile.ZipInfo(name, PACKAGE_TIME)
            info.compress_type = method
            info.external_attr = 0o644 << 16
            archive.writestr(info, data)


def make_package(kind, options):
    content = PACKAGES[kind]
    images = images_of(kind, content, options)
    folder = options.out / kind
    folder.mkdir(parents=True, exist_ok=True)
    for name, data in images.items():
        (folder / name).write_bytes(data)
    method = zipfile.ZIP_STORED if options.stored else zipfile.ZIP_DEFLATED
    write_archive(options.out / (kind + ".fw"), entries_of(kind, content, images, options), method)


def parse_options():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("out", type=pathlib.Path)
    parser.add_argument("--real-size", action="store_true", help="images as large as real ones")
    parser.add_argument("--fx3-size", type=int)
    parser.add_argument("--fpga-size", type=int)
    parser.add_argument("--sandbox-size", type=int)
    parser.add_argument("--edid-blocks", type=int, default=2)
    parser.add_argument("--version", default="2.0.0")
    parser.add_argument("--stored", action="store_true", help="do not deflate")
    parser.add_argument("--only", action="append", choices=PACKAGES, help="only this package")
    options = parser.parse_args()
    sizes = (160 * 1024, 2560 * 1024, 64 * 1024) if options.real_size else (10000, 10000, 6000)
    for name, size in zip(("fx3_size", "fpga_size", "sandbox_size"), sizes):
        if getattr(options, name) is None:
            setattr(options, name, size)
    return options


def main():
    options = parse_options()
    options.out.mkdir(parents=True, exist_ok=True)
    for kind in options.only or PACKAGES:
        make_package(kind, options)


if __name__ == "__main__":
    main()
