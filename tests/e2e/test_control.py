"""What people say about cameras on the command line: source, devices, status, snapshot."""

import json
import os
import subprocess
import unittest

import devicebench
from devicebench import DeviceTest, fresh_udid
from lenslark import BLUE, GREEN, RED

UNKNOWN = '(desktop, image, video, slideshow, pattern, display, window)'
ANCHORS = ("--anchor: top-left, top, top-right, left, center, right, bottom-left, bottom, "
           "bottom-right")
ONE_CAMERA = ("Android emulators have one Lenslark camera (the back camera; the emulator takes a "
              "single webcam). Set it without --camera, or with --camera back.")


class SourceTest(DeviceTest):
    def source(self, *arguments, **options):
        return self.run_program("source", *arguments, **options)

    def media(self):
        index = self.lenslark.support / "Media" / "index.json"
        return json.loads(index.read_text()) if index.exists() else []


class SourceSetTest(SourceTest):
    def test_sets_the_global_default(self):
        self.assert_prints(self.source("set", "pattern"), "global default → test pattern\n")
        [assignment] = self.assignments()
        self.assertEqual(assignment["scope"], {"kind": "global"})
        self.assertEqual(assignment["source"], {"kind": "pattern"})
        self.assertRegex(assignment["updatedAt"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")

    def test_kinds_have_other_names_in_any_letter_case(self):
        for word, summary in (("live", "desktop under the window"), ("TEST", "test pattern"),
                              ("test-pattern", "test pattern"), ("Desktop",
                                                                 "desktop under the window")):
            self.assert_prints(self.source("set", word), f"global default → {summary}\n")

    def test_a_display_is_stored_by_its_index(self):
        self.assert_prints(self.source("set", "display", "2"), "global default → display 2\n")
        self.assertEqual(self.assignments()[0]["source"], {"kind": "display", "displayIndex": 2})

    def test_a_display_may_have_a_sign_and_need_not_be_a_number(self):
        self.assert_prints(self.source("set", "display", "+3"), "global default → display 3\n")
        self.assert_prints(self.source("set", "display", "-1"), "global default → display -1\n")
        self.assert_prints(self.source("set", "display", "two"), "global default → display 0\n")
        self.assert_prints(self.source("set", "display"), "global default → display 0\n")
        self.assert_prints(self.source("set", "display", "99999999999"),
                           "global default → display 99999999999\n")

    def test_a_windows_text_is_all_words(self):
        self.assert_prints(self.source("set", "window", "Safari", "Tech", "Preview"),
                           'global default → window "Safari Tech Preview"\n')
        self.assertEqual(self.assignments()[0]["source"],
                         {"kind": "window", "windowMatch": "Safari Tech Preview"})

    def test_a_window_of_any_bytes_is_repaired(self):
        self.assert_prints(self.source("set", "window", os.fsdecode(b"a\xffb")),
                           'global default → window "a\ufffdb"\n')

    def test_an_image_is_imported(self):
        self.assert_prints(self.source("set", "image", self.picture("card.png")),
                           "global default → image card.png\n")
        [item] = self.media()
        self.assertEqual(self.assignments()[0]["source"],
                         {"kind": "image", "mediaId": item["id"]})

    def test_a_relative_path_means_the_working_directory(self):
        self.picture("card.png")
        self.assert_prints(self.source("set", "image", "card.png", cwd=self.folder),
                           "global default → image card.png\n")

    def test_a_tilde_that_the_shell_left_means_the_home_directory(self):
        self.picture("card.png")
        self.assert_prints(self.source("set", "image", "~/card.png"),
                           "global default → image card.png\n")

    def test_a_file_below_a_folder_called_tilde_comes_first(self):
        self.picture("card.png", colours=(RED,) * 4)
        (self.folder / "~").mkdir()
        mine = self.picture("~/card.png", colours=(BLUE,) * 4)
        self.source("set", "image", "~/card.png", cwd=self.folder)
        [item] = self.media()
        stored = self.lenslark.support / "Media" / "items" / item["file"]
        self.assertEqual(stored.read_bytes(), mine.read_bytes())

    def test_a_video_loops_unless_told_otherwise(self):
        clip = self.clip()
        self.assert_prints(self.source("set", "video", clip), "global default → video clip.mp4\n")
        self.assertIs(self.assignments()[0]["source"]["loop"], True)
        self.assert_prints(self.source("set", "video", clip, "--once"),
                           "global default → video clip.mp4 (once)\n")
        self.assertIs(self.assignments()[0]["source"]["loop"], False)

    def clip(self):
        path = self.folder / "clip.mp4"
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                        "testsrc=size=64x48:duration=0.5:rate=10", "-pix_fmt", "yuv420p", path],
                       check=True)
        return path

    def test_a_slideshow_takes_a_folder_in_natural_order(self):
        show = self.folder / "show"
        (show / "deep").mkdir(parents=True)
        for name, colour in (("10.png", RED), ("2.png", GREEN), (".hidden.png", BLUE)):
            self.picture(f"show/{name}", colours=(colour,) * 4)
        self.picture("show/deep/1.png")
        (show / "notes.txt").write_text("no picture")
        self.assert_prints(self.source("set", "slideshow", show),
                           "global default → slideshow of 2 images every 3s\n")
        names = {item["id"]: item["name"] for item in self.media()}
        slides = self.assignments()[0]["source"]["mediaIds"]
        self.assertEqual([names[slide] for slide in slides], ["2.png", "10.png"])

    def test_a_slideshow_takes_files_and_an_interval(self):
        a = self.picture("a.png", colours=(RED,) * 4)
        b = self.picture("b.png", colours=(BLUE,) * 4)
        self.assert_prints(self.source("set", "slideshow", b, a, "--interval", "0.75"),
                           "global default → slideshow of 2 images every 0.75s\n")
        self.assertEqual(self.assignments()[0]["source"]["intervalSec"], 0.75)

    def test_files_are_asked_for(self):
        for words, message in ((["image"], "image needs a file"),
                               (["Video"], "video needs a file"),
                               (["slideshow"], "slideshow needs a folder or images"),
                               (["slideshow", self.folder / "empty"],
                                "slideshow needs a folder or images"),
                               (["window"], "window needs a title or app name")):
            (self.folder / "empty").mkdir(exist_ok=True)
            self.assert_fails(self.source("set", *words), message, 2)
        self.assertFalse(self.lenslark.config_file.exists())

    def test_operands_end_at_the_first_flag(self):
        self.assert_fails(self.source("set", "image", "--device", "all", self.picture()),
                          "image needs a file", 2)

    def test_without_a_kind_it_tells_its_usage(self):
        usage = "usage: lenslark source set <desktop|image FILE|video FILE|…>"
        self.assert_fails(self.source("set"), usage, 2)
        self.assert_fails(self.source("set", "--device", "all"), usage, 2)

    def test_an_unknown_kind_is_quoted_as_typed(self):
        self.assert_fails(self.source("set", "HoloGram"), f'unknown source "HoloGram" {UNKNOWN}', 2)

    def test_a_missing_file_is_named(self):
        self.assert_fails(self.source("set", "image", "/nowhere.png"),
                          "/nowhere.png is not a readable file", 2)

    def test_a_file_that_is_no_picture_is_named(self):
        notes = self.folder / "notes.txt"
        notes.write_text("text")
        self.assert_fails(self.source("set", "image", notes),
                          "notes.txt is not an image or video Lenslark can show", 1)

    def test_a_video_is_no_image_but_stays_in_the_library(self):
        clip = self.clip()
        self.assert_fails(self.source("set", "image", clip), f"{clip} is a video, not an image", 2)
        self.assertEqual([item["name"] for item in self.media()], ["clip.mp4"])
        self.assertFalse(self.lenslark.config_file.exists())

    def test_an_image_is_no_video(self):
        card = self.picture("card.png")
        self.assert_fails(self.source("set", "video", card), f"{card} is an image, not a video", 2)

    def test_an_overlay_has_a_place(self):
        logo = self.picture("logo.png")
        self.assert_prints(
            self.source("set", "pattern", "--overlay", logo, "--anchor", "TOP_left", "--scale",
                        "0.5", "--opacity", "0.75", "--x", "0.25", "--y", "1"),
            "global default → test pattern + overlay logo.png\n")
        self.assertEqual(self.assignments()[0]["overlay"], {
            "mediaId": self.media()[0]["id"], "anchor": "topLeft", "scale": 0.5, "opacity": 0.75,
            "x": 0.25, "y": 1})

    def test_an_overlay_has_defaults(self):
        self.source("set", "pattern", "--overlay", self.picture("logo.png"))
        self.assertEqual(self.assignments()[0]["overlay"], {
            "mediaId": self.media()[0]["id"], "anchor": "bottomRight", "scale": 0.25,
            "opacity": 1})

    def test_an_overlays_values_are_held_in_their_ranges(self):
        self.source("set", "pattern", "--overlay", self.picture("logo.png"), "--scale", "9",
                    "--opacity", "-3")
        overlay = self.assignments()[0]["overlay"]
        self.assertEqual((overlay["scale"], overlay["opacity"]), (1, 0))

    def test_an_unknown_anchor_fails(self):
        self.assert_fails(self.source("set", "image", self.picture("a.png"), "--anchor", "middle"),
                          ANCHORS, 2)
        self.assertEqual(self.media(), [])

    def test_numbers_must_be_numbers(self):
        for flag in ("--scale", "--opacity", "--x", "--y", "--interval"):
            for value in ("big", "nan", "inf", "1e999", ""):
                self.assert_fails(self.source("set", "image", self.picture("a.png"), flag, value),
                                  f"{flag} expects a number", 2)
        self.assertEqual(self.media(), [])

    def test_setting_again_replaces(self):
        self.source("set", "pattern")
        self.source("set", "desktop")
        self.assertEqual(len(self.assignments()), 1)

    def test_a_configuration_that_cannot_be_written_is_an_error(self):
        self.lenslark.support.write_text("in the way")
        result = self.source("set", "pattern")
        self.assertEqual((result.returncode, result.stdout), (1, b""))
        self.assertIn(str(self.lenslark.support), result.stderr.decode())


