"""The installed program, wherever it was installed to."""

import os
import pathlib
import re
import shutil
import subprocess
import unittest

from lenslark import EndToEndTest, Lenslark, eventually

BUILD = pathlib.Path(os.environ["LENSLARK_BUILD"])


class InstallTest(EndToEndTest):
    def install(self, prefix, destdir=None):
        environment = {**os.environ, **({"DESTDIR": str(destdir)} if destdir else {})}
        result = subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix], env=environment,
                                capture_output=True, check=False)
        self.assertEqual(result.returncode, 0, result.stderr)

    def assert_serves_pictures(self, program):
        with Lenslark(program, self.folder).serve("--image", self.picture()):
            eventually(self.lenslark.frame)

    def test_puts_everything_where_it_belongs(self):
        self.install("/usr", self.folder / "root")
        root = self.folder / "root" / "usr"
        found = {str(path.relative_to(root)) for path in root.rglob("*") if path.is_file()}
        documents = {path for path in found if path.startswith("share/doc/lenslark/")}
        library = next(path for path in found if path.endswith("/lenslark-image.so"))
        modules = pathlib.Path(library).parent
        self.assertTrue(modules.match("lib*/lenslark") or modules.match("lib/*/lenslark"), modules)
        self.assertEqual(found - documents, {
            "bin/lenslark",
            "bin/lenslark-run",
            "include/lenslark/frame_file.h",
            *(str(modules / name) for name in (
                "LenslarkEmuInject.so", "lenslark-bus.so", "lenslark-image.so",
                "lenslark-screen.so", "lenslark-video.so")),
            "share/bash-completion/completions/lenslark",
            "share/fish/vendor_completions.d/lenslark.fish",
            "share/man/man1/lenslark.1",
            "share/zsh/vendor-completions/_lenslark",
        })
        self.assertIn("share/doc/lenslark/README.md", documents)

    def test_the_links_of_its_documents_lead_somewhere(self):
        self.install(self.folder / "prefix")
        documents = list((self.folder / "prefix").rglob("*.md"))
        self.assertIn("README.md", {document.name for document in documents})
        for document in documents:
            for link in re.findall(r"\]\(([^)#\s]+)", document.read_text()):
                if "://" not in link:
                    with self.subTest(document=document.name, link=link):
                        self.assertTrue((document.parent / link).is_file())

    def test_runs_from_a_staging_root(self):
        self.install("/usr", self.folder / "root")
        self.assert_serves_pictures(self.folder / "root" / "usr" / "bin" / "lenslark")

    def test_runs_from_any_prefix_and_after_a_move(self):
        self.install(self.folder / "one")
        shutil.move(self.folder / "one", self.folder / "two")
        self.assert_serves_pictures(self.folder / "two" / "bin" / "lenslark")

    def test_runs_through_a_link(self):
        self.install(self.folder / "prefix")
        (self.folder / "link").symlink_to(self.folder / "prefix" / "bin" / "lenslark")
        self.assert_serves_pictures(self.folder / "link")

    def test_needs_no_module_for_the_help(self):
        self.install(self.folder / "prefix")
        for module in (self.folder / "prefix").rglob("*.so"):
            module.unlink()
        program = Lenslark(self.folder / "prefix" / "bin" / "lenslark", self.folder)
        self.assertEqual(program.run("version").stdout, b"1.1.0\n")

    def test_says_which_module_is_missing(self):
        self.install(self.folder / "prefix")
        for module in (self.folder / "prefix").rglob("*.so"):
            module.unlink()
        program = Lenslark(self.folder / "prefix" / "bin" / "lenslark", self.folder)
        result = program.run("serve", "--image", self.picture())
        self.assertEqual(result.returncode, 1)
        self.assertIn("lenslark-image.so", result.stderr.decode())


if __name__ == "__main__":
    unittest.main()
