#include "foundations/text.h"

#include <windows.h>
#include <shellapi.h>

#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <vector>

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
                              {"\xF0\x9F\x98\x80", L"\xD83D\xDE00"},
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

// Strings of bytes or UTF-16 units, half of them ASCII alone; the same in every run.
template <typename Text>
std::vector<Text> random_texts(size_t count, uint32_t other_units) {
  std::mt19937 random(1);
  std::vector<Text> texts(count);
  for (Text& text : texts) {
    const uint32_t units = random() % 2 == 0 ? 0x80 : other_units;
    for (size_t length = random() % 24; length > 0; --length) {
      text += static_cast<typename Text::value_type>(random() % 4 == 0 ? random() % units : 'A' + random() % 0x39);
    }
  }
  return texts;
}

std::wstring wide_by_system(const std::string& text) {
  std::wstring wide(text.size() + 1, L'\0');
  const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(),
                                         static_cast<int>(wide.size()));
  return wide.substr(0, static_cast<size_t>(length));
}

std::string utf8_by_system(const std::wstring& text) {
  std::string narrow(text.size() * 3 + 1, '\0');
  const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), narrow.data(),
                                         static_cast<int>(narrow.size()), nullptr, nullptr);
  return narrow.substr(0, static_cast<size_t>(length));
}

std::wstring upper_by_system(std::wstring text) {
  CharUpperBuffW(text.data(), static_cast<DWORD>(text.size()));
  return text;
}

bool equal_by_system(const std::wstring& a, const std::wstring& b) {
  return CompareStringOrdinal(a.c_str(), static_cast<int>(a.size()), b.c_str(), static_cast<int>(b.size()), TRUE) ==
         CSTR_EQUAL;
}

// ASCII is treated without the system; nobody may see a difference.
TEST(TextConversion, AgreesWithTheSystem) {
  for (int unit = 0; unit < 0x100; ++unit) {
    const std::string text(1, static_cast<char>(unit));
    EXPECT_EQ(to_wide(text), wide_by_system(text)) << unit;
    EXPECT_EQ(is_ascii(text), unit < 0x80) << unit;
  }
  for (int unit = 0; unit < 0x10000; ++unit) {
    const std::wstring text(1, static_cast<wchar_t>(unit));
    EXPECT_EQ(to_utf8(text), utf8_by_system(text)) << unit;
  }
  for (const auto& text : random_texts<std::string>(20000, 0x100)) EXPECT_EQ(to_wide(text), wide_by_system(text));
  for (const auto& text : random_texts<std::wstring>(20000, 0x10000)) EXPECT_EQ(to_utf8(text), utf8_by_system(text));
}

TEST(ToUpper, AgreesWithTheSystem) {
  for (int unit = 0; unit < 0x10000; ++unit) {
    const std::wstring text(1, static_cast<wchar_t>(unit));
    EXPECT_EQ(to_upper(text), upper_by_system(text)) << unit;
  }
  for (const auto& text : random_texts<std::wstring>(20000, 0x10000)) EXPECT_EQ(to_upper(text), upper_by_system(text));
}

TEST(EqualsIgnoreCase, AgreesWithTheSystem) {
  for (int unit = 1; unit < 0x10000; ++unit) {
    const std::wstring text(1, static_cast<wchar_t>(unit));
    for (const wchar_t other : {L'k', L'S', L'i', L'@', L'[', L'`', L'{', static_cast<wchar_t>(unit ^ 0x20)}) {
      const std::wstring pair(1, other);
      EXPECT_EQ(equals_ignore_case(text, pair), equal_by_system(text, pair)) << unit << " " << int{other};
    }
  }
  const std::vector<std::wstring> texts = random_texts<std::wstring>(20000, 0x10000);
  std::mt19937 random(2);
  for (const std::wstring& text : texts) {
    std::wstring other = text;
    for (wchar_t& c : other) {
      if (random() % 3 == 0) c = static_cast<wchar_t>(c ^ 0x20);
    }
    if (random() % 4 == 0) other += L'x';
    EXPECT_EQ(equals_ignore_case(text, other), equal_by_system(text, other));
    EXPECT_EQ(equals_ignore_case(text, to_upper(text)), equal_by_system(text, to_upper(text)));
  }
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

TEST(QuoteArgument, IsReadBackUnchangedByTheSystem) {
  constexpr std::wstring_view alphabet = L"\\\\\\\"\" \ta\u00E9";
  std::mt19937 random(20261120);
  for (int round = 0; round < 2000; ++round) {
    std::vector<std::wstring> arguments(1 + random() % 3);
    std::wstring command_line = L"program.exe";
    for (std::wstring& argument : arguments) {
      for (size_t length = random() % 8; length > 0; --length) argument += alphabet[random() % alphabet.size()];
      command_line += L' ' + quote_argument(argument);
    }
    int count = 0;
    const std::unique_ptr<LPWSTR, decltype(&LocalFree)> parsed(CommandLineToArgvW(command_line.c_str(), &count),
                                                               &LocalFree);
    const std::vector<std::wstring> read_back(parsed.get() + 1, parsed.get() + count);
    ASSERT_EQ(read_back, arguments) << to_utf8(command_line);
  }
}

}  // namespace
}  // namespace kvx