class DeviceScopeTest(SourceTest):
    def setUp(self):
        super().setUp()
        self.simulators.booted([("U1", "iPhone 15"), ("U2", "iPad")])
        self.emulators(("Pixel_8", 4242))

    def scopes(self):
        return [assignment["scope"] for assignment in self.assignments()]

    def test_a_name_in_any_letter_case(self):
        self.assert_prints(self.source("set", "pattern", "--device", "IPHONE 15"),
                           "iPhone 15 → test pattern\n")
        self.assertEqual(self.scopes(), [{"kind": "device", "deviceKey": "ios:U1"}])

    def test_a_camera_of_a_device(self):
        self.assert_prints(self.source("set", "pattern", "--device", "U2", "--camera", "front"),
                           "iPad front → test pattern\n")
        self.assertEqual(self.scopes(),
                         [{"kind": "camera", "deviceKey": "ios:U2", "camera": "front"}])

    def test_all_is_every_device_by_name(self):
        self.assert_prints(self.source("set", "pattern", "--device", "ALL"),
                           "Pixel_8 → test pattern\niPad → test pattern\niPhone 15 → test pattern\n")

    def test_booted_is_every_simulator(self):
        self.assert_prints(self.source("set", "pattern", "--device", "Booted"),
                           "iPad → test pattern\niPhone 15 → test pattern\n")

    def test_booted_with_emulators_only_matches_none(self):
        self.simulators.booted([])
        self.assert_fails(self.source("set", "pattern", "--device", "booted"),
                          'No device matches "booted". Run `lenslark devices`.', 4)

    def test_all_of_nothing_is_no_error(self):
        self.simulators.booted([])
        self.emulators()
        self.assert_prints(self.source("set", "pattern", "--device", "all"), "")
        self.assert_prints_json(self.source("set", "pattern", "--device", "all", "--json"), [])

    def test_a_key_names_a_device_that_is_off(self):
        self.assert_prints(self.source("set", "pattern", "--device", "ios:OFF"),
                           "ios:OFF → test pattern\n")
        self.assertEqual(self.scopes(), [{"kind": "device", "deviceKey": "ios:OFF"}])

    def test_a_remembered_device_is_known_by_its_name(self):
        self.remember(("ios:OLD", "Old phone"))
        self.assert_prints(self.source("set", "pattern", "--device", "old phone"),
                           "Old phone → test pattern\n")

    def test_two_devices_of_one_name_are_both_meant(self):
        self.simulators.booted([("U1", "Phone"), ("U2", "Phone")])
        self.assert_prints(self.source("set", "pattern", "--device", "phone"),
                           "Phone → test pattern\nPhone → test pattern\n")
        self.assertEqual([scope["deviceKey"] for scope in self.scopes()], ["ios:U1", "ios:U2"])

    def test_an_unknown_device_fails(self):
        self.assert_fails(self.source("set", "pattern", "--device", "Nokia"),
                          'No device matches "Nokia". Run `lenslark devices`.', 4)

    def test_emulators_have_no_front_camera(self):
        self.assert_fails(
            self.source("set", "image", self.picture(), "--device", "all", "--camera", "front"),
            ONE_CAMERA, 2)
        self.assertFalse(self.lenslark.config_file.exists())
        self.assertEqual(self.media(), [])

    def test_an_emulators_back_camera_can_be_set(self):
        self.assert_prints(
            self.source("set", "pattern", "--device", "Pixel_8", "--camera", "back"),
            "Pixel_8 back → test pattern\n")

    def test_cameras_are_back_or_front(self):
        for verb in ("set", "get", "reset", "nothing"):
            self.assert_fails(self.source(verb, "--device", "all", "--camera", "side"),
                              "--camera is back or front", 2)

    def test_a_camera_needs_a_device(self):
        for verb in ("set", "get", "reset"):
            self.assert_fails(self.source(verb, "--camera", "back"), "--camera needs --device", 2)
        self.assertEqual(self.simulators.calls(), [])

    def test_without_xcrun_emulators_are_still_found(self):
        self.simulators.remove()
        self.assert_prints(self.source("set", "pattern", "--device", "all"),
                           "Pixel_8 → test pattern\n")

    def test_json_describes_what_was_stored(self):
        result = self.source("set", "display", "2", "--device", "iPad", "--camera", "back",
                             "--json")
        self.assert_prints_json(result, [{"camera": "back", "deviceKey": "ios:U2",
                                          "displayIndex": 2, "kind": "display",
                                          "scope": "camera"}])

    def test_many_calls_at_once_lose_nothing(self):
        running = [subprocess.Popen([self.lenslark.program, "source", "set", "pattern", "--device",
                                     f"ios:{number}", "--json"], stdout=subprocess.DEVNULL,
                                    env=self.lenslark.environment) for number in range(20)]
        self.assertEqual([process.wait() for process in running], [0] * 20)
        self.assertEqual(sorted(scope["deviceKey"] for scope in self.scopes()),
                         sorted(f"ios:{number}" for number in range(20)))


