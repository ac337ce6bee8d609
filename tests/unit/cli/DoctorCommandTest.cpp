#include "commands/DoctorCommand.h"

#include <gtest/gtest.h>

namespace lenslark {
namespace {

using Doctor::Check;
using Doctor::Level;

TEST(DoctorCommandTest, marksTitlesAndIndentsWhatBelongsToThem) {
  EXPECT_EQ(DoctorCommand::text({Check{Level::ok, "fine", {}, {}},
                                 Check{Level::warning, "hm", {"why", "  where"}, "do this"},
                                 Check{Level::error, "bad", {}, "do that"},
                                 Check{Level::info, "by the way", {}, {}}}),
            "✓ fine\n"
            "! hm\n"
            "    why\n"
            "      where\n"
            "    fix: do this\n"
            "✗ bad\n"
            "    fix: do that\n"
            "· by the way\n");
}

TEST(DoctorCommandTest, whatWouldMoveTheCursorIsReplaced) {
  EXPECT_EQ(DoctorCommand::text({Check{Level::ok, "a\nb\x1b[2Jc\x7f", {"d\re"}, "f\tg"}}),
            "✓ a?b?[2Jc?\n    d?e\n    fix: f?g\n");
}

}  // namespace
}  // namespace lenslark
