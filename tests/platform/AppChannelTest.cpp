#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "base/FileDescriptor.h"
#include "control/LenslarkControl.h"
#include "platform/RunningApplications.h"
#include "support/SessionBus.h"

namespace lenslark {
namespace {

using std::chrono::milliseconds;
using namespace std::chrono_literals;
using UserInfo = std::map<std::string, std::string>;

/// An application as its author would write it from the description of the channel, with none of
/// the program's code.
class StandIn {
 public:
  using Behaviour = std::function<void(StandIn&, const std::string& word, const std::string& id)>;

  explicit StandIn(Behaviour behaviour) : behaviour_(std::move(behaviour)) {
    connection_->addMatch(
        "type='signal',interface='dev.lenslark',member='command',path='/dev/lenslark'",
        [this](sdbus::Message& message) {
          std::string word;
          UserInfo userInfo;
          message >> word >> userInfo;
          behaviour_(*this, word, userInfo["id"]);
        },
        sdbus::floating_slot);
    connection_->enterEventLoopAsync();
  }
  ~StandIn() { connection_->leaveEventLoop(); }

  sdbus::IConnection& connection() { return *connection_; }

  template <typename... Arguments>
  void say(const Arguments&... arguments) {
    auto signal = object_->createSignal("dev.lenslark", "status");
    (signal << ... << arguments);
    object_->emitSignal(signal);
  }
  void sayNothing() { object_->emitSignal(object_->createSignal("dev.lenslark", "status")); }

 private:
  const Behaviour behaviour_;
  const std::unique_ptr<sdbus::IConnection> connection_ = sdbus::createSessionBusConnection();
  const std::unique_ptr<sdbus::IObject> object_ =
      sdbus::createObject(*connection_, "/dev/lenslark");
};

class AppChannelTest : public testing::Test {
 protected:
  static std::optional<std::string> ask(const std::string& word = "status",
                                        milliseconds patience = 10s) {
    return LenslarkControl::send(word, patience);
  }