class SourceGetTest(SourceTest):
    def test_the_default_is_the_desktop(self):
        self.assert_prints(self.source("get"), "global default → desktop under the window\n")
        self.assert_prints_json(self.source("get", "--json"), {"kind": "desktop", "scope": "global"})
        self.assertFalse(self.lenslark.support.exists())

    def test_the_global_default(self):
        self.source("set", "slideshow", self.picture("a.png"))
        [media] = self.media()
        self.assert_prints(self.source("get"),
                           "global default → slideshow of 1 images every 3s\n")
        self.assert_prints_json(self.source("get", "--json"), {
            "intervalSec": 3, "kind": "slideshow", "mediaIds": [media["id"]], "scope": "global"})

    def test_overlays_are_described(self):
        self.source("set", "image", self.picture("card.png"), "--overlay",
                    self.picture("logo.png", colours=(RED,) * 4), "--x", "0.5", "--y", "0.5")
        card, logo = self.media()
        self.assert_prints(self.source("get"),
                           "global default → image card.png + overlay logo.png\n")
        self.assert_prints_json(self.source("get", "--json"), {
            "kind": "image", "mediaId": card["id"], "name": "card.png", "scope": "global",
            "overlay": {"anchor": "bottomRight", "mediaId": logo["id"], "name": "logo.png",
                        "opacity": 1, "scale": 0.25, "x": 0.5, "y": 0.5}})

    def test_each_camera_says_where_its_setting_comes_from(self):
        self.simulators.booted([("U1", "iPhone")])
        self.emulators(("Pixel_8", 4242))
        self.source("set", "pattern", "--device", "iPhone", "--camera", "front")
        self.source("set", "display", "1", "--device", "Pixel_8")
        self.assert_prints(self.source("get", "--device", "all"),
                           "Pixel_8 back → display 1  (device)\n"
                           "iPhone back → desktop under the window  (default)\n"
                           "iPhone front → test pattern  (camera)\n")
        self.source("set", "window", "Maps")
        self.assert_prints(self.source("get", "--device", "iPhone", "--camera", "back"),
                           'iPhone back → window "Maps"  (global)\n')

    def test_json_has_key_camera_and_origin(self):
        self.simulators.booted([("U1", "iPhone")])
        self.source("set", "pattern", "--device", "iPhone")
        self.assert_prints_json(self.source("get", "--device", "iPhone", "--json"), [
            {"camera": camera, "deviceKey": "ios:U1", "inheritedFrom": "device", "kind": "pattern",
             "scope": "device"} for camera in ("back", "front")])

    def test_a_remembered_device_has_its_name(self):
        self.remember(("android:Old", "Old one"))
        self.assert_prints(self.source("get", "--device", "android:Old"),
                           "Old one back → desktop under the window  (default)\n")

    def test_media_that_are_gone_show_their_id(self):
        self.source("set", "image", self.picture("card.png"))
        [item] = self.media()
        self.run_program("media", "rm", "card.png", "--force")
        self.assert_prints(self.source("get"), f"global default → image {item['id']}\n")

    def test_maps_no_codec_library(self):
        self.source("set", "image", self.picture("card.png"))
        environment = {**self.lenslark.environment, "LD_DEBUG": "libs"}
        loaded = self.source("get", env=environment).stderr.decode()
        self.assertIn("libstdc++", loaded)
        for library in ("libav", "libvips", "libpango", "libcairo", "lenslark-image",
                        "lenslark-video"):
            self.assertNotIn(library, loaded)


