// UTF-8 to UTF-16 and back, as every Windows name and argument of the engine goes.
#include "platform/win32/wide.h"

#include <gtest/gtest.h>

namespace genostat::platform {
namespace {

TEST(Wide, RoundTripsEveryPlane) {
  // ASCII, Latin-1, CJK, and a letter outside the basic plane (a surrogate pair in UTF-16).
  const std::string text = "a\xC3\xA4\xE6\x97\xA5\xF0\x9F\xA7\xAC";
  std::wstring wide;
  ASSERT_TRUE(utf8ToWide(text, wide));
  EXPECT_EQ(wide, std::wstring(L"a\u00e4\u65e5\U0001F9EC"));
  EXPECT_EQ(wide.size(), 5u);
  EXPECT_EQ(wideToUtf8(wide), text);
  EXPECT_TRUE(utf8ToWide("", wide));
  EXPECT_TRUE(wide.empty());
  EXPECT_EQ(wideToUtf8(L""), "");
}

TEST(Wide, RefusesTextThatIsNotUtf8) {
  std::wstring wide = L"left over";
  for (const std::string& bad : {std::string("\xC3"), std::string("a\xFF"),
                                 std::string("\xED\xA0\x80"), std::string("\xC0\xAF")}) {
    EXPECT_FALSE(utf8ToWide(bad, wide)) << bad;
    EXPECT_TRUE(wide.empty());
  }
}

TEST(Wide, UnpairedSurrogateBecomesReplacementCharacter) {
  EXPECT_EQ(wideToUtf8(std::wstring(1, wchar_t(0xD800)) + L"x"), "\xEF\xBF\xBDx");
}

}  // namespace
}  // namespace genostat::platform
