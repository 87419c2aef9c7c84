#!/usr/bin/env python3
"""Writes the seeds of the fuzz targets: tests/fuzz/corpus/TARGET/NAME.

    make_corpus.py            writes them; files that it does not know (what fuzzing found) stay
    make_corpus.py --check    fails when a seed is missing or not what this script makes of it

The seeds are small. Between them they reach every error text of the target's parser; the targets hold
that (see docs/fuzzing.md).
"""

import pathlib
import struct
import sys
import zlib

CORPUS = pathlib.Path(__file__).resolve().parent / "corpus"
STORED, DEFLATED, UNKNOWN_METHOD = 0, 8, 99


# ---- ZIP, byte by byte, so that an entry can lie about itself


class Entry:
    def __init__(self, name, data, method=STORED, encrypted=False, size=None, crc=None, packed=None):
        self.name = name.encode()
        self.method = method
        self.flags = 1 if encrypted else 0
        self.size = len(data) if size is None else size
        self.crc = zlib.crc32(data) if crc is None else crc
        if packed is not None:
            self.packed = packed
        elif method == DEFLATED:
            packer = zlib.compressobj(9, zlib.DEFLATED, -15)
            self.packed = packer.compress(data) + packer.flush()
        else:
            self.packed = (b"x" * 12 if encrypted else b"") + data

    def header(self):
        return struct.pack(
            "<HHHHHIIIHH", 20, self.flags, self.method, 0, 0x21, self.crc, len(self.packed), self.size, len(self.name), 0
        )


def archive(*entries, comment=b""):
    body = b""
    directory = b""
    for entry in entries:
        offset = len(body)
        body += b"PK\x03\x04" + entry.header() + entry.name + entry.packed
        directory += b"PK\x01\x02" + struct.pack("<H", 20) + entry.header()
        directory += struct.pack("<HHHII", 0, 0, 0, 0, offset) + entry.name
    count = len(entries)
    end = struct.pack("<HHHHIIH", 0, 0, count, count, len(directory), len(body), len(comment))
    return body + directory + b"PK\x05\x06" + end + comment


# ---- what a package holds


def pattern(count, seed=1):
    """Bytes that do not repeat with the block size."""
    state = seed
    result = bytearray()
    for _ in range(count):
        state = (state * 1664525 + 1013904223) & 0xFFFFFFFF
        result.append(state >> 24)
    return bytes(result)