class SourceResetTest(SourceTest):
    CLEARED = "Cleared; the camera falls back to the next scope.\n"

    def test_without_a_device_the_global_default_is_cleared(self):
        self.source("set", "pattern")
        self.source("set", "pattern", "--device", "ios:U1")
        self.assert_prints(self.source("reset"), self.CLEARED)
        [assignment] = self.assignments()
        self.assertEqual(assignment["scope"]["kind"], "device")

    def test_a_camera_is_cleared_alone(self):
        self.source("set", "pattern", "--device", "ios:U1")
        self.source("set", "pattern", "--device", "ios:U1", "--camera", "back")
        self.assert_prints(self.source("reset", "--device", "ios:U1", "--camera", "back"),
                           self.CLEARED)
        [assignment] = self.assignments()
        self.assertEqual(assignment["scope"]["kind"], "device")

    def test_what_is_not_set_can_be_reset(self):
        self.assert_prints(self.source("reset"), self.CLEARED)

    def test_all_clears_everything(self):
        self.source("set", "pattern")
        self.source("set", "pattern", "--device", "ios:U1", "--camera", "back")
        self.assert_prints(self.source("reset", "--all"), "All camera settings cleared: every "
                           "camera sees the desktop under its window.\n")
        self.assertEqual(self.assignments(), [])

    def test_an_unknown_device_fails(self):
        self.assert_fails(self.source("reset", "--device", "Nokia"),
                          'No device matches "Nokia". Run `lenslark devices`.', 4)

    def test_source_alone_prints_the_help(self):
        self.assertEqual(self.source().stdout, self.run_program("help").stdout)


