"""The calls of a V4L2 client, one by one."""
import os
import subprocess
import unittest

from feed import Feed, halves, solid
from support import (BLUE, BUILD, bubblewrap_works, CALLS, CROWD, CameraTest, DETAILS, LIBRARY,
                     PROBE, RED)


class ClientTest(CameraTest):
    def setUp(self):
        super().setUp()
        self.feed = Feed(self.feed_path)
        self.addCleanup(self.feed.close)
        self.feed.write(1280, 720, halves(1280, 720, RED, BLUE))

    def test_frames_arrive_at_thirty_a_second(self):
        # A client that is kept from running takes what it missed in a hurry, and sees another rate.
        for _ in range(8):
            rate = float(self.check(PROBE, "rate").stdout)
            if abs(rate - 30.0) <= 2.5:
                break
        self.assertAlmostEqual(rate, 30.0, delta=2.5)

    def test_emulator_shaped_client_streams_every_size(self):
        self.check(PROBE, "emulator")
        self.check(PROBE, "emulator", PROBE_DEVICE="/dev/video1")

    def test_formats_convert_by_the_tagged_matrix(self):
        self.feed.write(640, 480, solid(640, 480, RED))
        y601, cb601, cr601 = 81, 90, 240
        luma, quarter = 640 * 480, 640 * 480 // 4
        for kernels in ("portable", "avx2", "best"):
            def grab(fourcc, *more):
                return self.check(PROBE, "grab", fourcc, "640", "480", *more, text=False,
                                  LENSLARK_KERNELS=kernels).stdout
            with self.subTest(kernels=kernels):
                self.near(grab("YU12"), [(0, luma, 1, [y601]), (luma, quarter, 1, [cb601]),
                                         (luma + quarter, quarter, 1, [cr601])])
                self.near(grab("NV12"), [(0, luma, 1, [y601]),
                                         (luma, 2 * quarter, 2, [cb601, cr601])])
                self.near(grab("YUYV"), [(0, 2 * luma, 4, [y601, cb601, y601, cr601])])
                self.near(grab("RGB3"), [(0, 3 * luma, 3, [255, 0, 0])])
                self.near(grab("BGR4"), [(0, 4 * luma, 4, [0, 0, 255, 255])])
                self.near(grab("YU12", "709"), [(0, luma, 1, [63]), (luma, quarter, 1, [102]),
                                                (luma + quarter, quarter, 1, [240])])

    def test_a_sandbox_that_forbids_the_unusual_is_put_up_with(self):
        for command in ("sandboxed", "sandboxedStrangely"):
            result = self.run_with_camera(CALLS, command)
            if result.returncode == 77:
                self.skipTest("no sandbox can be had here")
            self.assertEqual(result.returncode, 0, result.stderr)

    def detail(self, command, lacking):
        result = self.run_with_camera(DETAILS, command)
        if result.returncode == 77:
            self.skipTest(lacking)
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_libv4l2_finds_the_camera_if_the_program_loads_it_itself(self):
        self.detail("libraryLoaded", "libv4l2 is not installed")

    def test_a_program_walks_to_the_camera_directory_by_directory(self):
        self.detail("walking", "there is no /sys/class")

    def test_the_directories_of_the_cameras_are_listed_through_descriptors(self):
        self.detail("folders", "there is no /sys/class")

    def near(self, picture, parts):
        self.assertEqual(len(picture), sum(length for _, length, _, _ in parts))
        for start, length, step, wanted in parts:
            part = picture[start:start + length]
            for i, value in enumerate(wanted):
                self.assertLessEqual(max(part[i::step]) - value, 2)
                self.assertLessEqual(value - min(part[i::step]), 2)

    def test_all_arithmetics_agree(self):
        row = bytes((x * 7 + c * 50) % 256 for x in range(1280) for c in range(4))
        self.feed.write(1280, 720, b"".join(row[4 * y:] + row[:4 * y] for y in range(720)))
        for fourcc, width, height in (("YU12", 1280, 720), ("YUYV", 1920, 1080),
                                      ("RGB3", 640, 480), ("NV12", 1280, 960)):
            pictures = [self.check(PROBE, "grab", fourcc, str(width), str(height), text=False,
                                   LENSLARK_KERNELS=kernels).stdout
                        for kernels in ("portable", "avx2", "best")]
            self.assertEqual(len(pictures[0]), len(pictures[1]))
            worst = max(abs(a - b) for a, b in zip(*pictures[:2]))
            self.assertLessEqual(worst, 2, fourcc)
            self.assertEqual(pictures[1], pictures[2], fourcc)

    def test_links_to_the_cameras_are_followed(self):
        self.check(DETAILS, "links", TMPDIR=self.directory)

    @unittest.skipUnless(bubblewrap_works(), "bubblewrap does not work here")
    def test_paths_lead_to_the_cameras_as_to_devices_of_the_kernel(self):
        program = os.path.join(BUILD, "tests", "injector-paths")
        devices = [word for number in range(2)
                   for word in ("--dev-bind", "/dev/null", f"/dev/video{number}")]
        for seed in range(8):
            said = []
            for more, library in ((devices, ""), ([], LIBRARY)):
                command = ["bwrap", "--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc",
                           *more, "--tmpfs", self.directory, "--chdir", self.directory,
                           "--setenv", "LD_PRELOAD", library, program, str(seed)]
                said.append(self.check(*command, LD_PRELOAD="").stdout.splitlines())
            self.assertTrue(any(" 20000 20000 " in line and line.endswith("/dev/video1")
                                for line in said[0]))
            self.assertEqual([pair for pair in zip(*said) if pair[0] != pair[1]], [])


