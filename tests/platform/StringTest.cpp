#include <iconv.h>

#include <random>

#include <gtest/gtest.h>

#include "platform/String.h"
#include "platform/StringResources.h"

namespace {

// Independent reference: the C library's converter from wide text to UTF-8.
std::string IconvUtf8(const std::wstring &text) {
  iconv_t cd = iconv_open("UTF-8", "WCHAR_T");
  std::string out(text.size() * 4, '\0');
  char *in = reinterpret_cast<char *>(const_cast<wchar_t *>(text.data())), *outPtr = out.data();
  std::size_t inLeft = text.size() * sizeof(wchar_t), outLeft = out.size();
  EXPECT_NE(iconv(cd, &in, &inLeft, &outPtr, &outLeft), static_cast<std::size_t>(-1));
  iconv_close(cd);
  out.resize(out.size() - outLeft);
  return out;
}

TEST(CStringUtf8, RoundTripAgreesWithIconv) {
  std::wstring text = L"\u65e5\u672c\u8a9e\u30c6\u30ad\u30b9\u30c8 \U0001D11E \u07ff\u0800\uffff\U00010000\U0010FFFF";
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> codePoint(1, 0x10FFFF);
  while (text.size() < 5000)
    if (const int cp = codePoint(rng); cp < 0xD800 || cp > 0xDFFF) text += static_cast<wchar_t>(cp);
  const std::string utf8 = CString(text).ToUtf8();
  EXPECT_EQ(utf8, IconvUtf8(text));
  EXPECT_EQ(CString::FromUtf8(utf8).str(), text);
}

// One U+FFFD per maximal ill-formed subpart, as in the worked example of the
// Unicode standard (chapter 3, "U+FFFD substitution of maximal subparts").
TEST(CStringUtf8, InvalidInputBecomesReplacementCharacters) {
  EXPECT_EQ(CString::FromUtf8("\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64").str(),
            L"a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd");
  EXPECT_EQ(CString::FromUtf8("\xC0\xAF").str(), L"\uFFFD\uFFFD");                      // overlong
  EXPECT_EQ(CString::FromUtf8("\xED\xA0\x80").str(), L"\uFFFD\uFFFD\uFFFD");              // surrogate
  EXPECT_EQ(CString::FromUtf8("\xF4\x90\x80\x80").str(), L"\uFFFD\uFFFD\uFFFD\uFFFD");  // > U+10FFFF
  EXPECT_EQ(CString::FromUtf8("x\xE6\x97").str(), L"x\uFFFD");                          // truncated
  const std::wstring bad{static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000), static_cast<wchar_t>(-1)};
  EXPECT_EQ(CString(bad).ToUtf8(), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(CString, OutOfRangeArgumentsAreClamped) {
  const CString s(L"abcabc");
  EXPECT_EQ(s.Find(L'c', 3), 5);
  EXPECT_EQ(s.Find(L'c', -5), 2);
  EXPECT_EQ(s.Find(L"", 7), -1);
  EXPECT_EQ(s.Left(-1) + s.Left(99), L"abcabc");
  EXPECT_EQ(s.Right(-3) + s.Right(2), L"bc");
  EXPECT_EQ(s.Mid(-2, 2) + s.Mid(4), L"abbc");
  EXPECT_EQ(s.Mid(5, 1000) + s.Mid(1000, 1), L"c");
  EXPECT_TRUE(CString(L"abc", -1).IsEmpty());
  CString padded(L" \t\r\n a  b \v\f "), blanks(L"   ");
  EXPECT_EQ(padded.Trim(), L"a  b");
  EXPECT_TRUE(blanks.Trim().IsEmpty());
}

TEST(CString, FormatReadsWideConversionsAndGrows) {
  CString s;
  s.Format(L"%d|%5.2f|%s|%ls|%hs|%c|%%", -42, 3.14159, L"\u65e5\u672c", L"w", "narrow", L'\u00e9');
  EXPECT_EQ(s, L"-42| 3.14|\u65e5\u672c|w|narrow|\u00e9|%");
  const std::wstring longText(5000, L'x');
  s.Format(L"[%s]", longText.c_str());
  EXPECT_EQ(s.str(), L"[" + longText + L"]");
}

TEST(CString, LoadStringFromTheTable) {
  CString s(L"old");
  EXPECT_TRUE(s.LoadString(6109));
  EXPECT_EQ(s, FindStringResource(6109));
  EXPECT_FALSE(s.LoadString(1));
  EXPECT_TRUE(s.IsEmpty());
}

}  // namespace
