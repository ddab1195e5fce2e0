// docs/support.md and the program's texts cannot drift apart.
#include "tests/support/support_table.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

#include "foundations/text.h"
#include "tests/program/pe_file.h"

namespace kvx::test {
namespace {

std::string utf16_bytes(const std::string& text) {
  const std::wstring wide = to_wide(text);
  return {reinterpret_cast<const char*>(wide.data()), wide.size() * sizeof(wchar_t)};
}

// Runs of printable UTF-16 characters among the program's constants, each ended by a zero.
std::vector<std::string> wide_texts(const PeFile& program) {
  std::vector<std::string> texts;
  for (const IMAGE_SECTION_HEADER& section : program.sections()) {
    if (std::string_view(reinterpret_cast<const char*>(section.Name), 6) != ".rdata") continue;
    const std::string_view bytes =
        std::string_view(program.bytes()).substr(section.PointerToRawData, section.SizeOfRawData);
    std::string run;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
      const bool printable = bytes[i + 1] == 0 && ((bytes[i] >= ' ' && bytes[i] <= '~') || bytes[i] == '\n');
      if (printable) {
        run += bytes[i];
      } else {
        if (bytes[i] == 0 && bytes[i + 1] == 0 && !run.empty()) texts.push_back(run);
        run.clear();
      }
    }
  }
  return texts;
}

// What is not said to anybody: header lines, options, number formats.
bool is_for_nobody(const std::string& line) {
  for (const char* other : {"Cache-Control: no-cache", "Pragma: no-cache", "Range: bytes=",
                            " --self-updated --wait-pid=", "%.2f GB", "%.1f MB", "%.0f KB", "%llu bytes", "about %d s",
                            "about %d min", "about %d h %02d min", "KVX Launcher", "Cancelling..."}) {
    if (line.ends_with(other)) return true;
  }
  return false;
}

// The name of a step stands in the program without the ": " that follows it.
std::string step_of(const std::string& piece) {
  return piece.ends_with(": ") ? piece.substr(0, piece.size() - 2) + '\0' : piece;
}

class SupportDocument : public testing::Test {
 protected:
  const PeFile program_{to_wide(KVX_PROGRAM_FILE)};
  const SupportTable table_;
};

TEST_F(SupportDocument, QuotesOnlyWhatTheProgramSays) {
  for (const std::string& text : table_.texts()) {
    for (const std::string& piece : fixed_pieces(text)) {
      const bool said = program_.bytes().find(utf16_bytes(piece)) != std::string::npos ||
                        program_.bytes().find(piece) != std::string::npos ||
                        program_.bytes().find(step_of(piece)) != std::string::npos;
      EXPECT_TRUE(said) << "\"" << piece << "\" of \"" << text << "\"";
    }
  }
}

TEST_F(SupportDocument, HasEveryTextThatIsShown) {
  std::string document;
  for (const std::string& text : table_.texts()) {
    for (const std::string& piece : fixed_pieces(text)) document += piece + "\n";
  }
  size_t looked_at = 0;
  for (const std::string& text : wide_texts(program_)) {
    for (const std::string& line : fixed_pieces(text)) {
      if (line.find(' ') == std::string::npos || line.size() < 8 || is_for_nobody(line)) continue;
      ++looked_at;
      // The byte before a text may look like one more character of it.
      EXPECT_TRUE(document.find(line) != std::string::npos || document.find(line.substr(1)) != std::string::npos)
          << "\"" << line << "\" is not in docs/support.md";
    }
  }
  EXPECT_GT(looked_at, 50U);
}

}  // namespace
}  // namespace kvx::test