  SessionBus bus;
};

double secondsOf(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST_F(AppChannelTest, anApplicationGetsTheWordAndItsAnswerComesBack) {
  StandIn application([](StandIn& self, const std::string& word, const std::string& id) {
    self.say("got " + word, UserInfo{{"id", id}});
  });
  EXPECT_EQ(ask("toggle"), "got toggle");
}

TEST_F(AppChannelTest, withoutAnApplicationTheWaitEndsAtItsDeadline) {
  const double seconds = secondsOf([] { EXPECT_EQ(ask("status", 300ms), std::nullopt); });
  EXPECT_GE(seconds, 0.3);
  EXPECT_LT(seconds, 3);
}

TEST_F(AppChannelTest, twoSendersEachGetTheAnswerToTheirOwnQuestion) {
  // Answers only when both have asked, so that either hears the other's answer too.
  std::mutex mutex;
  std::vector<std::pair<std::string, std::string>> asked;
  StandIn application([&](StandIn& self, const std::string& word, const std::string& id) {
    const std::lock_guard lock(mutex);
    asked.emplace_back(word, id);
    if (asked.size() < 2) return;
    for (const auto& [itsWord, itsId] : asked) self.say(itsWord, UserInfo{{"id", itsId}});
  });
  auto other = std::async(std::launch::async, [] { return ask("enable"); });
  EXPECT_EQ(ask("disable"), "disable");
  EXPECT_EQ(other.get(), "enable");
}

TEST_F(AppChannelTest, anAnswerWithAForeignIdIsNotOurs) {
  StandIn application([](StandIn& self, const std::string&, const std::string& id) {
    self.say(std::string("foreign"), UserInfo{{"id", "B5A4C7E0"}});
    self.say(std::string("ours"), UserInfo{{"id", id}});
  });
  EXPECT_EQ(ask(), "ours");
}

TEST_F(AppChannelTest, anAnswerWithoutIdIsTaken) {
  StandIn application([](StandIn& self, const std::string&, const std::string&) {
    self.say(std::string("simple"), UserInfo{});
  });
  EXPECT_EQ(ask(), "simple");
}

TEST_F(AppChannelTest, anAnswerOfNothingButTextIsTaken) {
  StandIn application(
      [](StandIn& self, const std::string&, const std::string&) { self.say(std::string("bare")); });
  EXPECT_EQ(ask(), "bare");
}

TEST_F(AppChannelTest, whatIsNoTextIsPassedOver) {
  StandIn application([](StandIn& self, const std::string&, const std::string& id) {
    self.say(std::int32_t{7}, UserInfo{{"id", id}});
    self.say(UserInfo{{"id", id}});
    self.sayNothing();
    self.say(std::string("text"), UserInfo{{"id", id}});
  });
  EXPECT_EQ(ask(), "text");
}

TEST_F(AppChannelTest, aTableOfAnythingTellsItsIdToo) {
  using Table = std::map<std::string, sdbus::Variant>;
  StandIn application([](StandIn& self, const std::string&, const std::string& id) {
    self.say(std::string("foreign"), Table{{"id", sdbus::Variant("B5A4C7E0")}});
    self.say(std::string("ours"), Table{{"id", sdbus::Variant(id)}, {"n", sdbus::Variant(7)}});
  });
  EXPECT_EQ(ask(), "ours");
}

TEST_F(AppChannelTest, anIdInATableOfAnythingThatIsNoTextIsNoId) {
  StandIn application([](StandIn& self, const std::string&, const std::string&) {
    self.say(std::string("numbered"),
             std::map<std::string, sdbus::Variant>{{"id", sdbus::Variant(7)}});
  });
  EXPECT_EQ(ask(), "numbered");
}

TEST_F(AppChannelTest, anIdOfAnotherTypeIsNoId) {
  StandIn application([](StandIn& self, const std::string&, const std::string&) {
    self.say(std::string("numbered"), std::map<std::string, std::int32_t>{{"id", 7}});
  });
  EXPECT_EQ(ask(), "numbered");
}

TEST_F(AppChannelTest, aLateAnswerIsNoAnswerToTheNextQuestion) {
  std::string lateId;
  StandIn application([&](StandIn& self, const std::string&, const std::string& id) {
    if (!lateId.empty()) {
      self.say(std::string("late"), UserInfo{{"id", lateId}});
      self.say(std::string("in time"), UserInfo{{"id", id}});
    }
    lateId = id;
  });
  EXPECT_EQ(ask("status", 300ms), std::nullopt);
  EXPECT_EQ(ask(), "in time");
}

TEST_F(AppChannelTest, aBusThatDiesMeanwhileIsNoAnswer) {
  std::promise<void> asked;
  auto application = std::make_unique<StandIn>(
      [&](StandIn&, const std::string&, const std::string&) { asked.set_value(); });
  auto answer = std::async(std::launch::async, [] { return ask(); });
  asked.get_future().wait();
  application.reset();
  bus.daemon().signal(SIGKILL);
  EXPECT_LT(secondsOf([&] { EXPECT_EQ(answer.get(), std::nullopt); }), 8);
}

TEST_F(AppChannelTest, aBusThatIsStoppedIsNoAnswer) {
  bus.daemon().signal(SIGSTOP);
  EXPECT_LT(secondsOf([] { EXPECT_EQ(ask("status", 300ms), std::nullopt); }), 5);
  bus.daemon().signal(SIGCONT);
}

TEST_F(AppChannelTest, aReplyGivesTheQuestionsIdBack) {
  StandIn application([](StandIn&, const std::string& word, const std::string& id) {
    LenslarkControl::reply(
        "did " + word,
        {.name = LenslarkControl::commandName, .object = word, .userInfo = {{"id", id}}});
  });
  EXPECT_EQ(ask("enable"), "did enable");
}

TEST_F(AppChannelTest, theOwnerOfTheNameIsTheRunningApplication) {
  StandIn application([](StandIn&, const std::string&, const std::string&) {});
  application.connection().requestName("dev.lenslark.Lenslark");
  EXPECT_EQ(RunningApplications::find("dev.lenslark.Lenslark"),
            (RunningApplications::Application{::getpid(), "?"}));
}

TEST_F(AppChannelTest, aRunningApplicationMayTellItsVersion) {
  StandIn application([](StandIn&, const std::string&, const std::string&) {});
  const auto object = sdbus::createObject(application.connection(), "/dev/lenslark");
  object->registerProperty("Version").onInterface("dev.lenslark").withGetter([] {
    return std::string("2.3");
  });
  object->finishRegistration();
  application.connection().requestName("dev.lenslark.Lenslark");
  EXPECT_EQ(RunningApplications::find("dev.lenslark.Lenslark"),
            (RunningApplications::Application{::getpid(), "2.3"}));
}

TEST_F(AppChannelTest, anApplicationThatHangsRunsAllTheSame) {
  const auto silent = sdbus::createSessionBusConnection("dev.lenslark.Lenslark");
  EXPECT_EQ(RunningApplications::find("dev.lenslark.Lenslark"),
            (RunningApplications::Application{::getpid(), "?"}));
}

TEST_F(AppChannelTest, aNameWithoutOwnerIsNoRunningApplication) {
  EXPECT_EQ(RunningApplications::find("dev.lenslark.Lenslark"), std::nullopt);
}

TEST(AppChannelWithoutBusTest, isNoAnswer) {
  const TemporaryDirectory folder;
  const ScopedVariable nowhere("DBUS_SESSION_BUS_ADDRESS",
                               "unix:path=" + (folder / "none").string());
  EXPECT_EQ(LenslarkControl::send("status", 10s), std::nullopt);
  EXPECT_EQ(RunningApplications::find("dev.lenslark.Lenslark"), std::nullopt);
}

TEST(AppChannelWithoutBusTest, anAddressThatIsNoneIsNoAnswer) {
  const ScopedVariable nonsense("DBUS_SESSION_BUS_ADDRESS", "nonsense");
  EXPECT_EQ(LenslarkControl::send("status", 10s), std::nullopt);
}

TEST(AppChannelWithoutBusTest, aSocketThatNeverAnswersIsNoAnswer) {
  const TemporaryDirectory folder;
  const std::string path = (folder / "bus").string();
  const FileDescriptor server(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(server.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(::listen(server.get(), 1), 0);
  const ScopedVariable silent("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + path);
  EXPECT_LT(secondsOf([] { EXPECT_EQ(LenslarkControl::send("status", 300ms), std::nullopt); }), 5);
}

}  // namespace
}  // namespace lenslark