def add(program, command, name):
    def test(self):
        self.check(program, command)
    setattr(ClientTest, "test_" + name, test)


add(PROBE, "waiting", "poll_and_epoll_tell_when_a_frame_is_due")
add(PROBE, "interrupted", "a_signal_interrupts_the_wait")
add(PROBE, "stopped", "streamoff_wakes_the_waiters")
add(PROBE, "reading", "read_hands_out_pictures_in_pieces")
add(PROBE, "badPointers", "bad_pointers_are_answered_not_followed")
add(PROBE, "copies", "copies_of_the_descriptor_are_the_camera_too")
add(PROBE, "manyOpens", "ten_thousand_opens_leave_nothing_behind")
add(PROBE, "storm", "forks_and_spawns_leave_the_stream_alone")
add(PROBE, "child", "a_child_has_its_own_cameras")
add(PROBE, "threads", "threads_open_and_close_at_once")
add(PROBE, "userPointers", "user_pointers_are_filled_and_checked")
add(CROWD, "everyCall", "threads_that_call_anything_at_once_leave_the_camera_usable")
add(CROWD, "restarted", "a_waiter_of_a_stopped_stream_takes_nothing_from_the_next")
add(CROWD, "copyClosed", "a_copy_streams_on_when_another_is_closed_while_it_takes_a_frame")
add(CROWD, "spawning", "a_program_that_inherits_the_camera_leaves_the_stream_alone")
add(CALLS, "opening", "every_way_of_opening_opens_the_camera")
add(CALLS, "status", "every_way_of_asking_tells_a_character_device")
add(CALLS, "rights", "every_way_of_asking_for_access_is_answered")
add(CALLS, "links", "links_and_real_names_are_told")
add(CALLS, "listing", "the_cameras_are_listed_where_programs_look")
add(CALLS, "files", "the_files_about_the_cameras_are_read")
add(CALLS, "buffers", "buffers_are_one_owners")
add(CALLS, "formatIsShared", "settings_are_shared_by_all_that_have_the_camera_open")
add(CALLS, "priorities", "a_higher_priority_keeps_others_out")
add(CALLS, "polling", "every_way_of_waiting_waits_for_a_frame")
add(CALLS, "closedBehindItsBack", "a_number_that_was_closed_unseen_is_no_camera_any_more")
add(CALLS, "inheritedByFork", "a_child_streams_on_when_its_parent_has_gone")
add(CALLS, "execing", "a_camera_that_is_standard_input_survives_exec")
add(CALLS, "execingReader", "a_camera_that_is_standard_input_can_be_read")
add(CALLS, "handedOver", "a_camera_can_be_handed_to_another_process")
add(DETAILS, "directories", "a_camera_is_no_directory")
add(DETAILS, "seeking", "a_camera_cannot_be_sought_in")
add(DETAILS, "scattered", "a_picture_can_be_read_into_parts")
add(DETAILS, "modes", "a_camera_is_read_only_through_what_was_opened_for_that")
add(DETAILS, "exporting", "the_memory_of_a_buffer_can_be_had_as_a_descriptor")
add(DETAILS, "database", "what_udev_notes_of_a_camera_can_be_read")
add(DETAILS, "taking", "a_buffer_is_taken_by_its_type_alone")

if __name__ == "__main__":
    unittest.main()
