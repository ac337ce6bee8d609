"""A page in a headless browser, whose video shows the cameras."""
import http.server
import json
import os
import queue
import shutil
import signal
import subprocess
import threading
import time
import unittest

from feed import Feed, halves, solid
from support import BLUE, CameraTest, GREEN, RED, has

# Shows each camera in turn until it is told to go on, and reports what the middle of the left and
# right half of the video look like.
PAGE = b"""<!doctype html>
<video id="video" autoplay muted playsinline></video>
<script>
const say = async what =>
    (await fetch('/say', {method: 'POST', body: JSON.stringify(what)})).text();

async function show(device) {
  const stream = await navigator.mediaDevices.getUserMedia(
      {video: {deviceId: {exact: device.deviceId}, width: 1280, height: 720}});
  const video = document.getElementById('video');
  video.srcObject = stream;
  await video.play();
  const canvas = document.createElement('canvas');
  const pen = canvas.getContext('2d', {willReadFrequently: true});
  for (let answer = ''; answer != 'next';) {
    canvas.width = video.videoWidth;
    canvas.height = video.videoHeight;
    pen.drawImage(video, 0, 0);
    const colour = part => Array.from(
        pen.getImageData(canvas.width * part, canvas.height / 2, 1, 1).data).slice(0, 3);
    answer = await say({camera: device.label, size: [canvas.width, canvas.height],
                        colours: [colour(.25), colour(.75)]});
    await new Promise(resolve => setTimeout(resolve, 50));
  }
  stream.getTracks().forEach(track => track.stop());
}

(async () => {
  try {
    // Until a page was allowed to look it is not told what the cameras are called.
    const first = await navigator.mediaDevices.getUserMedia({video: true});
    first.getTracks().forEach(track => track.stop());
    const devices = (await navigator.mediaDevices.enumerateDevices()).filter(
        device => device.kind == 'videoinput');
    await say({cameras: devices.map(device => device.label)});
    for (const device of devices) await show(device);
    await say({end: true});
  } catch (error) {
    await say({error: String(error)});
  }
})();
</script>
"""


class Page(http.server.BaseHTTPRequestHandler):
    def answer(self, kind, text):
        self.send_response(200)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(text)))
        self.end_headers()
        self.wfile.write(text)

    def do_GET(self):
        self.answer("text/html", PAGE)

    def do_POST(self):
        self.server.said.put(json.loads(self.rfile.read(int(self.headers["Content-Length"]))))
        try:
            self.answer("text/plain", self.server.answers.get_nowait())
        except queue.Empty:
            self.answer("text/plain", b"")

    def log_message(self, *_):
        pass


class BrowserTest(CameraTest):
    def setUp(self):
        super().setUp()
        if not has("chromium"):
            self.skipTest("chromium is not installed")
        self.server = http.server.ThreadingHTTPServer(("localhost", 0), Page)
        self.server.said = queue.Queue()
        self.server.answers = queue.Queue()
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        self.addCleanup(self.server.server_close)
        self.addCleanup(self.server.shutdown)

    def open_page(self, **more):
        self.log = os.path.join(self.directory, "log")
        with open(self.log, "wb") as log:
            browser = subprocess.Popen(
                ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                 "--no-first-run", "--disable-background-networking",
                 "--disable-component-update", "--disable-sync", "--disable-dev-shm-usage",
                 "--use-fake-ui-for-media-stream", "--user-data-dir=" + self.directory + "/profile",
                 f"http://localhost:{self.server.server_port}/"],
                env=self.environment(HOME=self.directory, **more), stdin=subprocess.DEVNULL,
                stdout=log, stderr=log, start_new_session=True)
        self.addCleanup(self.end, browser)

    def end(self, browser):
        os.killpg(browser.pid, signal.SIGKILL)
        browser.wait()
        # The last of its processes may still be writing there.
        profile = os.path.join(self.directory, "profile")
        end = time.monotonic() + 30
        while os.path.exists(profile) and time.monotonic() < end:
            shutil.rmtree(profile, ignore_errors=True)

    def hear(self, wanted, within=90):
        """What the page says next that is as wanted."""
        end = time.monotonic() + within
        said = None
        while time.monotonic() < end:
            try:
                said = self.server.said.get(timeout=end - time.monotonic())
            except queue.Empty:
                break
            if wanted(said):
                return said
            if "error" in said:
                break
        with open(self.log, encoding="utf-8", errors="replace") as log:
            raise AssertionError(f"the page said last: {said}\n" + log.read()[-3000:])

    def await_colours(self, camera, *colours):
        """Colours that went through a video's and a screen's colour spaces."""
        wanted = [list(reversed(colour)) for colour in colours]
        said = self.hear(lambda said: said.get("camera") == camera and all(
            abs(a - b) <= 6 for s, w in zip(said["colours"], wanted) for a, b in zip(s, w)))
        self.assertEqual(said["size"], [1280, 720])

    def test_page_lists_and_shows_both_cameras(self):
        feeds = {}
        for side in ("back", "front"):
            feeds[side] = Feed(f"{self.directory}/device-{side}.shm")
            self.addCleanup(feeds[side].close)
        feeds["back"].write(1280, 720, halves(1280, 720, RED, BLUE))
        feeds["front"].write(1280, 720, solid(1280, 720, GREEN))
        self.open_page(LENSLARK_DEVICE_FEED=self.directory + "/device")
        self.assertEqual(self.hear(lambda said: "cameras" in said)["cameras"],
                         ["Lenslark Camera", "Lenslark Camera (Front)"])
        self.await_colours("Lenslark Camera", RED, BLUE)
        feeds["back"].write(1280, 720, halves(1280, 720, GREEN, RED))
        self.await_colours("Lenslark Camera", GREEN, RED)
        self.server.answers.put(b"next")
        self.await_colours("Lenslark Camera (Front)", GREEN, GREEN)
        self.server.answers.put(b"next")
        self.hear(lambda said: "end" in said)


if __name__ == "__main__":
    unittest.main()
