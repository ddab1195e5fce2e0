// How the program compares names in paths, held against what Windows does.
#include <windows.h>

#include <gtest/gtest.h>
#include <random>

#include "foundations/text.h"
#include "manifest/managed_path.h"

namespace kvx {
namespace {

constexpr std::wstring_view own_name = L"MyLauncher.exe";

std::string answer_for(std::string_view path) {
  std::string error;
  return is_managed_path(path, own_name, error) ? "accepted" : error;
}

bool is_letter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

// A letter of a name in the other case, or one that only some rules of case take for it.
std::string varied(std::string_view name, std::mt19937& random) {
  std::string result;
  for (const char c : name) {
    switch (random() % 12) {
      case 0: result += c == 's' || c == 'S' ? "\xC5\xBF" : "\xC4\xB1"; break;  // U+017F long s, U+0131 dotless i
      case 1: result += c == 'K' || c == 'k' ? "\xE2\x84\xAA" : std::string(1, c); break;  // U+212A the Kelvin sign
      case 2: result += c == 'e' ? "\xC3\xA9" : std::string(1, c); break;
      default: result += is_letter(c) && random() % 2 == 0 ? static_cast<char>(c ^ 0x20) : c;
    }
  }
  return result;
}

TEST(ManagedPath, ComparesNamesAsTheSystemDoes) {
  struct Case {
    std::wstring_view name;
    const char* reason;
  };
  std::mt19937 random(1);
  for (const Case& c : {Case{L"Saved", "user data folder 'Saved' is never managed"},
                        {L".kvx_patch", "launcher state folder"},
                        {own_name, "the launcher is not managed as a game file"},
                        {L"KVXLauncher.new.exe", "the launcher is not managed as a game file"}}) {
    size_t refused = 0;
    for (int i = 0; i < 20000; ++i) {
      const std::string path = varied(to_utf8(c.name), random);
      const std::wstring wide = to_wide(path);
      const bool same = CompareStringOrdinal(wide.data(), static_cast<int>(wide.size()), c.name.data(),
                                             static_cast<int>(c.name.size()), TRUE) == CSTR_EQUAL;
      EXPECT_EQ(answer_for(path), same ? c.reason : "accepted") << path;
      refused += same ? 1 : 0;
    }
    EXPECT_GT(refused, 100U);
  }
}

}  // namespace
}  // namespace kvx
