"""The check of the layers finds what it is there to find."""

import pathlib
import tempfile
import unittest

import check_layers


class CheckLayersTest(unittest.TestCase):
    def complaints(self, path, line):
        with tempfile.TemporaryDirectory() as directory:
            file = pathlib.Path(directory) / path
            file.parent.mkdir(parents=True)
            file.write_text(line + "\n", encoding="utf-8")
            return check_layers.complaints(pathlib.Path(directory))

    def accepted(self, path, line):
        self.assertEqual(self.complaints(path, line), [])

    def refused(self, path, line, reason):
        found = self.complaints(path, line)
        self.assertEqual(len(found), 1, found)
        self.assertIn(reason, found[0])
        self.assertTrue(found[0].startswith(path + ":1: "))

    def test_accepts_own_and_lower_layers(self):
        self.accepted("core/config/A.cpp", '#include "config/A.h"')
        self.accepted("core/config/A.cpp", '#include "base/Text.h"')
        self.accepted("cli/mcp/A.cpp", '#include "control/A.h"')

    def test_refuses_an_include_that_points_upward(self):
        self.refused("core/base/A.h", '#include "config/A.h"', "points upward, from base to config")
        self.refused("core/feeds/A.h", '  #  include "control/A.h"', "points upward")

    def test_refuses_a_relative_include(self):
        self.refused("core/config/A.h", '#include "../base/A.h"', "leaves its directory")
        self.refused("core/config/A.h", '#include "base/../feeds/A.h"', "leaves its directory")

    def test_refuses_an_include_without_its_layer(self):
        self.refused("core/config/A.cpp", '#include "A.h"', "names no layer")

    def test_refuses_a_library_outside_its_owner(self):
        self.refused("core/config/A.cpp", "#include <vips/vips.h>", "does not own")
        self.refused("core/config/A.h", "#include <nlohmann/json.hpp>", "does not own")
        self.refused("core/feeds/A.cpp", "#include <asio/post.hpp>", "does not own")

    def test_accepts_a_library_in_its_owner(self):
        self.accepted("core/codecs/image/A.cpp", "#include <vips/vips.h>")
        self.accepted("core/config/A.cpp", "#include <nlohmann/json.hpp>")
        self.accepted("core/config/A.h", "#include <nlohmann/json_fwd.hpp>")

    def test_accepts_the_standard_library(self):
        self.accepted("core/config/A.h", "#include <string_view>")
        self.accepted("core/config/A.cpp", "#include <unistd.h>")

    def test_refuses_a_library_that_nobody_owns(self):
        self.refused("core/config/A.cpp", "#include <boost/any.hpp>", "without an owner")


if __name__ == "__main__":
    unittest.main()
