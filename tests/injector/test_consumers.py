"""Programs that people use, taking frames from the camera."""
import ctypes
import ctypes.util
import os
import struct
import subprocess
import sys
import unittest

from feed import Feed, halves
from support import BLUE, CameraTest, RED, has


def qr_frame(text, width=1280, height=720):
    """A frame with a QR code of the text in its middle, or None without the library."""
    name = ctypes.util.find_library("qrencode")
    if not name:
        return None
    library = ctypes.CDLL(name)

    class Code(ctypes.Structure):
        _fields_ = [("version", ctypes.c_int), ("width", ctypes.c_int),
                    ("data", ctypes.POINTER(ctypes.c_ubyte))]

    library.QRcode_encodeString8bit.restype = ctypes.POINTER(Code)
    code = library.QRcode_encodeString8bit(text.encode(), 0, 1).contents
    module = 12
    side = code.width * module
    left, top = (width - side) // 2, (height - side) // 2
    white, black = b"\xff\xff\xff\xff", b"\x00\x00\x00\xff"
    blank = white * width
    rows = [blank] * top
    for y in range(code.width):
        cells = b"".join((black if code.data[y * code.width + x] & 1 else white) * module
                         for x in range(code.width))
        rows += [white * left + cells + white * (width - left - side)] * module
    return b"".join(rows + [blank] * (height - len(rows)))


# Path, node, subsystem, name and product of each camera.
LIST_BY_UDEV = """
import ctypes, sys
udev = ctypes.CDLL(sys.argv[1])
def call(name, *arguments, result=ctypes.c_void_p):
    function = getattr(udev, "udev_" + name)
    function.restype = result
    return function(*(ctypes.c_void_p(a) if isinstance(a, int) else a for a in arguments))
text = ctypes.c_char_p
context = call("new")
scan = call("enumerate_new", context)
call("enumerate_add_match_subsystem", scan, b"video4linux")
call("enumerate_scan_devices", scan)
entry = call("enumerate_get_list_entry", scan)
while entry:
    path = call("list_entry_get_name", entry, result=text)
    device = call("device_new_from_syspath", context, path)
    print(path.decode(), *(said.decode() for said in (
        call("device_get_devnode", device, result=text),
        call("device_get_subsystem", device, result=text),
        call("device_get_sysattr_value", device, b"name", result=text),
        call("device_get_property_value", device, b"ID_V4L_PRODUCT", result=text))))
    entry = call("list_entry_get_next", entry)
"""


class ConsumersTest(CameraTest):
    def setUp(self):
        super().setUp()
        self.feed = Feed(self.feed_path)
        self.addCleanup(self.feed.close)
        self.feed.write(1280, 720, halves(1280, 720, RED, BLUE))

    def need(self, program):
        if not has(program):
            self.skipTest(program + " is not installed")

    def comply(self, device):
        self.need("v4l2-compliance")
        result = self.run_with_camera("v4l2-compliance", "-s", "-d", device, timeout=200)
        failures = [line for line in result.stdout.splitlines() if "fail" in line.lower()]
        self.assertEqual(result.returncode, 0, "\n".join(failures))
        self.assertRegex(result.stdout, r"Succeeded: \d\d, Failed: 0")

    def test_compliance_tool_finds_no_failure_on_the_back_camera(self):
        self.comply("/dev/video0")

    def test_compliance_tool_finds_no_failure_on_the_front_camera(self):
        self.comply("/dev/video1")

    def test_v4l2_ctl_lists_both_cameras(self):
        self.need("v4l2-ctl")
        listed = self.check("v4l2-ctl", "--list-devices").stdout
        self.assertRegex(listed, r"(?s)Lenslark Camera \(platform.*/dev/video0")
        self.assertRegex(listed, r"(?s)Lenslark Camera \(Front\).*/dev/video1")

    def test_libudev_finds_both_cameras(self):
        name = ctypes.util.find_library("udev")
        if not name or not os.path.isdir("/sys/class"):
            self.skipTest("there is no libudev or no /sys/class")
        listed = self.check(sys.executable, "-c", LIST_BY_UDEV, name).stdout
        for number, label in ((0, "Lenslark Camera"), (1, "Lenslark Camera (Front)")):
            self.assertIn(f"/sys/devices/virtual/video4linux/video{number} /dev/video{number} "
                          f"video4linux {label} {label}\n", listed)

    def test_v4l2_ctl_streams_by_its_own_calls_and_by_libv4l2(self):
        self.need("v4l2-ctl")
        for more in ([], ["-w"]):
            picture = os.path.join(self.directory, "picture")
            self.check("v4l2-ctl", *more, "-v", "width=640,height=480,pixelformat=YU12",
                       "--stream-mmap", "--stream-count=10", "--stream-to=" + picture)
            self.assertEqual(os.path.getsize(picture), 10 * 640 * 480 * 3 // 2)

    def test_ffmpeg_reads_the_colours(self):
        self.need("ffmpeg")
        result = self.check("ffmpeg", "-v", "error", "-f", "v4l2", "-video_size", "1280x720",
                            "-i", "/dev/video0", "-frames:v", "5", "-f", "rawvideo",
                            "-pix_fmt", "bgra", "-", text=False)
        frame = 1280 * 720 * 4
        self.assertEqual(len(result.stdout), 5 * frame)
        last = result.stdout[-frame:]
        for x, colour in ((320, RED), (960, BLUE)):
            pixel = last[(360 * 1280 + x) * 4:][:3]
            for seen, wanted in zip(pixel, colour):
                self.assertAlmostEqual(seen, wanted, delta=6)

    def test_gstreamer_reads_the_colours_through_every_kind_of_memory(self):
        self.need("gst-launch-1.0")
        for memory in ("rw", "mmap", "userptr", "dmabuf"):
            with self.subTest(memory=memory):
                picture = os.path.join(self.directory, memory)
                self.check("gst-launch-1.0", "-q", "v4l2src", "device=/dev/video0",
                           "io-mode=" + memory, "num-buffers=5", "!",
                           "video/x-raw,format=I420,width=1280,height=720", "!", "videoconvert",
                           "!", "video/x-raw,format=BGRA", "!", "multifilesink",
                           "location=" + picture, HOME=self.directory)
                with open(picture, "rb") as file:
                    last = file.read()
                for x, colour in ((320, RED), (960, BLUE)):
                    pixel = struct.unpack_from("3B", last, (360 * 1280 + x) * 4)
                    for seen, wanted in zip(pixel, colour):
                        self.assertAlmostEqual(seen, wanted, delta=6)

    def test_zbarcam_reads_a_code_back(self):
        self.need("zbarcam")
        frame = qr_frame("lenslark reads itself")
        if frame is None:
            self.skipTest("libqrencode is not installed")
        self.feed.write(1280, 720, frame)
        # This program crashes without a window and leaves with an X error on a bare server: what
        # counts is what it read.
        result = self.run_with_camera("zbarcam", "--raw", "--oneshot", "--quiet", "/dev/video0",
                                      DISPLAY=self.display())
        self.assertIn("lenslark reads itself", result.stdout)

    def display(self):
        self.need("Xvfb")
        server = subprocess.Popen(["Xvfb", "-displayfd", "1", "-nolisten", "tcp",
                                   "-screen", "0", "1920x1080x24"],
                                  stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.addCleanup(server.stdout.close)
        self.addCleanup(server.wait)
        self.addCleanup(server.terminate)
        return ":" + server.stdout.readline().strip()


if __name__ == "__main__":
    unittest.main()
