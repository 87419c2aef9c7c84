"""capso-cli update: updates and repairs, which devices it takes, and what it comes to."""

import json
import pathlib
import zipfile

from support import NEW_VERSION, PRODUCTS, RETRY, STALL, TIMEOUT, CliTest, table, transcript, with_tables

INCOMPATIBLE = "Selected device and firmware incompatible"


@with_tables
class Update(CliTest):
    @table(*[(product, product) for product in PRODUCTS])
    def test_running(self, product):
        result = self.run_cli(product, "update", self.package(product))
        self.assert_code(result, 0)
        self.assertEqual(result.out, "SIM00001: Update Completed\n")
        self.assert_updated(result, product, product)
        self.assertEqual(result.state(product)["version"], NEW_VERSION)

    @table(*[(f"{mode}_{product}", mode, product) for mode in ("soft", "hard") for product in PRODUCTS])
    def test_repair(self, mode, product):
        result = self.run_cli(f"{mode}-{product}", "update", self.package(product), "SIM00001")
        self.assert_code(result, 0)
        self.assertEqual(result.out, "SIM00001: Update Completed\n")
        self.assert_updated(result, product, product)

    def test_repair_that_fails_is_not_done(self):
        scene = "device g\n product velk3\n mode soft\nfault g FPGA_WRITE nth 2 stall"
        result = self.run_cli(scene, "update", self.package("velk3"), "SIM00001", "--json")
        self.assert_code(result, 1)
        progress = [row for row in result.objects if row.get("event") == "progress"]
        self.assertNotEqual(progress, [])
        self.assertLess(max(row["percent"] for row in progress), 100)

    def test_oldest_packages(self):
        result = self.run_cli("velk3", "update", self.package("legacy"))
        self.assert_code(result, 0)
        for name in ("fx3", "fpga", "edid"):
            self.assertEqual(result.memory("velk3", name), self.image("legacy", name))

    def test_edid_alone(self):
        result = self.run_cli("velk3", "update", self.package("edid-only"))
        self.assert_code(result, 0)
        self.assertEqual(result.memory("velk3", "edid"), self.image("edid-only", "edid"))
        self.assertEqual(result.memory("velk3", "fx3"), b"")

    def test_edid_alone_repairs_nothing(self):
        unasked = self.run_cli("soft-velk3", "update", self.package("edid-only"))
        self.assert_code(unasked, 3)
        named = self.run_cli("soft-velk3", "update", self.package("edid-only"), "SIM00001")
        self.assert_code(named, 1)
        self.assertIn("SIM00001: the package holds an EDID only and repairs no device", named.err)
        self.assert_nothing_written(named)

    def test_progress_is_a_line_for_ten_percent(self):
        result = self.run_cli("velk3", "update", self.package("velk3"))
        percents = [int(line.split(" ")[1]) for line in result.err.splitlines()]
        self.assertEqual(percents, sorted(percents))
        tens = [percent // 10 for percent in percents]
        self.assertEqual(len(tens), len(set(tens)), result.err)
        self.assertEqual((tens[0], percents[-1]), (0, 100))
        for step in ("microcode", "bitstream", "EDID"):
            self.assertIn(step, result.err)
        self.assertNotIn("\033", result.err)

    def test_json_is_an_object_for_each_step_and_the_result(self):
        result = self.run_cli("velk3", "update", self.package("velk3"), "--json")
        *progress, last = result.objects
        self.assertGreater(len(progress), 5)
        for entry in progress:
            self.assertEqual((entry["event"], entry["device"]["serial"]), ("progress", "SIM00001"))
        self.assertEqual((progress[-1]["percent"], progress[-1]["step"]), (100, "done"))
        self.assertEqual((last["event"], last["status"]), ("result", 0))
        (row,) = last["devices"]
        self.assertEqual((row["result"], row["status"], row["device"]["id"]), ("updated", 0, "e5c1:3601"))


@with_tables
class Failure(CliTest):
    """The texts are those of the dialog, to the letter."""

    @table(
        ("microcode", "velk3", "FX3_WRITE nth 2 stall", f"Error: failed to write microcode block: {STALL}"),
        ("microcode_start", "velk3", "FX3_START stall", f"Error: failed to start microcode reflashing: {STALL}"),
        ("bitstream", "velk3", "FPGA_WRITE nth 2 stall", "Error: failed to write FPGA block:  LIBUSB_ERROR_PIPE"),
        ("edid", "velk3", "EDID_WRITE stall", "Can't send EDID data to the device (err: -9)"),
        ("unplugged", "velk3", "FPGA_WRITE nth 2 disconnect",
         "Error: failed to write FPGA block:  LIBUSB_ERROR_NO_DEVICE"),
        ("silent", "velk3", "FX3_WRITE silence", f"Error: failed to write microcode block: {TIMEOUT}"),
        ("poll", "velk3", "FPGA_STATUS stall", "Error: failed to connect to FPGA: LIBUSB_ERROR_PIPE"),
        ("ram", "soft-velk3", "MEMORY_ACCESS out nth 2 stall", "Error: failed to write microcode: LIBUSB_ERROR_PIPE"),
        ("ram_unplugged", "soft-velk3", "MEMORY_ACCESS out nth 2 disconnect",
         "Error: failed to write microcode: LIBUSB_ERROR_NO_DEVICE"),
        ("ram_unplugged_hard", "hard-velk3_4k", "MEMORY_ACCESS in disconnect",
         "Error: failed to write microcode: LIBUSB_ERROR_NO_DEVICE"),
        ("ram_start", "hard-velk3", "MEMORY_START stall", "Error: failed to start microcode: LIBUSB_ERROR_PIPE"),
        ("repaired_then", "soft-velk3", "FX3_WRITE stall", f"Error: failed to write microcode block: {STALL}"),
    )
    def test_device(self, scene, fault, text):
        product = scene.split("-")[-1]
        mode = scene.split("-")[0] if "-" in scene else "normal"
        scene = f"device {product}\n product {product}\n mode {mode}\nfault {product} {fault}"
        result = self.run_cli(scene, "update", self.package(product), "SIM00001")
        self.assert_code(result, 1)
        self.assertEqual(result.out, "")
        self.assertIn(f"capso-cli: SIM00001: Update Error: {text}\n{RETRY}\n", result.err)

    def test_sandbox_that_does_not_come_back(self):
        result = self.run_cli("lost-sandbox", "update", self.package("velk3_4k"))
        self.assert_code(result, 1)
        self.assertIn("Update Error: Error: Failed to install driver\n", result.err)

    def test_sandbox_that_may_not_be_opened(self):
        for more in ([], ["--json"]):
            result = self.run_cli("denied-sandbox", "update", self.package("velk3_4k"), *more)
            self.assert_code(result, 4)
            self.assertIn("Update Error: Error: Failed to install driver\n", result.err)
            self.assertIn("its repair firmware runs, but cannot be used: [e5c1:363f] at 1-1: no right to open it; "
                          "'capso-cli doctor' tells what mends it\n", result.err)
        (row,) = result.objects[-1]["devices"]
        self.assertEqual((row["status"], row["error"], row["reason"]),
                         (4, "Error: Failed to install driver", "no right to open it"))

    def test_a_failure_beside_a_denied_sandbox_is_ones_own(self):
        scene = "device g\n product velk3\n mode soft\nfault g FX3_WRITE stall\n"
        scene += "device other\n product velk3\n mode sandbox\n access denied"
        self.assert_code(self.run_cli(scene, "update", self.package("velk3"), "SIM00001"), 1)

    def test_ram_that_reads_back_wrong(self):
        result = self.run_cli("bad-ram", "update", self.package("velk3"), "SIM00001")
        self.assert_code(result, 1)
        self.assertIn("Update Error: Fail to verify image\n", result.err)

    def test_json_tells_the_same(self):
        scene = "device velk3\n product velk3\nfault velk3 FX3_START stall"
        result = self.run_cli(scene, "update", self.package("velk3"), "--json")
        (row,) = result.objects[-1]["devices"]
        self.assertEqual((row["result"], row["status"]), ("failed", 1))
        self.assertEqual(row["error"], f"Error: failed to start microcode reflashing: {STALL}")

    @table(
        ("missing", None, "Cannot open firmware package: "),
        ("no_archive", b"MZ this is no archive", "Cannot open firmware package: "),
        ("product", {"product.info": "toaster\n"}, "Unsupported product: 'toaster'"),
        ("contents", {"product.info": "velk3\n", "velk3.bin": "x"},
         "Invalid firmware package. File(s) not found: velk3.img, velk3-sandbox.img"),
    )
    def test_package(self, content, text):
        path = self.folder / "a.fw"
        if isinstance(content, bytes):
            path.write_bytes(content)
        elif content:
            with zipfile.ZipFile(path, "w") as archive:
                for name, data in content.items():
                    archive.writestr(name, data)
        result = self.run_cli("velk3", "update", str(path))
        self.assert_code(result, 1)
        self.assertTrue(result.err.startswith(f"capso-cli: {text}"), result.err)
        self.assert_nothing_written(result)

    @table(("encrypted", 6, 0x01), ("unknown_compression", 8, 0x62))
    def test_a_sandbox_that_cannot_be_opened_repairs_nothing(self, offset, value):
        path = self.spoilt("velk3-sandbox.img", offset, value)
        for scene in ("soft-velk3", "hard-velk3"):
            result = self.run_cli(scene, "update", path, "SIM00001")
            self.assert_code(result, 1)
            self.assertEqual(result.out, "")
            self.assertTrue(result.err.startswith("capso-cli: the sandbox cannot be opened: "), result.err)
            self.assertEqual([e for e in transcript(result.folder) if e.get("name", "").startswith("MEMORY")], [])
            self.assert_nothing_written(result)
        running = self.run_cli("velk3", "update", path)
        self.assert_code(running, 0)
        self.assert_updated(running, "velk3", "velk3")

    def spoilt(self, entry, offset, value):
        """The sample package with one byte of both headers of this entry changed; `offset` is the local header's."""
        content = bytearray(pathlib.Path(self.package("velk3")).read_bytes())
        with zipfile.ZipFile(self.package("velk3")) as archive:
            local = archive.getinfo(entry).header_offset
        name = content.rindex(entry.encode())
        content[local + offset] = content[name - 46 + offset + 2] = value
        path = self.folder / "spoilt.fw"
        path.write_bytes(content)
        return str(path)

    def test_a_named_device_of_another_product(self):
        result = self.run_cli("several", "update", self.package("velk3"), "SIM00002")
        self.assert_code(result, 1)
        self.assertIn(f"SIM00002: Update Error: {INCOMPATIBLE}\n", result.err)
        self.assert_nothing_written(result)


def device(name, product="velk3", **words):
    lines = "".join(f"\n {word.replace('_', '-')} {value}" for word, value in words.items())
    return f"device {name}\n product {product}{lines}"


@with_tables
class Selection(CliTest):
    """Which devices are taken. What is not certain is not written to."""

    def refused(self, scene, *arguments, said, code=3):
        result = self.run_cli(scene, "update", *arguments)
        self.assert_code(result, code)
        self.assert_nothing_written(result)
        self.assertIn(said, result.err)
        return result

    def test_the_one_that_fits_among_others(self):
        result = self.run_cli("several", "update", self.package("sorn3"))
        self.assert_code(result, 0)
        self.assertEqual(self.written_devices(result), {"sorn3"})

    def test_two_that_fit_are_one_too_many(self):
        scene = device("a") + "\n" + device("b")
        result = self.refused(scene, self.package("velk3"), said="several devices fit; name one")
        for serial in ("SIM00001", "SIM00002"):
            self.assertIn(serial, result.err)

    def test_candidates_in_json(self):
        scene = device("a") + "\n" + device("b")
        result = self.refused(scene, self.package("velk3"), "--json", said="several devices fit")
        self.assertEqual({row["serial"] for row in result.objects[0]["candidates"]}, {"SIM00001", "SIM00002"})

    def test_none_that_fits(self):
        self.refused("velk3", self.package("sorn3"), said="no device fits")
        self.refused("velk3", self.package("sorn3"), "--all", said="no device fits")
        self.refused("none", self.package("sorn3"), "--all", said="no device fits")

    def test_an_unknown_name(self):
        self.refused("velk3", self.package("velk3"), "NOBODY", said="there is no device 'NOBODY'")
        self.refused("velk3", self.package("velk3"), "1-7", said="there is no device '1-7'")

    def test_one_unknown_name_among_known_ones(self):
        self.refused("several", self.package("velk3"), "A1B2C3D4", "NOBODY", said="there is no device 'NOBODY'")

    def test_a_serial_number_that_two_have(self):
        scene = device("a", serial='"TWIN"') + "\n" + device("b", serial='"TWIN"')
        result = self.refused(scene, self.package("velk3"), "TWIN", said="'TWIN' names several devices")
        self.assertIn("at 1-1", result.err)
        self.assertIn("at 1-2", result.err)
        by_port = self.run_cli(scene, "update", self.package("velk3"), "1-2")
        self.assert_code(by_port, 0)
        self.assertEqual(self.written_devices(by_port), {"b"})

    @table(("twins", '"TWIN"'), ("without", "none"))
    def test_a_serial_number_that_tells_none_apart_names_none(self, serial):
        scene = device("a", serial=serial) + "\n" + device("b", serial=serial) + "\nfault b FX3_START stall"
        result = self.run_cli(scene, "update", self.package("velk3"), "--all")
        self.assert_code(result, 5)
        self.assertEqual(result.out, "1-1: Update Completed\n")
        self.assertTrue(result.err.endswith("1 of 2 devices failed: 1-2\n"), result.err)

    def test_two_names_of_one_device_are_one_update(self):
        result = self.run_cli("velk3", "update", self.package("velk3"), "SIM00001", "1-1")
        self.assert_code(result, 0)
        self.assertEqual(result.out, "SIM00001: Update Completed\n")

    @table(
        ("hard", device("g", mode="hard")),
        ("soft_of_sorn3", device("g", product="sorn3", mode="soft")),
        ("soft_of_velk3_4k", device("g", product="velk3_4k", mode="soft")),
        ("sandbox_of_sorn3", device("g", product="sorn3", mode="sandbox")),
    )
    def test_repair_of_nobody_knows_what_is_not_unasked(self, scene):
        for arguments in ([], ["--all"]):
            self.refused(scene, self.package("velk3"), *arguments, said="no device fits")

    def test_soft_repair_of_the_same_product_is_unasked(self):
        result = self.run_cli("soft-velk3", "update", self.package("velk3"), "--all")
        self.assert_code(result, 0)
        self.assert_updated(result, "velk3", "velk3")

    def test_a_named_device_in_soft_repair_takes_any_package_of_its_vendor(self):
        # It may have been given the wrong firmware before: this sorn3 is a velk3 that shows sorn3's repair id.
        scene = "device g\n product velk3\n id e5c1:3621\n mode soft\n return after 500 as e5c1:360f"
        result = self.run_cli(scene, "update", self.package("velk3"), "SIM00001")
        self.assert_code(result, 0)
        self.assert_updated(result, "g", "velk3")

    def test_all_that_fit_one_after_another(self):
        scene = "\n".join([device("a"), device("b", product="sorn3"), device("c"), device("d", mode="hard")])
        result = self.run_cli(scene, "update", self.package("velk3"), "--all")
        self.assert_code(result, 0)
        self.assertEqual(self.written_devices(result), {"a", "c"})
        self.assertEqual(set(result.lines), {"SIM00001: Update Completed", "SIM00003: Update Completed"})
        # The one has all of its completions before the other is begun.
        writes = [e["device"] for e in transcript(result.folder) if e.get("requestType") == 0x40]
        self.assertEqual(len([i for i in range(1, len(writes)) if writes[i] != writes[i - 1]]), 1)

    def test_unless_version(self):
        scene = device("a", version='"2.0.0"') + "\n" + device("b")
        result = self.run_cli(scene, "update", self.package("velk3"), "--all", "--unless-version", "2.0.0")
        self.assert_code(result, 0)
        self.assertEqual(self.written_devices(result), {"b"})
        self.assertIn("SIM00001: left out, it has version 2.0.0", result.lines)

    def test_unless_version_leaves_nothing(self):
        scene = device("a", version='"2.0.0"')
        for arguments in (["--all"], [], ["SIM00001"]):
            result = self.run_cli(scene, "update", self.package("velk3"), "--unless-version", "2.0.0", *arguments)
            self.assert_code(result, 0)
            self.assert_nothing_written(result)

    def test_some_of_several_fail(self):
        scene = "\n".join([device("a"), device("b"), "fault a FX3_START stall"])
        result = self.run_cli(scene, "update", self.package("velk3"), "SIM00001", "SIM00002")
        self.assert_code(result, 5)
        self.assertEqual(result.out, "SIM00002: Update Completed\n")
        self.assert_updated(result, "b", "velk3")
        self.assertTrue(result.err.endswith("1 of 2 devices failed: SIM00001\n"), result.err)

    def test_all_of_several_fail(self):
        scene = "\n".join([device("a"), device("b"), "fault a FX3_START stall", "fault b FX3_START stall"])
        result = self.run_cli(scene, "update", self.package("velk3"), "--all")
        self.assert_code(result, 1)

    def test_three_of_twenty_fail(self):
        scene = "device g\n product velk3\n count 20\n busy-polls 0"
        for failing in (4, 11, 20):
            scene += f"\nfault g{failing} FPGA_WRITE nth 2 stall"
        result = self.run_cli(scene, "update", self.package("velk3"), "--all", "--json")
        self.assert_code(result, 5)
        rows = result.objects[-1]["devices"]
        self.assertEqual(len(rows), 20)
        failed = {row["device"]["serial"] for row in rows if row["result"] == "failed"}
        self.assertEqual(failed, {"SIM00004", "SIM00011", "SIM00020"})
        self.assertIn("3 of 20 devices failed: ", result.err)
        for number in range(1, 21):
            if number not in (4, 11, 20):
                self.assert_updated(result, f"g{number}", "velk3")
        self.assertEqual(json.dumps(rows).count('"updated"'), 17)