class DevicesTest(DeviceTest):
    def test_nothing_runs(self):
        self.assert_prints(self.run_program("devices"),
                           "No booted simulators or running emulators.\n")
        self.assert_prints_json(self.run_program("devices", "--json"), [])

    def test_lists_what_runs_and_what_is_remembered(self):
        self.simulators.booted([("U1", "iPhone 15")])
        self.emulators(("Pixel_8", 4242))
        self.remember(("ios:U1", "iPhone 15"), ("android:Old", "Old"))
        self.assert_prints(self.run_program("devices"),
                           "Android Pixel_8  [android:Pixel_8]\n"
                           "iOS iPhone 15  [ios:U1]\n"
                           "Android Old  [android:Old]  (not running)\n")

    def test_json_tells_what_each_camera_shows(self):
        self.simulators.booted([("U1", "iPhone 15")])
        self.remember(("android:Old", "Old"))
        self.run_program("source", "set", "pattern", "--device", "iPhone 15", "--camera", "front")
        self.assert_prints_json(self.run_program("devices", "--json"), [
            {"cameras": [{"camera": "back", "inheritedFrom": "default", "kind": "desktop",
                          "scope": "global"},
                         {"camera": "front", "deviceKey": "ios:U1", "inheritedFrom": "camera",
                          "kind": "pattern", "scope": "camera"}],
             "connected": True, "key": "ios:U1", "name": "iPhone 15", "platform": "iOS"},
            {"connected": False, "key": "android:Old", "name": "Old", "platform": "Android"}])

    def test_equal_names_keep_the_simulator_first(self):
        self.simulators.booted([("U2", "Twin"), ("U1", "Twin")])
        self.emulators(("Twin", 4242))
        self.assert_prints(self.run_program("devices"),
                           "iOS Twin  [ios:U2]\niOS Twin  [ios:U1]\nAndroid Twin  [android:Twin]\n")

    def test_a_simctl_that_fails_means_no_simulators(self):
        self.simulators.answers("echo broken >&2; exit 1")
        self.emulators(("Pixel_8", 4242))
        self.assert_prints(self.run_program("devices"), "Android Pixel_8  [android:Pixel_8]\n")

    def test_a_simctl_that_prints_garbage_is_told_of_and_hides_no_emulator(self):
        self.simulators.answers("echo garbage")
        self.emulators(("Pixel_8", 4242))
        result = self.run_program("devices")
        self.assertEqual((result.returncode, result.stdout.decode()),
                         (0, "Android Pixel_8  [android:Pixel_8]\n"))
        self.assertRegex(result.stderr.decode(), r"^lenslark: simctl cannot be understood: .+\n$")

    def test_names_may_hold_anything(self):
        name = 'Ärger … \\u0001\\n\\u001b[2J\\u009b \\"x\\"'
        self.simulators.booted([("U1", name)])
        self.assert_prints(self.run_program("devices"), 'iOS Ärger … ???[2J? "x"  [ios:U1]\n')
        result = self.run_program("devices", "--json")
        self.assertEqual(json.loads(result.stdout)[0]["name"], json.loads(f'"{name}"'))


