#include "foundations/text.h"

#include <array>
#include <gtest/gtest.h>

namespace kvx {
namespace {

using std::string_literals::operator""s;  // NOLINT(misc-unused-using-decls): clang-tidy does not see its use

struct Conversion {
  std::string narrow;
  std::wstring wide;
};

TEST(TextConversion, GoesBothWaysForEveryKindOfCharacter) {
  for (const Conversion& c : {Conversion{"", L""},
                              {"abc", L"abc"},
                              {"a\0b\0"s, std::wstring(L"a\0b\0", 4)},
                              {"\xC3\xA9", L"\u00E9"},
                              {"\xE5\x90\x8D\xE5\x89\x8D", L"\u540D\u524D"},
                              {"\xF0\x9F\x98\x80", L"\U0001F600"},
                              {"\xEF\xBB\xBFx", L"\uFEFFx"},
                              {std::string(100000, 'x'), std::wstring(100000, L'x')}}) {
    EXPECT_EQ(to_wide(c.narrow), c.wide);
    EXPECT_EQ(to_utf8(c.wide), c.narrow);
  }
}

TEST(TextConversion, ReplacesWhatIsNotValidAndKeepsTheRest) {
  for (const char* text : {"a\xFFz", "a\x80z", "a\xC3z", "a\xC0\x80z", "a\xED\xA0\x80z"}) {
    const std::wstring wide = to_wide(text);
    ASSERT_GE(wide.size(), 3U) << text;
    EXPECT_EQ(wide.front(), L'a') << text;
    EXPECT_EQ(wide.back(), L'z') << text;
    EXPECT_NE(wide.find(L'\uFFFD'), std::wstring::npos) << text;
  }
  EXPECT_EQ(to_utf8(L"a\xD83Dz"), "a\xEF\xBF\xBDz");
  EXPECT_EQ(to_utf8(L"a\xDE00z"), "a\xEF\xBF\xBDz");
}

TEST(ToHex, WritesTwoLowerCaseDigitsPerByte) {
  constexpr std::array<uint8_t, 6> bytes = {0x00, 0x0F, 0xF0, 0xA5, 0x7e, 0xFF};
  EXPECT_EQ(to_hex(bytes.data(), bytes.size()), "000ff0a57eff");
  EXPECT_EQ(to_hex(bytes.data(), 2), "000f");
  EXPECT_EQ(to_hex(nullptr, 0), "");
}

TEST(IsSha256Hex, TakesExactly64LowerCaseDigits) {
  const std::string valid = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
  EXPECT_TRUE(is_sha256_hex(valid));
  EXPECT_FALSE(is_sha256_hex(""));
  EXPECT_FALSE(is_sha256_hex(valid.substr(1)));
  EXPECT_FALSE(is_sha256_hex(valid + "0"));
  for (const char wrong : {'A', 'F', 'g', '/', ':', '`', ' ', '\0', '\xE9'}) {
    for (const size_t position : {size_t{0}, size_t{31}, size_t{63}}) {
      std::string text = valid;
      text[position] = wrong;
      EXPECT_FALSE(is_sha256_hex(text)) << position << " " << wrong;
    }
  }
}

TEST(ToUpper, FollowsTheSystemBeyondAscii) {
  EXPECT_EQ(to_upper(L""), L"");
  EXPECT_EQ(to_upper(L"Data\\a_1.pak"), L"DATA\\A_1.PAK");
  EXPECT_EQ(to_upper(L"\u00E4\u00E9\u0436\u540D"), L"\u00C4\u00C9\u0416\u540D");
  EXPECT_EQ(to_upper(L"stra\u00DFe"), L"STRA\u00DFE");
}

TEST(ToLowerAscii, ChangesOnlyTheLettersAToZ) {
  EXPECT_EQ(to_lower_ascii(""), "");
  EXPECT_EQ(to_lower_ascii("@AZ[`az{ 09"), "@az[`az{ 09");
  EXPECT_EQ(to_lower_ascii("\xC3\x84\xC3\x89X"), "\xC3\x84\xC3\x89x");
  EXPECT_EQ(to_lower_ascii("A\0B"s), "a\0b"s);
}

TEST(EqualsIgnoreCase, ComparesOrdinally) {
  struct Case {
    const wchar_t* a;
    const wchar_t* b;
    bool expected;
  };
  for (const Case& c : {Case{L"", L"", true},
                        {L"Saved", L"sAVED", true},
                        {L"\u00C4", L"\u00E4", true},
                        {L"stra\u00DFe", L"strasse", false},
                        {L"\u00E9", L"e\u0301", false},
                        {L"a", L"a ", false},
                        {L"i", L"\u0131", false},
                        {L"ab", L"abc", false},
                        {L"", L"a", false}}) {
    EXPECT_EQ(equals_ignore_case(c.a, c.b), c.expected) << to_utf8(c.a) << " and " << to_utf8(c.b);
    EXPECT_EQ(equals_ignore_case(c.b, c.a), c.expected) << to_utf8(c.b) << " and " << to_utf8(c.a);
  }
  EXPECT_TRUE(equals_ignore_case({}, {}));
}

TEST(StartsWithIgnoreCase, NeedsTheWholePrefix) {
  struct Case {
    const wchar_t* text;
    const wchar_t* prefix;
    bool expected;
  };
  for (const Case& c : {Case{L"--Channel=live", L"--channel=", true},
                        {L"--channel=", L"--channel=", true},
                        {L"--channel", L"--channel=", false},
                        {L"x--channel=", L"--channel=", false},
                        {L"", L"a", false},
                        {L"abc", L"", true},
                        {L"\u00C4rger", L"\u00E4R", true}}) {
    EXPECT_EQ(starts_with_ignore_case(c.text, c.prefix), c.expected) << to_utf8(c.text) << ", " << to_utf8(c.prefix);
  }
}

TEST(QuoteArgument, QuotesOnlyWhatNeedsIt) {
  struct Case {
    const wchar_t* argument;
    const wchar_t* expected;
  };
  for (const Case& c : {Case{L"KVX.exe", L"KVX.exe"},
                        {L"C:\\a\\", L"C:\\a\\"},
                        {L"a\\\\b", L"a\\\\b"},
                        {L"", L"\"\""},
                        {L" ", L"\" \""},
                        {L"a b", L"\"a b\""},
                        {L"a\tb", L"\"a\tb\""},
                        {L"a\nb", L"\"a\nb\""},
                        {L"a\vb", L"\"a\vb\""},
                        {L"a\rb", L"a\rb"},
                        {L"'a'", L"'a'"},
                        {L"a\"b", LR"("a\"b")"},
                        {L"\"", LR"("\"")"},
                        {L"C:\\Program Files\\", LR"("C:\Program Files\\")"},
                        {L"a \\b", LR"("a \b")"},
                        {L"a\\\"b", LR"("a\\\"b")"},
                        {L"a\\\\\"", LR"("a\\\\\"")"},
                        {L"a b\\\\", LR"("a b\\\\")"},
                        {L"\\ \\", LR"("\ \\")"}}) {
    EXPECT_EQ(quote_argument(c.argument), c.expected) << to_utf8(c.argument);
  }
}

}  // namespace
}  // namespace kvx
