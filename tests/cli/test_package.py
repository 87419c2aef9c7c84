"""capso-cli package: what a package is, without any device."""

import json
import struct
import zipfile
import zlib

from support import CliTest, anywhere, table, with_tables


def boot_image(sections, entry, wrong_sum=False):
    image = b"CY\x1c\xb0"
    total = 0
    for address, data in sections:
        image += struct.pack("<II", len(data) // 4, address) + data
        total += sum(struct.unpack(f"<{len(data) // 4}I", data))
    total += 1 if wrong_sum else 0
    return image + struct.pack("<III", 0, entry, total & 0xFFFFFFFF)


GOOD_SANDBOX = boot_image([(0x40003000, bytes(range(8))), (0x100, bytes(4))], 0x40003000)
EDID_LINES = ["", "", ""] + ["| " + " ".join(["00"] * 16)] * 8
GOOD_EDID = "\n".join(EDID_LINES).encode()
BAD_EDID = "\n".join(EDID_LINES[:-1] + ["| 01" + " 00" * 15]).encode()


def long_edid(blocks):
    return "\n".join(["", "", ""] + ["| " + " ".join(["00"] * 16)] * 8 * blocks).encode()


def velk3(**changes):
    entries = {
        "product.info": b"velk3\n", "velk3.bin": b"bits", "velk3.img": b"code", "velk3-sandbox.img": GOOD_SANDBOX,
        "edid_velk3_uvc.edid": GOOD_EDID,
    }
    names = {
        "key": "product.info", "bits": "velk3.bin", "code": "velk3.img", "sandbox": "velk3-sandbox.img",
        "edid": "edid_velk3_uvc.edid",
    }
    for role, data in changes.items():
        if data is None:
            del entries[names[role]]
        else:
            entries[names[role]] = data
    return entries


@with_tables
class Package(CliTest):
    def write(self, entries, name="a.fw"):
        path = self.folder / name
        with zipfile.ZipFile(path, "w") as archive:
            for entry, data in entries.items():
                archive.writestr(entry, data)
        return str(path)

    def inspect(self, *files, as_json=True):
        ran = self.alone("package", *files, *(["--json"] if as_json else []))
        ran.code, ran.out, ran.err = ran.returncode, ran.stdout, ran.stderr
        return ran

    @anywhere
    @table(*[(name, name) for name in ("velk3", "sorn3", "velk3_4k", "legacy", "edid-only")])
    def test_samples_are_good(self, name):
        result = self.inspect(self.package(name), as_json=False)
        self.assertEqual((result.code, result.err), (0, ""), result.out)
        self.assertTrue(result.out.startswith(f"{self.package(name)}: product "))

    @anywhere
    def test_everything_is_told(self):
        path = self.write({**velk3(), "notes.txt": b"hello"})
        result = self.inspect(path)
        self.assertEqual(result.code, 0, result.err)
        (package,) = json.loads(result.out)["packages"]
        self.assertEqual(package["product"], "velk3")
        self.assertEqual(package["fits"], ["5555:3601", "e5c1:3601"])
        self.assertTrue(package["good"])
        entries = {entry["name"]: entry for entry in package["entries"]}
        self.assertEqual(entries["velk3.bin"], {
            "name": "velk3.bin", "role": "bitstream", "size": 4, "crc": f"0x{zlib.crc32(b'bits'):08x}"})
        sandbox = entries["velk3-sandbox.img"]
        self.assertEqual(sandbox["entryAddress"], "0x40003000")
        self.assertEqual(sandbox["sections"], [
            {"address": "0x40003000", "length": 8}, {"address": "0x00000100", "length": 4}])
        self.assertEqual(entries["edid_velk3_uvc.edid"]["blocks"], 1)
        self.assertEqual(entries["notes.txt"]["role"], "not read")

    @anywhere
    def test_the_same_for_people(self):
        path = self.write(velk3())
        lines = self.inspect(path, as_json=False).out.splitlines()
        self.assertEqual(lines[0], f"{path}: product velk3")
        self.assertTrue(lines[1].startswith("  fits 5555:3601, e5c1:3601;"))
        crc = f"0x{zlib.crc32(GOOD_SANDBOX):08x}"
        self.assertIn(
            f"  sandbox: velk3-sandbox.img, {len(GOOD_SANDBOX)} bytes, CRC {crc}; boot image of 2 sections, "
            "entry 0x40003000, sum right; 8 bytes at 0x40003000; 4 bytes at 0x00000100", lines)

    @anywhere
    @table(
        ("whole", GOOD_SANDBOX, None),
        ("no_boot_image", b"code", None),
        ("wrong_sum", boot_image([(0, bytes(4))], 0, True), "FX3 checksum error"),
        ("cut", GOOD_SANDBOX[:-4], "FX3 checksum error"),
    )
    def test_microcode_that_begins_like_a_boot_image(self, code, remark):
        """A device takes what it is given, so it is no reason to refuse the package, but worth a word."""
        path = self.write(velk3(code=code))
        (package,) = json.loads(self.inspect(path).out)["packages"]
        self.assertTrue(package["good"])
        (entry,) = [entry for entry in package["entries"] if entry["role"] == "microcode"]
        self.assertEqual(entry.get("remark"), remark)
        self.assertEqual("entryAddress" in entry, code == GOOD_SANDBOX)
        text = self.inspect(path, as_json=False)
        self.assertEqual((text.code, text.err), (0, ""))
        said = "; begins like a boot image: FX3 checksum error (an update writes it all the same, and the device decides)"
        self.assertEqual(said in text.out, remark is not None, text.out)

    @anywhere
    def test_an_edid_alone_repairs_nothing(self):
        for name, repairs in (("edid-only", False), ("velk3", True)):
            text = self.inspect(self.package(name), as_json=False).out
            self.assertEqual("; holds an EDID only and repairs no device\n" in text, not repairs, text)
            self.assertEqual("any in hard repair" in text, repairs, text)
            (package,) = json.loads(self.inspect(self.package(name)).out)["packages"]
            self.assertEqual(package["repairs"], repairs)
        (broken,) = json.loads(self.inspect(self.write(velk3(sandbox=b"MZ"))).out)["packages"]
        self.assertFalse(broken["repairs"])

    @anywhere
    @table(
        ("no_sandbox", velk3(sandbox=None), "Invalid firmware package. File(s) not found: velk3-sandbox.img"),
        ("product", velk3(key=b"toaster\n"), "Unsupported product: 'toaster'"),
        ("foreign_sandbox", velk3(sandbox=b"MZ" + GOOD_SANDBOX[2:]), "Error: failed to verify microcode signature"),
        ("sum", velk3(sandbox=boot_image([(0, bytes(4))], 0, True)), "FX3 checksum error"),
        ("cut_sandbox", velk3(sandbox=GOOD_SANDBOX[:-2]), "FX3 checksum error"),
        ("edid_format", velk3(edid=b"\n\n\n| 00\n"), "EDID data has incorrect format"),
        ("edid_sum", velk3(edid=BAD_EDID), "EDID data has incorrect checksum"),
        ("odd_microcode", velk3(code=b"12345"), "Error: failed to read archieve %d"),
        ("empty_bitstream", velk3(bits=b""), "the bitstream is empty, or not as long as is stated"),
    )
    def test_what_it_would_be_refused_for(self, entries, text):
        result = self.inspect(self.write(entries), as_json=False)
        self.assertEqual(result.code, 1)
        self.assertTrue(result.err.startswith("capso-cli: "), result.err)
        self.assertTrue(result.err.endswith(f": {text}\n"), result.err)

    @anywhere
    @table(
        ("33_blocks", 33, "the EDID has 4224 bytes, and one request takes 4096: "
                          "Can't send EDID data to the device (err: -2)"),
        ("512_blocks", 512, "the EDID has 65536 bytes, of which a device would be sent 0"),
        ("513_blocks", 513, "the EDID has 65664 bytes, of which a device would be sent 128"),
    )
    def test_edid_that_no_request_takes(self, blocks, text):
        path = self.write(velk3(edid=long_edid(blocks)))
        result = self.inspect(path, as_json=False)
        self.assertEqual(result.code, 1)
        self.assertEqual(result.err, f"capso-cli: {path}: edid_velk3_uvc.edid: {text}\n")

    def test_the_longest_edid_is_good_and_the_next_one_fails_as_was_told(self):
        self.assertEqual(self.inspect(self.write(velk3(edid=long_edid(32)))).code, 0)
        path = self.write(velk3(bits=None, code=None, sandbox=None, edid=long_edid(33)))
        result = self.run_cli("velk3", "update", path)
        self.assert_code(result, 1)
        self.assertIn("Update Error: Can't send EDID data to the device (err: -2)\n", result.err)

    @anywhere
    def test_damaged_bitstream(self):
        path = self.folder / "a.fw"
        self.write(velk3(bits=b"0123456789abcdef"))
        content = path.read_bytes()
        path.write_bytes(content.replace(b"0123456789abcdef", b"0123456789abcdeX", 1))
        result = self.inspect(str(path), as_json=False)
        self.assertEqual(result.code, 1)
        self.assertIn("velk3.bin: Error: failed to read FPGA image: ", result.err)

    @anywhere
    def test_no_package(self):
        path = self.folder / "a.fw"
        path.write_bytes(b"MZ")
        result = self.inspect(str(path), as_json=False)
        self.assertEqual(result.code, 1)
        self.assertIn(f"{path}: Cannot open firmware package: ", result.err)
        self.assertEqual(result.out, "", "what is no archive is no product's")

    @anywhere
    def test_letters_of_everywhere_in_its_path(self):
        folder = self.folder / "прошивка 更新"
        folder.mkdir()
        path = self.write(velk3(), f"{folder.name}/велк é 更新.fw")
        text = self.inspect(path, as_json=False).out
        self.assertEqual(text.splitlines()[0], f"{path}: product velk3")
        (package,) = json.loads(self.inspect(path).out)["packages"]
        self.assertEqual((package["file"], package["good"]), (path, True))

    @anywhere
    def test_several(self):
        good, bad = self.write(velk3(), "good.fw"), self.write(velk3(sandbox=None), "bad.fw")
        self.assertEqual(self.inspect(good, good).code, 0)
        self.assertEqual(self.inspect(good, bad).code, 5)
        self.assertEqual(self.inspect(bad, bad).code, 1)