def boot_image(*sections, entry=0x40008000, checksum=None, tail=b""):
    image = b"CY\x1c\xb0"
    total = 0
    for address, data in sections:
        image += struct.pack("<II", len(data) // 4, address) + data
        total += sum(struct.unpack(f"<{len(data) // 4}I", data))
    image += struct.pack("<II", 0, entry)
    return image + struct.pack("<I", (total if checksum is None else checksum) & 0xFFFFFFFF) + tail


def edid_lines(blocks=1):
    lines = []
    for block in range(blocks):
        data = pattern(127, block + 7)
        data += bytes([-sum(data) & 0xFF])
        for at in range(0, 128, 16):
            numbers = " ".join(f"{byte:02x}" for byte in data[at : at + 16])
            lines.append(f"0x{block * 128 + at:02x} | {numbers}")
    return lines


def wrong_checksum(lines):
    """The last byte is another one."""
    return lines[:-1] + [lines[-1][:-2] + "77"]


HEADING = ["EDID of a test", "     0  1  2  3", "----------------"]


def edid_text(lines, end="\n"):
    return "".join(line + end for line in HEADING + lines).encode("latin-1")


SANDBOX = boot_image((0x40008000, pattern(64, 3)), (0x4000C000, pattern(32, 4)))
NAMES = {
    "legacy": ("velk3.bin", "QuorlinDriverlessGrabber.img", "usb-sandbox.img", "edid_velk3_uvc.edid"),
    "velk3": ("velk3.bin", "velk3.img", "velk3-sandbox.img", "edid_velk3_uvc.edid"),
    "sorn3": ("sorn3.bin", "sorn3.img", "sorn3-sandbox.img", None),
    "velk3_4k": ("velk3_4k.bin", "velk3_4k.img", "velk3_4k-sandbox.img", "edid_velk3_4k_uvc.edid"),
}


def package(key="velk3", has_info=True, **replaced):
    """A good package, but for what is replaced: an Entry's arguments, or None to leave the entry out."""
    names = dict(zip(("fpga", "fx3", "sandbox", "edid"), NAMES[key]))
    contents = {
        "fpga": {"data": pattern(300, 1)},
        "fx3": {"data": pattern(200, 2)},
        "sandbox": {"data": SANDBOX},
        "edid": {"data": edid_text(edid_lines())},
    }
    entries = []
    if has_info:
        entries.append(Entry("product.info", **{"data": f"{key}\n".encode(), **replaced.get("info", {})}))
    for part, name in names.items():
        if name and replaced.get(part, {}) is not None:
            entries.append(Entry(name, **{**contents[part], **replaced.get(part, {})}))
    return archive(*entries)


ONLY_EDID = {"fpga": None, "fx3": None, "sandbox": None}


def long_edid(blocks):
    return {"data": edid_text(["|" + " 0" * 16] * 8 * blocks), "method": DEFLATED}


def package_seeds():
    velk3 = package()
    half = len(velk3) // 2
    encrypted = {"encrypted": True}
    wrong_crc = {"crc": 1}
    return {
        "velk3": velk3,
        "sorn3": package("sorn3"),
        "velk3_4k": package("velk3_4k"),
        "legacy": package("legacy", has_info=False),
        "edid-only": package(**ONLY_EDID),
        "deflated": package(fpga={"method": DEFLATED}, fx3={"method": DEFLATED}, edid={"method": DEFLATED}),
        "blocks": package(fpga={"data": bytes(10001), "method": DEFLATED}, fx3={"data": bytes(8196), "method": DEFLATED}),
        "blocks-4k": package("velk3_4k", fpga={"data": bytes(10001), "method": DEFLATED}),
        "empty-images": package(fpga={"data": b""}, fx3={"data": b""}, sandbox={"data": b""}, edid={"data": b""}),
        "version-and-comment": archive(Entry("version.txt", b"1.0"), Entry("product.info", b"velk3"), comment=b"PK\x05\x06"),
        # no archive
        "nothing": b"",
        "text": b"This is not a package.\n",
        "no-entries": archive(),
        "cut-in-half": velk3[:half],
        "cut-by-one": velk3[:-1],
        "no-directory": velk3[: velk3.index(b"PK\x01\x02")],
        "bytes-before": b"stub" + velk3,
        # product.info
        "info-encrypted": package(info=encrypted),
        "info-method": package(info={"method": UNKNOWN_METHOD}),
        "info-damaged": package(info=wrong_crc),
        "info-bad-deflate": package(info={"method": DEFLATED, "packed": b"\xff" * 8}),
        "info-unknown": package(info={"data": b"velk4\n"}),
        "info-cr": package(info={"data": b"sorn3\r\n"}),
        "info-twice": archive(Entry("product.info", b"sorn3"), Entry("product.info", b"velk3")),
        # entries
        "no-fx3": package(fx3=None),
        "edid-and-fpga": package(fx3=None, sandbox=None),
        "directory-instead": archive(Entry("velk3.bin/", b""), Entry("VELK3.IMG", b"")),
        "fx3-encrypted": package(fx3=encrypted),
        "fx3-odd": package(fx3={"data": pattern(201)}),
        "fx3-damaged": package(fx3=wrong_crc),
        "fpga-encrypted": package(fpga=encrypted),
        "fpga-damaged": package(fpga=wrong_crc),
        "fpga-damaged-4k": package("velk3_4k", fpga=wrong_crc),
        "fpga-bad-deflate": package(fpga={"method": DEFLATED, "packed": b"\x01\x04\x00\xfb\xffabcd\xff"}),
        "size-too-small": package(fpga={"size": 1}, fx3={"size": 3}, sandbox={"size": 1}),
        "size-zero": package(fpga={"size": 0}, fx3={"size": 0}, sandbox={"size": 0}),
        "size-too-large": package(fpga={"size": 0xFFFFFFFE}, fx3={"size": 0xFFFFFFFE}, sandbox={"size": 0xFFFFFFFE}),
        "deflated-size-too-small": package(
            fpga={"size": 1, "method": DEFLATED},
            fx3={"size": 3, "method": DEFLATED},
            sandbox={"size": 1, "method": DEFLATED},
        ),
        "edid-encrypted": package(edid=encrypted, **ONLY_EDID),
        "edid-format": package(edid={"data": b"a\nb\nc\nd\n"}, **ONLY_EDID),
        "edid-checksum": package(edid={"data": edid_text(wrong_checksum(edid_lines()))}, **ONLY_EDID),
        "edid-33-blocks": package(edid=long_edid(33), **ONLY_EDID),
        "edid-513-blocks": package(edid=long_edid(513), **ONLY_EDID),
        "edid-damaged": package(edid=wrong_crc, **ONLY_EDID),
        "sandbox-encrypted": package(sandbox=encrypted),
        "sandbox-signature": package(sandbox={"data": b"XY" + SANDBOX[2:]}),
        "sandbox-checksum": package(sandbox={"data": SANDBOX[:-4] + b"\0\0\0\0"}),
    }


def product_key_seeds():
    return {
        "empty": b"",
        "velk3": b"velk3",
        "velk3-line": b"velk3\nmore\n",
        "velk3-nul": b"velk3\0garbage",
        "legacy": b"legacy\n",
        "sorn3": b"sorn3\n",
        "sorn3-cr": b"sorn3\r\n",
        "velk3_4k": b"velk3_4k\n",
        "blank-behind": b"velk3 \n",
        "line-feed": b"\n",
        "fourteen": b"abcdefghijklmn",
        "fifteen": b"abcdefghijklmno",
        "fifteen-line": b"abcdefghijklmno\n",
        "sixteen": b"abcdefghijklmnop",
        "forty": b"abcdefghij" * 4,
        "nul-in-first-piece": b"vel\0xxxxxxxxxxxk3\n",
        "nuls": bytes(40),
        "place-holders": b"%1 %2 %n\n",
        "mark-up": b"<b>velk3</b>\n",
        "utf-8": "velk3\u00e9\u2028\n".encode(),
        "broken-utf-8": b"\xff\xfe\xc3\n",
    }


def edid_seeds():
    one = edid_lines()
    two = edid_lines(2)
    zeros = "|" + " 0" * 16
    return {
        "one-block": edid_text(one),
        "two-blocks": edid_text(two),
        "cr": edid_text(one, "\r\n"),
        "tabs": edid_text([line.replace(" ", "\t") for line in one]),
        "no-last-line-feed": edid_text(one)[:-1],
        "empty": b"",
        "heading-only": edid_text([]),
        "no-bar": edid_text(["0x00 00 ff"]),
        "second-line-no-bar": edid_text([one[0], "no bar"]),
        "overflow": edid_text([one[0] + " 00"]),
        "underflow": edid_text([one[0][:-3]]),
        "nine-lines": edid_text(one + one[:1]),
        "twelve-lines": edid_text(one + [zeros] * 4),
        "seven-lines": edid_text(one[:7]),
        "checksum": edid_text(wrong_checksum(one)),
        "second-checksum": edid_text(wrong_checksum(two)),
        "checksum-below-byte": edid_text(["|" + " 5" + " 0" * 15] + [zeros] * 6 + ["|" + " 0" * 15 + " 30"]),
        "prefixes": edid_text(["|" + " 0x0" * 16] * 8),
        "signs": edid_text(["| -1 +1" + " 0" * 14] * 8),
        "wide-numbers": edid_text(["| 100 fffff00" + " 0" * 14] * 8),
        "too-wide": edid_text(["|" + " 123456789" * 16] * 8),
        "no-number": edid_text(["| zz"]),
        "number-then-garbage": edid_text([zeros + " garbage"] * 8),
        "two-bars": edid_text(["|" + zeros] * 8),
        "nul": edid_text(one).replace(b" ", b"\0", 1),
        "nul-in-line": edid_text(one)[:120] + b"\0" + edid_text(one)[120:],
        "long-heading": b"a" * 4100 + b"\n\n\n" + edid_text(one).split(b"\n", 3)[3],
        "white-space": edid_text(["|\v\f" + " 0\f" * 16] * 8),
    }


def sandbox_seeds():
    word = pattern(4)
    small = boot_image((0x100, word))
    seeds = {
        "two-sections": SANDBOX,
        "no-sections": boot_image(),
        "pieces": boot_image((0x40000000, pattern(10000))),
        "exactly-one-piece": boot_image((0x40000000, pattern(4096))),
        "one-word-over-a-piece": boot_image((0x40000000, pattern(4100))),
        "top-of-memory": boot_image((0xFFFFF000, pattern(8192))),
        "sum-wraps": boot_image((0, b"\xff" * 64)),
        "entry-zero": boot_image((0x100, word), entry=0),
        "bytes-behind": boot_image((0x100, word), tail=b"behind"),
        "checksum": boot_image((0x100, word), checksum=0),
        "signature": b"CX" + small[2:],
        "length-past-the-end": small[:4] + struct.pack("<II", 2, 0) + word,
        "longest-section-cut": b"CY\0\0" + struct.pack("<II", 0x80000, 0) + word,
        "section-too-long": b"CY\0\0" + struct.pack("<II", 0x80001, 0) + word,
        "length-wraps": b"CY\0\0" + struct.pack("<II", 0x40000001, 0) + word + struct.pack("<III", 0, 0, 0),
        "length-all-ones": b"CY\0\0" + struct.pack("<II", 0xFFFFFFFF, 0) + word,
        "bad-second-section": SANDBOX[:76] + struct.pack("<II", 0x80001, 0) + word,
    }
    for cut in range(0, len(small), 3):
        seeds[f"cut-at-{cut:02}"] = small[:cut]
    return seeds


def status(info, name, rate, width, height, interlaced):
    return struct.pack("<12s8sIHHB", info, name, rate, width, height, interlaced)


def records_seeds():
    modes = struct.pack("<HHB", 1280, 720, 1) + struct.pack("<HHB", 1920, 1080, 0) + struct.pack("<HHB", 0xFFFF, 0, 255)
    rgb = status(b"RGB 4:4:4", b"HDMI", 60000, 1920, 1080, 0)
    lines = {
        "progressive": rgb,
        "interlaced": status(b"YUV", b"SDI", 59940, 1920, 1080, 1),
        "film": status(b"", b"", 23976, 4096, 2160, 0),
        "fast": status(b"B", b"A", 120000, 640, 480, 0),
        "slowest": status(b"B", b"A", 1, 1, 1, 2),
        "fastest": status(b"B", b"A", 0xFFFFFFFF, 0xFFFF, 0xFFFF, 255),
        "no-signal": status(b"B", b"A", 60000, 1920, 0, 0),
        "unterminated": status(b"I" * 12, b"N" * 8, 60000, 1920, 1080, 0),
        "unterminated-to-the-end": status(b"I" * 12, b"N" * 8, 0x41414141, 0x4141, 0x4141, 0x41),
        "place-holders": status(b"%1%2%3", b"%6 %5", 60000, 1920, 1080, 0),
        "mark-up": status(b"</b>", b"<b>", 60000, 1920, 1080, 0),
        "high-bytes": status(b"\xff\xfe\x80", b"\xe9\n\t", 60000, 1920, 1080, 0),
    }
    seeds = {name: b"\x17" + modes + line for name, line in lines.items()}
    whole = b"\xff" + modes + rgb
    seeds["all-flags"] = whole
    seeds["unused-flag"] = b"\x08" + modes + rgb
    for cut in (0, 1, 2, 6, 10, 16, 17, 44):
        seeds[f"short-{cut:02}"] = whole[:cut]
    return seeds


def strings_seeds():
    def device(choice, *strings):
        return bytes([choice]) + b"".join(struct.pack("<hB", length, len(text)) + text for length, text in strings)

    true = [(7, b"Grabber"), (8, b"A1B2C3D4"), (5, b"1.2.3")]
    return {
        "running": device(0, *true),
        "second-product": device(1, *true),
        "soft-repair": device(2, *true),
        "hard-repair": device(3, *true),
        "no-serial": device(4, *true),
        "unreadable": device(0, (-9, b""), (-9, b""), (-9, b"")),
        "unreadable-but-written": device(0, (-1, b"abc"), (-4, b"def"), (-7, b"ghi")),
        "empty": device(0, (0, b""), (0, b""), (0, b"")),
        "nul-inside": device(0, (7, b"Gra\0ber"), (3, b"\0BC"), (5, b"1.2.\0")),
        "longer-than-written": device(0, (100, b"Gr"), (127, b"A"), (126, b"")),
        "shorter-than-written": device(0, (2, b"Grabber"), (0, b"A1B2C3D4"), (1, b"1.2.3")),
        "longest": device(0, (127, b"n" * 127), (127, b"s" * 127), (127, b"v" * 127)),
        "over-the-buffer": device(0, (128, b"n" * 128), (32767, b"s" * 255), (255, b"v" * 255)),
        "place-holders": device(0, (5, b"%4 %3"), (5, b"%1 %5"), (4, b"%%2L")),
        "mark-up": device(2, (12, b"<b>Bold</b>\n"), (1, b"&"), (1, b">")),
        "high-bytes": device(3, (4, b"\xff\xe9\x80\x7f"), (1, b"\xa0"), (1, b"\x01")),
        "nothing": b"",
    }


SEEDS = {
    "fuzz_package": package_seeds,
    "fuzz_product_key": product_key_seeds,
    "fuzz_edid": edid_seeds,
    "fuzz_sandbox_image": sandbox_seeds,
    "fuzz_records": records_seeds,
    "fuzz_strings": strings_seeds,
}


def main():
    check = sys.argv[1:] == ["--check"]
    if sys.argv[1:] and not check:
        sys.exit(__doc__)
    stale = 0
    for target, seeds in SEEDS.items():
        folder = CORPUS / target
        folder.mkdir(parents=True, exist_ok=True)
        for name, content in seeds().items():
            seed = folder / name
            if not check:
                seed.write_bytes(content)
            elif not seed.exists() or seed.read_bytes() != content:
                print(f"make_corpus.py: {seed.relative_to(CORPUS.parent)} is not what the script makes")
                stale += 1
    sys.exit(1 if stale else 0)


if __name__ == "__main__":
    main()
