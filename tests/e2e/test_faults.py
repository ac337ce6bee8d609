"""What is left when a call of the operating system fails in the middle of a command.

Everything is tried by `LENSLARK_SWEEP=all ctest -R e2e-faults`, or by this module alone through
run.py; otherwise a part that takes seconds.
"""

import errno
import hashlib
import json
import os
import pathlib
import shutil
import unittest

import framefile
from lenslark import EndToEndTest, eventually

CALLS = ("open", "write", "fsync", "rename", "ftruncate", "fallocate", "mmap", "flock")
ERRORS = (errno.ENOSPC, errno.EIO, errno.EINTR, errno.EMFILE, errno.EACCES)
SWEEP_ALL = os.environ.get("LENSLARK_SWEEP") == "all"
# Calls after which a command may go on, in order and with status 0.
MOST_CALLS = 60


def library():
    return pathlib.Path(os.environ["LENSLARK_BUILD"]) / "tests/lenslark-faults.so"


class FaultTest(EndToEndTest):
    def setUp(self):
        super().setUp()
        if not library().exists():
            self.skipTest("the library that makes calls fail was not built")
        self.report = self.folder / "report"
        self.counts = {"faults": 0, "survived": 0, "refused": 0}

    def faulty(self, call, number, error):
        self.report.unlink(missing_ok=True)
        return {**self.lenslark.environment, "LD_PRELOAD": str(library()),
                "LENSLARK_FAULT": f"{call}:{number}:{error}",
                "LENSLARK_FAULT_BELOW": str(self.folder),
                "LENSLARK_FAULT_REPORT": str(self.report)}

    def each_fault(self, check, calls=CALLS, errors=ERRORS):
        """Each failure of each call, until a command does not come to that call any more."""
        for call in calls:
            for error in errors:
                for number in range(1, MOST_CALLS):
                    self.report.unlink(missing_ok=True)
                    with self.subTest(f"{call} {number} fails with {errno.errorcode[error]}"):
                        check(call, number, error)
                    if not self.report.exists():
                        break
                    self.counts["faults"] += 1
                else:
                    self.fail(f"more than {MOST_CALLS} calls of {call}")

    def fault(self):
        """The call that has failed and its file; nothing when it was not reached."""
        return self.report.read_text().split()[:2] if self.report.exists() else None

    def assert_told(self, result, error, allowed=()):
        """A refusal names a file of ours and says why."""
        text = result.stderr.decode()
        self.assertTrue(text.startswith("error: "), text)
        self.assertEqual(text.count("\n"), 1, text)
        self.assertNotIn("terminate", text)
        if any(words in text for words in allowed):
            return
        self.assertIn(str(self.folder), text)
        self.assertIn(os.strerror(error), text)

    def temporary_files(self):
        return [str(path) for path in self.lenslark.support.rglob("*")
                if ".tmp-" in path.name or path.name.startswith(".import-")]

    def config(self):
        return json.loads(self.lenslark.config_file.read_text())

    def assert_library_whole(self):
        """Every entry has its file, with the content it is named by, and its thumbnail."""
        media = self.lenslark.support / "Media"
        index = media / "index.json"
        items = json.loads(index.read_text()) if index.exists() else []
        for item in items:
            digest = hashlib.sha256((media / "items" / item["file"]).read_bytes()).hexdigest()
            self.assertEqual(item["id"], "sha256:" + digest)
            self.assertTrue((media / "thumbs" / (digest + ".jpg")).exists())
        stored = {item["file"] for item in items}
        there = set(os.listdir(media / "items")) if (media / "items").exists() else set()
        self.assertEqual(there, stored)
        return items

    def tearDown(self):
        super().tearDown()
        if self.counts["faults"]:
            print(f"\n{self.id().rpartition('.')[2]}: {self.counts}", flush=True)


