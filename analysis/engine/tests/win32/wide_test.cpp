// UTF-8 to UTF-16 and back, as every Windows name and argument of the engine goes.
#include "platform/win32/wide.h"

#include <gtest/gtest.h>

namespace genostat::platform {
namespace {

TEST(Wide, RoundTripsEveryPlaneAndRefusesWhatIsNotUtf8) {
  // ASCII, Latin-1, CJK, and a letter outside the basic plane (a surrogate pair in UTF-16).
  const std::string text = "a\xC3\xA4\xE6\x97\xA5\xF0\x9F\xA7\xAC";
  std::wstring wide;
  ASSERT_TRUE(utf8ToWide(text, wide));
  EXPECT_EQ(wide, std::wstring(L"a\u00e4\u65e5\U0001F9EC"));
  EXPECT_EQ(wideToUtf8(wide), text);
  for (const std::string bad : {"\xC3", "a\xFF", "\xED\xA0\x80", "\xC0\xAF"}) {
    EXPECT_FALSE(utf8ToWide(bad, wide)) << bad;
    EXPECT_TRUE(wide.empty());
  }
  // An unpaired surrogate becomes the replacement character.
  EXPECT_EQ(wideToUtf8(std::wstring(1, wchar_t(0xD800)) + L"x"), "\xEF\xBF\xBDx");
}

}  // namespace
}  // namespace genostat::platform
