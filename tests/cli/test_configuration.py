"""capso-cli settings, modes and signal."""

import json
import signal

from support import ALL_SETTINGS, NO_DEVICE, PRODUCTS, SETTINGS, STALL, CliTest, table, transcript, with_tables


def shown(flags):
    return "".join(f"{name}={'on' if flags & bit else 'off'}\n" for name, bit in SETTINGS.items())


def sent(result, request):
    """The data of the requests of this name that went to the device."""
    return [
        (entry["index"], entry["data"])
        for entry in transcript(result.folder)
        if entry.get("name") == request and entry["requestType"] == 0x40
    ]


@with_tables
class Settings(CliTest):
    @table(*[(f"{product}_{flags:02x}", product, flags) for product in PRODUCTS for flags in (0x00, 0x02, 0x17, 0xFF)])
    def test_shown(self, product, flags):
        result = self.run_cli(f"device g\n product {product}\n flags {flags}", "settings", "SIM00001")
        self.assert_code(result, 0)
        self.assertEqual(result.out, shown(flags))
        self.assert_nothing_written(result)

    @table(
        ("one_on", 0x00, ["performance=on"], 0x04),
        ("one_off", 0x17, ["aspect-ratio=off"], 0x15),
        ("others_as_they_were", 0x12, ["input-resolution=on"], 0x13),
        ("unused_bits_are_cleared", 0xFF, ["performance=off"], ALL_SETTINGS & ~0x04),
        ("unchanged_is_written_all_the_same", 0x10, ["audio-selector=on"], 0x10),
        ("all", 0x00, [f"{name}=on" for name in SETTINGS], ALL_SETTINGS),
        ("the_last_word_holds", 0x00, ["performance=on", "performance=off"], 0x00),
    )
    def test_changed(self, before, words, after):
        result = self.run_cli(f"device g\n product velk3\n flags {before}", "settings", "SIM00001", *words)
        self.assert_code(result, 0)
        self.assertEqual(sent(result, "SET_DEVICE_FLAGS"), [(0, f"{after:02x}")])
        self.assertEqual(result.out, shown(after))
        self.assertEqual(result.state("g")["flags"], after)

    def test_device_may_be_left_out(self):
        result = self.run_cli("device g\n product velk3", "settings", "performance=on")
        self.assert_code(result, 0)
        self.assertEqual(result.state("g")["flags"], 0x04)
        self.assert_code(self.run_cli("several", "settings"), 3)
        self.assert_code(self.run_cli("soft-velk3", "settings"), 3)

    def test_a_device_without_serial_number_is_called_by_its_port(self):
        scene = "device g\n product velk3\n serial none\nfault g GET_DEVICE_FLAGS stall"
        result = self.run_cli(scene, "settings")
        self.assert_code(result, 1)
        self.assertTrue(result.err.startswith("capso-cli: 1-1: "), result.err)

    def test_failed_read_writes_nothing(self):
        scene = "device g\n product velk3\nfault g GET_DEVICE_FLAGS stall"
        result = self.run_cli(scene, "settings", "SIM00001", "performance=on")
        self.assert_code(result, 1)
        self.assert_nothing_written(result)
        text = f"Error retreiving config device data: req=226, status: {STALL}"
        self.assertEqual(result.err, f"capso-cli: SIM00001: {text}\n")
        self.assertEqual(result.out, "")

    @table(("shown", []), ("changed", ["performance=on"]))
    def test_no_answer_is_no_settings(self, words):
        """A device that answers with nothing at all has not said that all is off."""
        scene = "device g\n product velk3\n flags 0x17\nfault g GET_DEVICE_FLAGS every short 0"
        result = self.run_cli(scene, "settings", "SIM00001", *words)
        self.assert_code(result, 1)
        self.assert_nothing_written(result)
        self.assertEqual(result.err, "capso-cli: SIM00001: the device's answer to request 226 is too short\n")
        self.assertEqual(result.out, "")

    @table(("a5", 0xA5), ("5a", 0x5A))
    def test_every_answer_is_one(self, flags):
        result = self.run_cli(f"device g\n product velk3\n flags {flags}", "settings", "SIM00001", "performance=on")
        self.assert_code(result, 0)
        self.assertEqual(result.state("g")["flags"], flags & ALL_SETTINGS | 0x04)

    def test_failed_write(self):
        scene = "device g\n product velk3\nfault g SET_DEVICE_FLAGS stall"
        result = self.run_cli(scene, "settings", "SIM00001", "performance=on")
        self.assert_code(result, 1)
        self.assertEqual(result.err, f"capso-cli: SIM00001: Error setting device flags: {STALL}\n")
        self.assertEqual(result.out, "")

    def test_device_in_repair_has_none(self):
        result = self.run_cli("soft-velk3", "settings", "SIM00001")
        self.assert_code(result, 1)
        self.assertIn("req=226", result.err)

    def test_json(self):
        words = ["settings", "SIM00001", "performance=on", "--json"]
        (object_,) = self.run_cli("device g\n product velk3", *words).objects
        self.assertEqual(object_["settings"], {name: name == "performance" for name in SETTINGS})
        self.assertEqual(object_["device"]["serial"], "SIM00001")


