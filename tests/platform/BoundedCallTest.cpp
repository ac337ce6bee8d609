#include "platform/linux/BoundedCall.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <stdexcept>

#include "support/Eventually.h"

namespace lenslark {
namespace {

using namespace std::chrono_literals;

TEST(BoundedCallTest, givesBackWhatTheWorkReturns) {
  BoundedCall bounded;
  EXPECT_EQ(bounded(10s, [] { return 7; }), 7);
}

TEST(BoundedCallTest, throwsWhatTheWorkThrows) {
  BoundedCall bounded;
  EXPECT_THROW(bounded(10s, []() -> int { throw std::runtime_error("no"); }), std::runtime_error);
}

TEST(BoundedCallTest, givesUpWorkThatHangs) {
  BoundedCall bounded;
  const auto release = std::make_shared<std::promise<void>>();
  const auto hangs = [until = release->get_future().share()] {
    until.wait();
    return 7;
  };
  EXPECT_EQ(bounded(20ms, hangs), std::nullopt);
  release->set_value();
}

TEST(BoundedCallTest, refusesWorkWhileEarlierWorkHangs) {
  BoundedCall bounded;
  const auto release = std::make_shared<std::promise<void>>();
  const auto hangs = [until = release->get_future().share()] {
    until.wait();
    return 7;
  };
  bounded(20ms, hangs);
  EXPECT_EQ(bounded(10s, [] { return 7; }), std::nullopt);
  release->set_value();
  EXPECT_TRUE(eventually([&] { return bounded(10s, [] { return 7; }) == 7; }));
}

}  // namespace
}  // namespace lenslark