class StatusTest(DeviceTest):
    def test_nothing_is_there(self):
        self.lenslark.move_away(self.folder / "away" / "bin")
        self.assert_prints(self.run_program("status"),
                           "iOS injector      : missing (run scripts/build-injector.sh)\n"
                           "Android injector  : missing (run scripts/build-injector.sh)\n"
                           "Booted simulators : none\n"
                           "Running emulators : none\n"
                           "Global default    : desktop under the window\n")

    def test_everything_is_there(self):
        for variable in ("LENSLARK_INJECT_DYLIB", "LENSLARK_EMU_INJECT_DYLIB"):
            path = self.folder / variable
            path.touch()
            self.lenslark.environment[variable] = str(path)
        self.simulators.answers("""
case "$*" in
  "simctl list devices booted -j")
    echo '{"devices":{"x.iOS-17-2":[{"udid":"U1","name":"iPhone"},{"udid":"U2","name":"iPad"}]}}' ;;
  "simctl spawn U1 launchctl getenv DYLD_INSERT_LIBRARIES") echo /x/LenslarkInject.dylib ;;
esac""")
        self.emulators(("Zeta", 1), ("Alpha", 2))
        self.run_program("source", "set", "pattern")
        self.assert_prints(self.run_program("status"),
                           f"iOS injector      : {self.folder}/LENSLARK_INJECT_DYLIB\n"
                           f"Android injector  : {self.folder}/LENSLARK_EMU_INJECT_DYLIB\n"
                           "Booted simulators : iPad, iPhone [camera on]\n"
                           "Running emulators : Alpha, Zeta\n"
                           "Global default    : test pattern\n")


    def test_what_a_failing_simctl_printed_decides_whether_the_camera_is_on(self):
        self.simulators.answers("""
case "$*" in
  "simctl list "*)
    echo '{"devices":{"r":[{"udid":"U1","name":"Off"},{"udid":"U2","name":"On"},
                           {"udid":"U3","name":"Other"}]}}' ;;
  "simctl spawn U1 "*) echo "U1 is not booted: no LenslarkInject" >&2; exit 149 ;;
  "simctl spawn U2 "*) echo /x/libOther.dylib:/x/LenslarkInject.dylib; exit 1 ;;
  "simctl spawn U3 "*) echo /x/libOther.dylib:/x/lenslarkinject.dylib ;;
esac""")
        self.assertIn("Booted simulators : Off, On [camera on], Other\n",
                      self.run_program("status").stdout.decode())


