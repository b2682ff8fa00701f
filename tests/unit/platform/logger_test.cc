// The Logger echoes to stdout here because ctest runs this binary with MVM_DEBUG=enable.
#include "platform/logger.h"

#include <gtest/gtest.h>

#include <string>

namespace tessera {
namespace {

std::string logged(unsigned level, const char* format, const char* argument) {
  testing::internal::CaptureStdout();
  Logger::log(static_cast<LogLevel>(level), format, argument);
  return testing::internal::GetCapturedStdout();
}

TEST(Logger, LinesCarryTheLevelLetterAndAConsoleNewline) {
  ASSERT_TRUE(Logger::echo());
  EXPECT_EQ(logged(6, "Listener on port %s \n", "50017"), "I-Listener on port 50017 \n\n");
  EXPECT_EQ(logged(3, "%s", "select error\n"), "E-select error\n\n");
  EXPECT_EQ(logged(0, "%s", "x"), "E-x\n");
  EXPECT_EQ(logged(1, "%s", "x"), "A-x\n");
  EXPECT_EQ(logged(2, "%s", "x"), "C-x\n");
  EXPECT_EQ(logged(4, "%s", "x"), "W-x\n");
  EXPECT_EQ(logged(5, "%s", "x"), "N-x\n");
}

TEST(Logger, LevelSevenAndAboveAreFormattedButNotEmitted) {
  EXPECT_EQ(logged(7, "%s", "detail"), "");
  EXPECT_EQ(logged(42, "%s", "detail"), "");
  EXPECT_EQ(Logger::log(LogLevel::kDebug, "%s", "12345"), 5);
}

TEST(Logger, ArgumentTextIsNeverFormattedTwice) {
  EXPECT_EQ(logged(6, "cmd: %s", "%s%n%d%%"), "I-cmd: %s%n%d%%\n");
}

TEST(Logger, LongMessagesAreCutTo2047Characters) {
  std::string big(5000, 'x');
  std::string out = logged(6, "%s", big.c_str());
  EXPECT_EQ(out, "I-" + std::string(2047, 'x') + "\n");
}

}  // namespace
}  // namespace tessera