class SettingTest(FaultTest):
    def test_a_setting_is_the_old_or_the_new_one_whatever_fails(self):
        def check(call, number, error):
            self.assertEqual(self.lenslark.run("source", "set", "desktop").returncode, 0)
            before = self.config()
            result = self.lenslark.run("source", "set", "display", "2",
                                       env=self.faulty(call, number, error))
            if result.returncode != 0:
                self.counts["refused"] += 1
                self.assert_told(result, error)
                self.assertEqual(self.config(), before)
            else:
                self.counts["survived"] += 1
                self.assertEqual(self.config()["assignments"][0]["source"]["displayIndex"], 2)
            self.assertEqual(self.temporary_files(), [])
        self.each_fault(check)

    def test_a_first_setting_leaves_a_whole_file_or_none(self):
        def check(call, number, error):
            shutil.rmtree(self.lenslark.support, ignore_errors=True)
            result = self.lenslark.run("source", "set", "pattern",
                                       env=self.faulty(call, number, error))
            self.assertEqual(result.returncode == 0, self.lenslark.config_file.exists())
            if self.lenslark.config_file.exists():
                self.assertEqual(len(self.config()["assignments"]), 1)
            self.assertEqual(self.temporary_files(), [])
        self.each_fault(check, errors=ERRORS if SWEEP_ALL else (errno.ENOSPC,))

    def test_what_was_set_before_is_still_there(self):
        """A reader that fails must not make the settings look empty and write that."""
        for kind, device in (("pattern", None), ("display", "ios:A"), ("desktop", "ios:B")):
            scope = {"kind": "device", "deviceKey": device} if device else {"kind": "global"}
            config = self.config() if self.lenslark.config_file.exists() else {
                "schemaVersion": 1, "assignments": [], "knownDevices": [],
                "settings": {"fill": True, "fps": 30, "autoInjectSimulators": True}}
            config["assignments"].append({"scope": scope, "source": {"kind": kind}})
            self.lenslark.support.mkdir(exist_ok=True)
            self.lenslark.config_file.write_text(json.dumps(config))
        def check(call, number, error):
            self.lenslark.run("source", "set", "display", str(number),
                              env=self.faulty(call, number, error))
            scopes = [entry["scope"].get("deviceKey") for entry in self.config()["assignments"]]
            self.assertEqual(sorted(scope for scope in scopes if scope), ["ios:A", "ios:B"])
        self.each_fault(check, calls=("open", "write", "rename"))


class ImportTest(FaultTest):
    ALLOWED = ("is not a readable file",)

    def check(self, call, number, error, picture, held):
        result = self.lenslark.run("media", "add", picture, env=self.faulty(call, number, error))
        items = {item["name"] for item in self.assert_library_whole()}
        self.assertLessEqual(held, items)
        self.assertEqual(self.temporary_files(), [])
        if result.returncode == 0:
            self.counts["survived"] += 1
            self.assertIn(picture.name, items)
            self.assertEqual(self.lenslark.run("media", "rm", picture.name).returncode, 0)
        else:
            self.counts["refused"] += 1
            self.assertNotIn(picture.name, items)
            self.assert_told(result, error, self.ALLOWED)

    def test_an_import_is_whole_or_leaves_nothing_whatever_fails(self):
        kept = self.picture("kept.png", size=(16, 12))
        self.lenslark.import_media(kept)
        picture = self.picture("new.png", size=(20, 12))
        errors = ERRORS if SWEEP_ALL else (errno.ENOSPC, errno.EINTR)
        self.each_fault(lambda *fault: self.check(*fault, picture, {"kept.png"}), errors=errors)

    def test_a_known_picture_stays_whatever_fails(self):
        picture = self.picture("known.png", size=(16, 12))
        self.lenslark.import_media(picture)

        def check(call, number, error):
            result = self.lenslark.run("media", "add", picture, "--pin",
                                       env=self.faulty(call, number, error))
            items = self.assert_library_whole()
            self.assertEqual([item["name"] for item in items], ["known.png"])
            if result.returncode != 0:
                self.assert_told(result, error, self.ALLOWED)
            elif self.fault():
                self.assertTrue(items[0]["pinned"])
        self.each_fault(check, errors=ERRORS if SWEEP_ALL else (errno.EIO,))


class ServeTest(FaultTest):
    def test_serve_feeds_in_the_end_or_says_what_failed(self):
        self.assertEqual(self.lenslark.run("source", "set", "pattern").returncode, 0)
        before = self.config()
        errors = ERRORS if SWEEP_ALL else (errno.EIO,)
        calls = CALLS if SWEEP_ALL else ("open", "fallocate", "mmap")

        def check(call, number, error):
            self.lenslark.feed.unlink(missing_ok=True)
            environment = self.lenslark.environment
            self.lenslark.environment = self.faulty(call, number, error)
            try:
                with self.lenslark.serve(wait=False) as serving:
                    # What could not be opened is tried again every five seconds.
                    eventually(self.lenslark.frame, deadline=30)
                errors_told = serving.errors()
            finally:
                self.lenslark.environment = environment
            # Which devices run on this machine is noted there too.
            after = {**self.config(), "knownDevices": before["knownDevices"]}
            self.assertEqual(after, before)
            self.assertEqual(framefile.header(self.lenslark.feed).writer_pid, 0)
            fault = self.fault()
            # What may not be opened is replaced, without a word.
            silent = error == errno.EINTR or (call, error) == ("open", errno.EACCES)
            if fault and fault[1] == str(self.lenslark.feed) and not silent:
                self.assertIn(str(self.lenslark.feed), errors_told)
                self.assertIn(os.strerror(error), errors_told)
        self.each_fault(check, calls=calls, errors=errors)


if __name__ == "__main__":
    unittest.main()
