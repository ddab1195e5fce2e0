// What the program does itself with texts, held against what Windows does.
#include <windows.h>
#include <shellapi.h>

#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <vector>

#include "foundations/text.h"
#include "foundations/upper_case.h"

namespace kvx {
namespace {

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

TEST(UpperCase, IsThatOfTheSystemForEveryUnit) {
  for (uint32_t unit = 0; unit < 0x10000; ++unit) {
    const std::wstring text(1, static_cast<wchar_t>(unit));
    EXPECT_EQ(upper_case(static_cast<uint16_t>(unit)), upper_by_system(text).front()) << unit;
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
