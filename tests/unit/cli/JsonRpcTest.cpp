#include "mcp/JsonRpc.h"

#include <fcntl.h>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "base/Json.h"

namespace lenslark {
namespace {

/// The id of a request as it would be sent back.
std::string echoed(const std::string& id) {
  return JsonRpc::read(R"({"method":"ping","id":)" + id + "}").id.value_or("nothing");
}

TEST(JsonRpcTest, idsOfAnyTypeAreKept) {
  for (const char* id : {"1", "-7", "\"a/b\"", "null", "true", "[1,\"x\"]", R"({"a":1})", "1.5"}) {
    EXPECT_EQ(echoed(id), id);
  }
}

TEST(JsonRpcTest, largeNumbersComeBackUnharmed) {
  for (const char* id : {"9007199254740993", "18446744073709551615", "-9223372036854775808",
                         "123456789012345678901234567890", "1e3", "1.0", "0.10"}) {
    EXPECT_EQ(echoed(id), id);
  }
}

TEST(JsonRpcTest, numbersThatNoTypeHoldsComeBackUnharmed) {
  for (const std::string& id :
       {std::string("1e400"), std::string("-1E+400"), std::string("1e-9999"), std::string("-0"),
        std::string("-0.0"), std::string(400, '1')}) {
    EXPECT_EQ(echoed(id), id);
  }
}

TEST(JsonRpcTest, whatOnlyLooksLikeANumberIsRefused) {
  for (const char* id : {"01", "-", "1.", ".5", "+1", "1e", "1e+", "1 2", "0x1", "1e400.5"}) {
    EXPECT_THROW(echoed(id), JsonError) << id;
  }
}

TEST(JsonRpcTest, largeNumbersWithinAnIdComeBackUnharmed) {
  for (const char* id : {"[123456789012345678901]", R"({"a":[1.0,{"b":[],"c":{}}],"d":"x,[:"})",
                         R"([null,true,false,-0,"ü",[],[[1E5]]])", "[[],[[]],{}]"}) {
    EXPECT_EQ(echoed(id), id);
  }
}

TEST(JsonRpcTest, aTextThatIsAnIdIsWrittenAfresh) {
  EXPECT_EQ(echoed(R"("\u00fc\/")"), "\"ü/\"");
  EXPECT_EQ(echoed(R"([ "\u0001" , 1.0 ])"), R"(["\u0001",1.0])");
}

TEST(JsonRpcTest, onlyTheMessagesOwnIdCounts) {
  EXPECT_EQ(JsonRpc::read(R"({"params":{"id":1.5},"id":2.50,"x":[1.25]})").id, "2.50");
  EXPECT_EQ(JsonRpc::read(R"({"params":[{"id":1},"id"],"a":"\",\"id\":2"})").id, std::nullopt);
}

TEST(JsonRpcTest, theNameOfAnIdMayBeWrittenInEscapes) {
  EXPECT_EQ(JsonRpc::read(R"({"\u0069d":2.0,"\u0069":3})").id, "2.0");
}

TEST(JsonRpcTest, theLastOfTwoIdsCounts) {
  EXPECT_EQ(JsonRpc::read(R"({"id":1.50,"id":2.50})").id, "2.50");
  EXPECT_EQ(JsonRpc::read(R"({"id":[1.50],"x":{"id":3.0},"id":[2.50],"y":[1.0]})").id, "[2.50]");
}

TEST(JsonRpcTest, withoutAnIdItIsANotification) {
  EXPECT_EQ(JsonRpc::read(R"({"method":"x"})").id, std::nullopt);
}

TEST(JsonRpcTest, aMethodThatIsNoTextIsNone) {
  EXPECT_EQ(JsonRpc::read(R"({"id":1,"method":5})").method, "");
}

TEST(JsonRpcTest, answersAreToldFromRequests) {
  EXPECT_TRUE(JsonRpc::read(R"({"id":1,"result":{}})").response);
  EXPECT_TRUE(JsonRpc::read(R"({"id":1,"error":{}})").response);
  EXPECT_FALSE(JsonRpc::read(R"({"id":1,"method":"x"})").response);
  EXPECT_FALSE(JsonRpc::read(R"({"id":1})").response);
}

TEST(JsonRpcTest, whatIsNoObjectIsRefused) {
  for (const std::string line : {"", "garbage", "[]", "[{}]", "5", "\"x\"", "null", "{", "{}{}",
                                 "{\"a\":\"\xff\"}", "{\"a\":\"\\ud800\"}", "{'a':1}"}) {
    EXPECT_THROW(JsonRpc::read(line), JsonError) << line;
  }
}

TEST(JsonRpcTest, whatFollowsANulByteIsNotPassedOver) {
  using namespace std::string_view_literals;
  EXPECT_THROW(JsonRpc::read("{\"method\":\"x\"}\0{\"id\":1,\"method\":\"ping\"}"sv), JsonError);
}

TEST(JsonRpcTest, nestingIsBounded) {
  const auto nested = [](int depth) {
    const auto levels = static_cast<std::size_t>(depth);
    return R"({"a":)" + std::string(levels, '[') + std::string(levels, ']') + "}";
  };
  EXPECT_NO_THROW(JsonRpc::read(nested(Json::maxDepth - 1)));
  EXPECT_THROW(JsonRpc::read(nested(Json::maxDepth)), JsonError);
  EXPECT_THROW(JsonRpc::read(nested(1000000)), JsonError);
}

TEST(JsonRpcTest, linesAreCompactWithPlainSlashes) {
  EXPECT_EQ(JsonRpc::result("7", R"({"path":"/a/b"})"),
            R"({"id":7,"jsonrpc":"2.0","result":{"path":"/a/b"}})");
  EXPECT_EQ(JsonRpc::error("null", -32700, "parse error"),
            R"({"error":{"code":-32700,"message":"parse error"},"id":null,"jsonrpc":"2.0"})");
}

TEST(JsonRpcTest, aLineFeedInATextDoesNotEndTheLine) {
  EXPECT_EQ(JsonRpc::error("1", -32601, "a\nb").find('\n'), std::string::npos);
}

/// The lines of an input, "<too long>" for those that are.
std::vector<std::string> lines(std::string_view bytes, std::size_t longest = 100) {
  FileDescriptor file(memfd_create("input", MFD_CLOEXEC));
  writeAll(file, std::as_bytes(std::span(bytes)), "input");
  lseek(file.get(), 0, SEEK_SET);
  JsonRpc::LineReader reader(std::move(file), longest);
  std::vector<std::string> lines;
  while (const auto line = reader.next()) {
    lines.push_back(line->tooLong ? "<too long>" : line->text);
  }
  return lines;
}

using Lines = std::vector<std::string>;

TEST(LineReaderTest, anEmptyInputHasNoLines) { EXPECT_EQ(lines(""), Lines{}); }

TEST(LineReaderTest, splitsAtLineFeeds) { EXPECT_EQ(lines("a\n\nb\n"), (Lines{"a", "", "b"})); }

TEST(LineReaderTest, theLastLineNeedsNoEnd) { EXPECT_EQ(lines("a\nb"), (Lines{"a", "b"})); }

TEST(LineReaderTest, aLineMayBeAsLongAsTheBound) {
  EXPECT_EQ(lines("12345\n1\n", 5), (Lines{"12345", "1"}));
}

TEST(LineReaderTest, longerLinesAreDroppedAndTheNextOnesRead) {
  EXPECT_EQ(lines("123456\n1\n", 5), (Lines{"<too long>", "1"}));
}

TEST(LineReaderTest, aLineManyTimesTheBoundIsDroppedOnce) {
  EXPECT_EQ(lines(std::string(1000000, 'x') + "\nnext\n"), (Lines{"<too long>", "next"}));
}

TEST(LineReaderTest, aLastLineMayBeTooLong) {
  EXPECT_EQ(lines("a\n" + std::string(1000000, 'x')), (Lines{"a", "<too long>"}));
}

TEST(LineReaderTest, linesLongerThanOneReadAreWhole) {
  const std::string text(10000000, 'x');
  EXPECT_EQ(lines(text + "\nend\n", text.size()), (Lines{text, "end"}));
}

TEST(LineReaderTest, anInputThatCannotBeReadHasEnded) {
  JsonRpc::LineReader reader{FileDescriptor()};
  EXPECT_FALSE(reader.next());
}

TEST(LineReaderTest, aLineIsThereBeforeTheInputEnds) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  const FileDescriptor writer(ends[1]);
  JsonRpc::LineReader reader{FileDescriptor(ends[0])};
  writeAll(writer, std::as_bytes(std::span(std::string_view("first\nsec"))), "pipe");
  EXPECT_EQ(reader.next()->text, "first");
  writeAll(writer, std::as_bytes(std::span(std::string_view("ond\n"))), "pipe");
  EXPECT_EQ(reader.next()->text, "second");
}

}  // namespace
}  // namespace lenslark
