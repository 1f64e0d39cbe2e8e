// The module's log reaches a person line by line, and never holds up the thread that logs.
#include <android/log.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "tools/common/console.h"
#include "tools/common/log_sink.h"

namespace tools {
namespace {

TEST(ConsoleTest, ControlCharactersAreShownNotObeyed) {
  const std::pair<std::string, const char*> cases[] = {
      {"a\nE/Tag: forged", "a\\nE/Tag: forged"},
      {"\r\x1b[2J", "\\x0d\\x1b[2J"},
      {"tab\there", "tab\\there"},
      {"\x7f", "\\x7f"},
      {"K\xc3\xb6ln \xe2\x99\xaa", "K\xc3\xb6ln \xe2\x99\xaa"},
      {"\xc2\x9b[2J", "\\x9b[2J"},
      {"\xc2\xa9 \xc2", "\xc2\xa9 \xc2"},
      {std::string("nul\0!", 5), "nul\\x00!"},
  };
  for (const auto& [text, shown] : cases) {
    EXPECT_EQ(EscapeControls(text), shown);
  }
}

// One process-wide sink, hence one test: a terminal that takes nothing, then one that takes all.
TEST(LogSinkTest, ABlockedTerminalDropsLinesInsteadOfWaiting) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const int real_stderr = ::dup(STDERR_FILENO);
  ::dup2(ends[1], STDERR_FILENO);
  static int observed = 0;
  InstallLogSink(LogShown::kInfoAndAbove, [](int, const char*, const char*) { ++observed; });
  // Far more than the pipe and the queue hold: a sink that waited would never come back.
  constexpr int kLines = 20000;
  for (int i = 0; i < kLines; ++i) {
    __android_log_print(ANDROID_LOG_INFO, "Tag", "line %d of many", i);
  }
  __android_log_print(ANDROID_LOG_DEBUG, "Tag", "composed by nobody");
  EXPECT_EQ(observed, kLines);

  std::string shown;
  char part[4096];
  ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
  const auto drain_all = [&] {
    for (bool empty = false; !empty;) {
      empty = FlushLogSink(std::chrono::milliseconds(1));
      for (ssize_t n; (n = ::read(ends[0], part, sizeof(part))) > 0;) {
        shown.append(part, static_cast<size_t>(n));
      }
    }
  };
  drain_all();
  EXPECT_NE(shown.find("log lines dropped"), std::string::npos);
  {
    const MuteLogScope mute;
    __android_log_print(ANDROID_LOG_INFO, "Tag", "muted");
  }
  __android_log_print(ANDROID_LOG_ERROR, "Tag", "last\nline %s", std::string(1200, 'x').c_str());
  drain_all();
  ::dup2(real_stderr, STDERR_FILENO);
  EXPECT_EQ(shown.rfind("I/Tag: line 0 of many\n", 0), 0u);
  EXPECT_EQ(shown.find("muted"), std::string::npos);
  EXPECT_EQ(shown.find("composed"), std::string::npos);
  EXPECT_NE(shown.find("\nE/Tag: last\\nline xxxx"), std::string::npos);
  EXPECT_EQ(shown.substr(shown.size() - 4), "...\n");  // cut, and visibly so
}

}  // namespace
}  // namespace tools