MODES = "\n user-mode 0 1280x720 on\n user-mode 1 1920x1080 off\n user-mode 2 640x480 on"


@with_tables
class Modes(CliTest):
    @table(*[(product, product) for product in PRODUCTS])
    def test_shown(self, product):
        result = self.run_cli(f"device g\n product {product}{MODES}", "modes", "SIM00001")
        self.assert_code(result, 0)
        self.assertEqual(result.out, "1=1280x720 on\n2=1920x1080 off\n3=640x480 on\n")
        self.assert_nothing_written(result)

    @table(
        ("size_keeps_on", ["1=800x600"], [(0, "200358020" + "0")], "1=800x600 on"),
        ("size_keeps_off", ["2=800x600"], [(1, "200358020" + "1")], "2=800x600 off"),
        ("on_keeps_size", ["2=on"], [(1, "8007380400")], "2=1920x1080 on"),
        ("off_keeps_size", ["3=off"], [(2, "8002e00101")], "3=640x480 off"),
        ("both", ["3=65535x1", "3=off"], [(2, "ffff010001")], "3=65535x1 off"),
        ("two_of_three", ["3=off", "1=off"], [(0, "0005d00201"), (2, "8002e00101")], "2=1920x1080 off"),
    )
    def test_changed(self, words, records, line):
        result = self.run_cli(f"device g\n product velk3{MODES}", "modes", "SIM00001", *words)
        self.assert_code(result, 0)
        self.assertEqual(sent(result, "USER_MODE"), records)
        self.assertIn(line, result.lines)

    @table(("first", 0), ("last", 2))
    def test_failed_read_writes_nothing(self, index):
        scene = f"device g\n product velk3{MODES}\nfault g USER_MODE in index {index} stall"
        result = self.run_cli(scene, "modes", "SIM00001", "1=off")
        self.assert_code(result, 1)
        self.assert_nothing_written(result)
        self.assertIn(f"Error retreiving config device data: req=179, status: {STALL}", result.err)

    @table(("nothing", "every short 0", []), ("a_part", "index 2 every short 4", ["1=off"]))
    def test_an_answer_that_is_too_short(self, fault, words):
        scene = f"device g\n product velk3{MODES}\nfault g USER_MODE in {fault}"
        result = self.run_cli(scene, "modes", "SIM00001", *words)
        self.assert_code(result, 1)
        self.assert_nothing_written(result)
        self.assertEqual(result.err, "capso-cli: SIM00001: the device's answer to request 179 is too short\n")
        self.assertEqual(result.out, "")

    def test_what_was_written_before_a_failure_is_said(self):
        scene = f"device g\n product velk3{MODES}\nfault g USER_MODE out index 2 stall"
        result = self.run_cli(scene, "modes", "SIM00001", "1=off", "2=on", "3=off", "--json")
        self.assert_code(result, 1)
        text = f"SIM00001: Error setting device flags: {STALL} (modes written before: 1, 2)"
        self.assertEqual(result.err, f"capso-cli: {text}\n")
        self.assertEqual(result.objects, [{"error": text, "status": 1, "written": [1, 2]}])
        self.assertEqual([mode["disabled"] for mode in result.state("g")["userModes"]], [1, 0, 0])

    def test_failed_write(self):
        scene = f"device g\n product velk3{MODES}\nfault g USER_MODE out stall"
        result = self.run_cli(scene, "modes", "SIM00001", "1=off", "2=on")
        self.assert_code(result, 1)
        self.assertEqual(len(sent(result, "USER_MODE")), 1)
        self.assertIn(f"Error setting device flags: {STALL}", result.err)

    def test_json(self):
        (object_,) = self.run_cli(f"device g\n product velk3{MODES}", "modes", "--json").objects
        self.assertEqual(object_["modes"][1], {"mode": 2, "width": 1920, "height": 1080, "on": False})


@with_tables
class Unplugged(CliTest):
    READ = "Error retreiving config device data: req={}, status: " + NO_DEVICE
    WRITE = "Error setting device flags: " + NO_DEVICE

    @table(
        ("settings_read", ["settings"], "GET_DEVICE_FLAGS", READ.format(226)),
        ("settings_written", ["settings", "performance=on"], "SET_DEVICE_FLAGS", WRITE),
        ("modes_read", ["modes"], "USER_MODE in index 1", READ.format(179)),
        ("modes_written", ["modes", "1=off", "2=off"], "USER_MODE out", WRITE),
        ("signal", ["signal"], "INPUT_STATUS", f"request not supported ({READ.format(178)})"),
    )
    def test_in_the_middle(self, command, request, text):
        result = self.run_cli(f"device g\n product velk3\nfault g {request} disconnect", *command)
        self.assert_code(result, 1)
        self.assertEqual((result.out, result.err), ("", f"capso-cli: SIM00001: {text}\n"))
        self.assertFalse(result.state("g")["plugged"])

    @table(*[(command, command) for command in ("settings", "modes", "signal")])
    def test_before(self, command):
        for words in ([command, "SIM00001"], [command, "1-1"]):
            result = self.run_cli("device other\n product other\n id 1234:5678", *words)
            self.assert_code(result, 3)
            self.assertEqual((result.out, result.err), ("", f"capso-cli: there is no device '{words[1]}'\n"))


