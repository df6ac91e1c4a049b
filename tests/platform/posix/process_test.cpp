#include "platform/process.h"

#include <gtest/gtest.h>

#include "platform/posix/wide_bytes.h"
#include "platform/real_os.h"
#include "support/scoped_environment.h"

namespace korvane::platform {
namespace {

using test::ScopedEnvironment;

TEST(PosixProcessTest, LocalApplicationDataFollowsTheEnvironment) {
  const ScopedEnvironment home("HOME", "/home/caf\xC3\xA9");
  const ScopedEnvironment data("XDG_DATA_HOME", "/data");
  EXPECT_EQ(RealProcess().LocalApplicationData().value(), L"/data");
  {
    const ScopedEnvironment relative("XDG_DATA_HOME", "data");
    EXPECT_EQ(RealProcess().LocalApplicationData().value(), L"/home/caf\xE9/.local/share");
  }
  const ScopedEnvironment no_data("XDG_DATA_HOME", std::nullopt);
  const ScopedEnvironment no_home("HOME", std::nullopt);
  EXPECT_FALSE(RealProcess().LocalApplicationData());
}

TEST(WideBytesTest, EveryByteTextComesBackAsItWas) {
  struct Row {
    const char* why;
    std::string bytes;
    std::wstring wide;
  };
  const Row rows[] = {
      {"nothing", "", L""},
      {"characters of every length", "a\xC3\xA9\xE8\xB7\xAF\xF0\x9F\x94\x91",
       L"a\xE9\x8DEF\x1F511"},
      {"a stray byte between characters", "\xC3\xA9\xFFz", L"\xE9\xDCFFz"},
      {"a cut sequence at the end", "a\xE8\xB7", L"a\xDCE8\xDCB7"},
      {"a surrogate", "\xED\xA0\x80", L"\xDCED\xDCA0\xDC80"},
      {"an overlong form", "\xC0\xAF", L"\xDCC0\xDCAF"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(WideFromBytes(row.bytes), row.wide) << row.why;
    EXPECT_EQ(BytesFromWide(row.wide), row.bytes) << row.why;
  }
  EXPECT_EQ(BytesFromWide(L"a\xD800\xDC41"), "a\xEF\xBF\xBD\xEF\xBF\xBD") << "no byte's escapes";
}

}  // namespace
}  // namespace korvane::platform
