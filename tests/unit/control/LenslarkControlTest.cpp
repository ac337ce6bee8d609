#include "control/LenslarkControl.h"

#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace lenslark {
namespace {

using Status = Notification;

/// Gives the answers that it was made with, in their order, to whoever asks.
class ScriptedBus final : public NotificationBus {
 public:
  explicit ScriptedBus(std::vector<Status> answers = {}) : answers_(std::move(answers)) {}

  std::optional<Notification> ask(const Notification& question, const std::string& answerName,
                                  Acceptance accepts, std::chrono::milliseconds patience) override {
    posted.push_back(question);
    awaited = answerName;
    waited = patience;
    for (Status status : answers_) {
      if (auto id = status.userInfo.find("id");
          id != status.userInfo.end() && id->second == "the question's") {
        id->second = question.userInfo.at("id");
      }
      if (accepts(status)) return status;
    }
    return std::nullopt;
  }
  void post(const Notification& notification) override { posted.push_back(notification); }

  std::vector<Notification> posted;
  std::string awaited;
  std::chrono::milliseconds waited{};

 private:
  std::vector<Status> answers_;
};

Status status(std::optional<std::string> object, std::map<std::string, std::string> userInfo) {
  return {.name = "dev.lenslark.status", .object = std::move(object), .userInfo = userInfo};
}

std::optional<std::string> answerAmong(std::vector<Status> answers) {
  ScriptedBus bus(std::move(answers));
  return LenslarkControl::send("status", std::chrono::seconds(1), bus);
}

TEST(LenslarkControlTest, postsTheWordWithAnIdAndWaitsForTheStatus) {
  ScriptedBus bus;
  LenslarkControl::send("toggle", std::chrono::milliseconds(1500), bus);
  ASSERT_EQ(bus.posted.size(), 1U);
  EXPECT_EQ(bus.posted[0].name, "dev.lenslark.command");
  EXPECT_EQ(bus.posted[0].object, "toggle");
  EXPECT_EQ(bus.posted[0].userInfo.size(), 1U);
  EXPECT_EQ(bus.posted[0].userInfo.at("id").size(), 36U);
  EXPECT_EQ(bus.awaited, "dev.lenslark.status");
  EXPECT_EQ(bus.waited, std::chrono::milliseconds(1500));
}

TEST(LenslarkControlTest, everyQuestionHasAnIdOfItsOwn) {
  ScriptedBus bus;
  for (int i = 0; i < 100; ++i) LenslarkControl::send("status", std::chrono::seconds(0), bus);
  std::set<std::string> ids;
  for (const Notification& command : bus.posted) ids.insert(command.userInfo.at("id"));
  EXPECT_EQ(ids.size(), 100U);
}

TEST(LenslarkControlTest, takesTheFirstAnswerThatCanBeMeant) {
  const auto own = status("own", {{"id", "the question's"}});
  const auto foreign = status("foreign", {{"id", "another"}});
  const auto withoutId = status("without id", {});
  const auto otherKey = status("other key", {{"ID", "another"}});
  const auto noText = status(std::nullopt, {{"id", "the question's"}});
  const auto emptyId = status("empty id", {{"id", ""}});
  const auto emptyText = status("", {{"id", "the question's"}});
  EXPECT_EQ(answerAmong({own}), "own");
  EXPECT_EQ(answerAmong({foreign}), std::nullopt);
  EXPECT_EQ(answerAmong({foreign, own}), "own");
  EXPECT_EQ(answerAmong({withoutId, own}), "without id");
  EXPECT_EQ(answerAmong({otherKey}), "other key");
  EXPECT_EQ(answerAmong({noText}), std::nullopt);
  EXPECT_EQ(answerAmong({noText, own}), "own");
  EXPECT_EQ(answerAmong({emptyId}), std::nullopt);
  EXPECT_EQ(answerAmong({emptyText}), "");
}

TEST(LenslarkControlTest, aReplyCarriesTheCommandsId) {
  ScriptedBus bus;
  LenslarkControl::reply(
      "on", {.name = "dev.lenslark.command", .object = "status", .userInfo = {{"id", "7"}}}, bus);
  EXPECT_EQ(bus.posted, std::vector{status("on", {{"id", "7"}})});
}

TEST(LenslarkControlTest, aReplyToACommandWithoutIdHasNone) {
  ScriptedBus bus;
  LenslarkControl::reply(
      "on", {.name = "dev.lenslark.command", .object = "status", .userInfo = {{"other", "7"}}},
      bus);
  EXPECT_EQ(bus.posted, std::vector{status("on", {})});
}

}  // namespace
}  // namespace lenslark
