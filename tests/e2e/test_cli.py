"""The program's verbs, texts and exit statuses."""

import json
import os
import pathlib
import subprocess
import unittest

from lenslark import EndToEndTest, binary

HELP = (pathlib.Path(__file__).parent / "expected" / "help.txt").read_bytes()


class HelpTest(EndToEndTest):
    def assert_help(self, *arguments, advice=b""):
        result = self.lenslark.run(*arguments)
        self.assertEqual(result.stdout, HELP)
        self.assertEqual(result.stderr, advice)
        self.assertEqual(result.returncode, 0)

    def test_no_arguments_print_the_help(self):
        self.assert_help()

    def test_the_word_help_prints_it(self):
        for word in ("help", "--help", "-h"):
            self.assert_help(word)

    def test_an_unknown_verb_prints_it(self):
        self.assert_help("frobnicate")

    def test_verbs_are_case_sensitive(self):
        self.assert_help("SERVE")

    def test_a_misspelt_verb_gets_one_line_of_advice_beside_it(self):
        self.assert_help("verison", advice=b"Did you mean `lenslark version`?\n")

    def test_a_verb_of_any_bytes_prints_it(self):
        self.assert_help(os.fsdecode(b"\xff\xfe"))

    def test_app_with_an_unknown_word_prints_it(self):
        self.assert_help("app", "restart")


class VersionTest(EndToEndTest):
    def test_prints_the_version_on_a_line(self):
        for word in ("version", "--version"):
            result = self.lenslark.run(word)
            self.assertEqual((result.stdout, result.stderr, result.returncode), (b"1.1.0\n", b"", 0))

    def test_maps_no_codec_library(self):
        environment = {**self.lenslark.environment, "LD_DEBUG": "libs"}
        loaded = self.lenslark.run("version", env=environment).stderr.decode()
        self.assertIn("libstdc++", loaded)
        for library in ("libav", "libvips", "libpango", "libcairo", "libpoppler", "lenslark-image",
                        "lenslark-video"):
            self.assertNotIn(library, loaded)

    def test_needs_no_home(self):
        result = self.lenslark.run("version", env={})
        self.assertEqual(result.stdout, b"1.1.0\n")


class FlagAdviceTest(EndToEndTest):
    def test_a_flag_that_is_unknown_is_told_and_left_out(self):
        self.assert_prints(self.lenslark.run("source", "set", "pattern", "--devcie", "x"),
                           "global default → test pattern\n",
                           b"note: --devcie is no flag of `lenslark source` and is left out. "
                           b"Did you mean --device?\n")

    def test_what_is_told_cannot_break_its_line(self):
        self.assert_prints(self.lenslark.run("source", "get", "--a\nb"),
                           "global default → desktop under the window\n",
                           b"note: --a?b is no flag of `lenslark source` and is left out. "
                           b"See `lenslark help`.\n")


class OutputTest(EndToEndTest):
    def test_ends_quietly_when_nobody_reads(self):
        read, write = os.pipe()
        os.close(read)
        result = self.lenslark.run("help", stdout=write, stderr=subprocess.PIPE,
                                   capture_output=False)
        os.close(write)
        self.assertEqual((result.stderr, result.returncode), (b"", 0))

    def test_a_full_disk_is_an_error(self):
        with open("/dev/full", "wb") as full:
            result = self.lenslark.run("version", stdout=full, stderr=subprocess.PIPE,
                                       capture_output=False)
        self.assertEqual(result.stderr, b"error: standard output: No space left on device; make room there\n")
        self.assertEqual(result.returncode, 1)

    def test_a_closed_standard_output_is_an_error(self):
        result = self.without_descriptors(">&-", "source", "set", "pattern")
        self.assertEqual(result.stderr, b"error: standard output: Bad file descriptor\n")
        self.assertEqual(result.returncode, 1)

    def test_nothing_is_printed_into_a_file_that_took_its_place(self):
        result = self.without_descriptors("<&- >&- 2>&-", "source", "set", "pattern")
        self.assertEqual((result.returncode, result.stdout, result.stderr), (1, b"", b""))
        assignment = json.loads(self.lenslark.config_file.read_text())["assignments"][0]
        self.assertEqual(assignment["source"], {"kind": "pattern"})

    def without_descriptors(self, redirection, *arguments):
        return self.lenslark.run(*arguments,
                                 prefix=("/bin/sh", "-c", f'exec "$@" {redirection}', "sh"))

    def test_runs_when_it_is_copied_elsewhere(self):
        copy = self.folder / "copy of lenslark"
        copy.write_bytes(binary().read_bytes())
        copy.chmod(0o755)
        result = subprocess.run([copy, "version"], capture_output=True, check=False)
        self.assertEqual(result.stdout, b"1.1.0\n")


if __name__ == "__main__":
    unittest.main()