@with_tables
class Signal(CliTest):
    @table(
        ("none", "none", "no signal"),
        ("progressive", '1920x1080p 60000 "HDMI" "RGB"', "HDMI 1920x1080p@60, RGB"),
        ("interlaced", '1920x1080i 29970 "SDI" "YUV"', "SDI 1920x1080i@30, YUV"),
        ("unnamed", '640x480p 59940 "" ""', "unknown 640x480p@60, unknown"),
    )
    def test_once(self, signal_words, text):
        result = self.run_cli(f"device g\n product velk3\n input {signal_words}", "signal", "SIM00001")
        self.assert_code(result, 0)
        self.assertEqual((result.out, result.err), (text + "\n", ""))

    def test_what_looks_like_an_assignment_is_a_name(self):
        result = self.run_cli("device g\n product velk3", "signal", "1=on")
        self.assert_code(result, 3)
        self.assertEqual(result.err, "capso-cli: there is no device '1=on'\n")
        named = self.run_cli('device g\n product velk3\n serial "A=1"', "signal", "A=1")
        self.assert_code(named, 0)

    def test_json(self):
        scene = 'device g\n product velk3\n input 1920x1080i 29970 "SDI" "YUV"'
        (object_,) = self.run_cli(scene, "signal", "--json").objects
        wanted = {
            "present": True, "width": 1920, "height": 1080, "interlaced": True, "framesPerSecond": 29.97,
            "text": "SDI 1920x1080i@30, YUV",
        }
        self.assertEqual({name: object_[name] for name in wanted}, wanted)

    def test_not_told(self):
        result = self.run_cli("soft-velk3", "signal", "SIM00001")
        self.assert_code(result, 1)
        self.assertTrue(result.err.startswith("capso-cli: SIM00001: request not supported ("), result.err)

    def test_watch_shows_each_change_until_interrupted(self):
        scene = 'device g\n product velk3\n input at 0 none\n input at 4000 640x480p 60000 "A" "B"'
        running = self.start(scene, "signal", "--watch")
        polls = []

        def told_twice():
            polls[:] = [e for e in transcript(running.folder) if e.get("name") == "INPUT_STATUS"]
            return len(polls) >= 4 and any(bytes.fromhex(e["data"])[24] for e in polls[:-1])

        running.wait_for("the change", told_twice)
        running.signal(signal.SIGINT)
        result = running.finish()
        self.assertEqual(result.out, "no signal\nA 640x480p@60, B\n")
        self.assert_code(result, 128 + signal.SIGINT)

    def test_watch_tells_what_the_text_rounds(self):
        scene = 'device g\n product velk3\n input at 0 640x480p 59940 "A" "B"\n input at 4000 640x480p 60000 "A" "B"'
        running = self.start(scene, "signal", "--watch", "--json")

        def told_twice():
            polls = [e for e in transcript(running.folder) if e.get("name") == "INPUT_STATUS"]
            return len({e["data"] for e in polls[:-1]}) == 2

        running.wait_for("the change", told_twice)
        running.signal(signal.SIGINT)
        result = running.finish()
        self.assertEqual([o["framesPerSecond"] for o in result.objects], [59.94, 60])
        self.assertEqual({o["text"] for o in result.objects}, {"A 640x480p@60, B"})

    def test_watch_goes_on_where_the_device_refuses_once(self):
        scene = 'device g\n product velk3\n input 640x480p 60000 "A" "B"\nfault g INPUT_STATUS stall'
        running = self.start(scene, "signal", "--watch", "--json")
        refused, answered = (json.loads(running.process.stdout.readline()) for _ in range(2))
        running.signal(signal.SIGINT)
        self.assert_code(running.finish(), 128 + signal.SIGINT)
        self.assertEqual((refused["error"], refused["text"], refused["present"]),
                         (f"Error retreiving config device data: req=178, status: {STALL}", "request not supported", False))
        self.assertEqual((answered.get("error"), answered["text"]), (None, "A 640x480p@60, B"))

    def test_watch_ends_with_its_device(self):
        running = self.start("velk3", "signal", "--watch", "--json")
        running.wait_for_request("INPUT_STATUS")
        self.control(running, "unplug velk3")
        result = running.finish()
        self.assert_code(result, 1)
        self.assertIn("request not supported (Cannot access USB.", result.err)
