#include <gtest/gtest.h>

#include <utility>

#include "common/progress.h"
#include "support/test_parts.h"

namespace tarnvale {
namespace {

TEST(FixedText, SaysNoToWhatDoesNotFitAndStaysATextForSystemCalls) {
  FixedText<8> text;
  EXPECT_TRUE(text.assign("1234567"));
  EXPECT_FALSE(text.assign("12345678"));
  EXPECT_FALSE(text.append("8"));
  EXPECT_STREQ(text.c_str(), "1234567");
  EXPECT_FALSE(text.join("1234", "5678"));
  EXPECT_STREQ(text.c_str(), "");
  EXPECT_TRUE(text.format("%d", 1234567));
  EXPECT_FALSE(text.format("%d", 12345678));
  EXPECT_STREQ(text.c_str(), "");
  text.assignCut("123456789");
  EXPECT_STREQ(text.c_str(), "1234567");
}

TEST(Messages, ThatAreTooLongLoseTheMiddleOfTheirFileNames) {
  TestMessages messages;
  const std::string name = "/start" + std::string(500, 'x') + "end.txt";
  const std::string text(messages.buffer.capacity - 2, 'x');
  const auto composed = [&](std::initializer_list<MessagePiece> pieces) {
    composeMessage(messages, pieces);
    return std::string(messages.buffer);
  };
  const auto shortened = [](std::size_t kept) {
    return "/start" + std::string(kept, 'x') + "..." + std::string(kept, 'x') + "end.txt";
  };
  EXPECT_EQ(composed({"Can't open ", fileName(name), ".\n"}), "Can't open " + shortened(135) + ".\n");
  EXPECT_EQ(composed({"Indexing ", fileName("a.txt"), " into ", fileName(name), "\n"}),
            "Indexing a.txt into " + shortened(131) + "\n");
  EXPECT_EQ(composed({std::string_view(text), fileName("no room for it")}), text + "..");
  EXPECT_TRUE(composed({std::string_view(text), "1234", fileName("a"), fileName("b")}).starts_with(text));
}

TEST(Messages, CollectedComeInOrderAndNoneAfterTheEnd) {
  TestMessages messages;
  CollectedLines collected;
  putCollectedLine(messages, "at once\n");
  messages.collected = &collected;
  messages.collectedLimit = 8;
  for (const char* const line : {"one\n", "two\n", "six\n", "a long line\n", "end\n"}) putCollectedLine(messages, line);
  EXPECT_EQ(messages.text(), "at once\none\ntwo\nsix\na long line\n");
  putMessage(messages, "other\n");
  EXPECT_EQ(messages.text(), "at once\none\ntwo\nsix\na long line\nend\nother\n");

  std::FILE* const stream = std::exchange(messages.stream, nullptr);
  putMessage(messages, "late");
  putCollectedLine(messages, "late");
  flushMessages(messages);
  closeLog(messages);
  EXPECT_TRUE(messages.text().ends_with("other\n"));
  messages.stream = stream;
}

TEST(Progress, GuessesTheTimeLeftOnceItHasRunForSomeSeconds) {
  Progress progress;
  EXPECT_EQ(progress.note(1, 0).view(), "");
  EXPECT_EQ(progress.note(5, 4).view(), " (100 %)                  ");
  progress.start -= 1000000;  // so long that a second more or less does not show
  EXPECT_EQ(progress.note(0, 10).view(), " (0 %)                    ");
  EXPECT_EQ(progress.note(10000, 10001).view(), " (99 %, 100 s left)       ");
}

}  // namespace
}  // namespace tarnvale