class SnapshotTest(DeviceTest):
    USAGE = "usage: lenslark snapshot --device … [--camera back|front] -o out.png"

    def setUp(self):
        super().setUp()
        self.udid = fresh_udid()
        self.simulators.booted([(self.udid, "iPhone")])
        self.out = self.folder / "out.png"

    def snapshot(self, *arguments):
        return self.run_program("snapshot", *arguments)

    def test_writes_the_frame(self):
        self.feed(self.udid, size=(32, 16), colour=(10, 200, 30))
        self.assert_prints(self.snapshot("--device", "iphone", "-o", self.out),
                           f"Wrote {self.out} (32x16)\n")
        self.assertEqual(devicebench.png_size(self.out.read_bytes()), (32, 16))
        pixels = subprocess.run(["ffmpeg", "-v", "error", "-i", self.out, "-f", "rawvideo",
                                 "-pix_fmt", "rgba", "-"], check=True, capture_output=True).stdout
        self.assertEqual(pixels, bytes((10, 200, 30, 255)) * (32 * 16))

    def test_the_front_camera_has_a_feed_of_its_own(self):
        self.feed(self.udid, size=(8, 8))
        self.feed(self.udid, size=(16, 8), camera="-front")
        self.assert_prints(self.snapshot("--device", "booted", "--camera", "front", "-o", self.out),
                           f"Wrote {self.out} (16x8)\n")

    def test_the_devices_own_feed_serves_both_cameras(self):
        self.feed(self.udid, size=(8, 8), camera="")
        self.assert_prints(self.snapshot("--device", "booted", "--camera", "front", "-o", self.out),
                           f"Wrote {self.out} (8x8)\n")

    def test_a_stale_feed_is_no_live_feed(self):
        self.feed(self.udid, age=3.0)
        self.assert_fails(self.snapshot("--device", "iPhone", "-o", self.out),
                          "iPhone has no live feed; is Lenslark on?", 3)
        self.assertFalse(self.out.exists())

    def test_without_a_feed_there_is_no_live_feed(self):
        self.assert_fails(self.snapshot("--device", "iPhone", "-o", self.out),
                          "iPhone has no live feed; is Lenslark on?", 3)

    def test_a_device_that_is_off_is_not_found(self):
        self.assert_fails(self.snapshot("--device", "ios:OFF", "-o", self.out),
                          'No device matches "ios:OFF". Run `lenslark devices`.', 4)

    def test_tells_its_usage(self):
        for arguments in ((), ("--device", "iPhone"), ("-o", self.out),
                          ("--device", "iPhone", "-o")):
            self.assert_fails(self.snapshot(*arguments), self.USAGE, 2)

    def test_cameras_are_back_or_front(self):
        self.assert_fails(self.snapshot("--device", "x", "--camera", "side", "-o", self.out),
                          "--camera is back or front", 2)

    def test_a_file_that_cannot_be_written_is_named(self):
        self.feed(self.udid)
        self.assert_fails(self.snapshot("--device", "iPhone", "-o", "/nowhere/out.png"),
                          "cannot write /nowhere/out.png", 1)


if __name__ == "__main__":
    unittest.main()
