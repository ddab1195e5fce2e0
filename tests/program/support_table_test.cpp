// docs/support.md and the program's texts cannot drift apart.
#include "tests/support/support_table.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "foundations/text.h"
#include "tests/program/pe_file.h"
#include "tests/support/test_paths.h"

namespace kvx::test {
namespace {

std::string utf16_bytes(const std::string& text) {
  const std::wstring wide = to_wide(text);
  return {reinterpret_cast<const char*>(wide.data()), wide.size() * sizeof(wchar_t)};
}

// Runs of printable characters of so many bytes among the program's constants, each ended by a zero.
std::vector<std::string> texts_of(const PeFile& program, size_t character_bytes) {
  std::vector<std::string> texts;
  for (const IMAGE_SECTION_HEADER& section : program.sections()) {
    if (std::string_view(reinterpret_cast<const char*>(section.Name), 6) != ".rdata") continue;
    const std::string_view bytes =
        std::string_view(program.bytes()).substr(section.PointerToRawData, section.SizeOfRawData);
    std::string run;
    for (size_t i = 0; i + character_bytes <= bytes.size(); i += character_bytes) {
      const char high = character_bytes == 1 ? '\0' : bytes[i + 1];
      if (high == 0 && ((bytes[i] >= ' ' && bytes[i] <= '~') || bytes[i] == '\n')) {
        run += bytes[i];
      } else {
        if (high == 0 && bytes[i] == 0 && !run.empty()) texts.push_back(run);
        run.clear();
      }
    }
  }
  return texts;
}

bool is_one_of(const std::string& text, const std::vector<std::string_view>& others) {
  return std::any_of(others.begin(), others.end(), [&](std::string_view other) { return text.starts_with(other); });
}

// Names of files, options and the like have no blank; what the window says in one word ends with dots.
bool is_technical(const std::string& text) {
  return text.find_first_of(" \n") == std::string::npos && !text.ends_with("...");
}

// Of the texts in UTF-16, what is not said to anybody, or only as part of a size or a time.
bool is_wide_for_nobody(const std::string& text) {
  static const std::vector<std::string> others = {"=\n",
                                                  "Range: bytes=",
                                                  " --self-updated --wait-pid=",
                                                  " --",
                                                  "%.2f GB",
                                                  "%.1f MB",
                                                  "%.0f KB",
                                                  "%llu bytes",
                                                  "about %d s",
                                                  "about %d min",
                                                  "about %d h %02d min",
                                                  "KVX Launcher",
                                                  "   -   "};
  // The byte before a text may look like one more character of it.
  return std::any_of(others.begin(), others.end(),
                     [&](const std::string& other) { return text == other || text.substr(1) == other; });
}

// Of the texts in UTF-8, what the log alone says, or the number behind a system text. Most of that has a "%".
bool is_for_the_log(const std::string& text) {
  return is_one_of(text, {" --repair", " (after self-update)", "self-update: ", "range ignored", "error ",
                          "launcher was just updated but ", "HTTP 416", "disk is full", "installed_manifest.",
                          "could not write the downloaded data", "the server rejected the resume position"});
}

// The reasons that kvxpublish verify says too.
bool is_manifest_reason(const std::string& text) {
  return is_one_of(
      text, {"manifest is not a JSON object", "manifest format ", "manifest is for a different product",
             " is not supported by this launcher", "missing ", " must be a ", "invalid channel name", "invalid version",
             "invalid sha256 for ", "invalid \"launcher\" entry", "\"launcher\" must be an object",
             "\"files\" entries must be objects", "\"args\" ", "\"remove\" ", "duplicate path ", "rejected path ",
             "rejected remove path ", "rejected exe path: ", "path ", " is listed in both files and remove",
             "the start program is not part of the manifest",
             // of a path
             "empty or too long", "backslash in path", "leading or trailing '/'", "empty path component",
             "'.' or '..' component", "invalid character", "reserved device name", "component ends with a space or dot",
             "user data folder 'Saved' is never managed", "launcher state folder",
             "the launcher is not managed as a game file",
             // of JSON
             " at offset ", "bad ", "truncated \\u escape", "expected ", "control character in string", "unterminated ",
             "lone surrogate", "NUL in string", "nesting too deep", "unexpected end", "unexpected character",
             "duplicate key", "integer overflow", "trailing data after JSON value"});
}

// What the language's own libraries bring.
bool is_of_a_library(const std::string& text) {
  return is_one_of(
      text, {"basic_string: ", "@@basic_string: ", "basic_string::", "cannot create std::", "Unknown error",
             "random_device", "*** ", "Mingw-w64 runtime failure:", " terminated\n", "Argument ",
             "Overflow range error", "Partial loss of", "Total loss of", "The result is too small", "(((rwlock_t"});
}

// A program may begin a text with an empty line that the document has no place for.
std::string without_first_line_ends(std::string text) { return text.erase(0, text.find_first_not_of('\n')); }

// The paragraphs of a piece, each without the empty line before it: some are put together when they are shown.
std::vector<std::string> paragraphs_of(const std::string& piece) {
  constexpr std::string_view empty_line = "\n\n";
  std::vector<std::string> paragraphs;
  for (size_t at = 0; at < piece.size();) {
    const size_t end = std::min(piece.size(), piece.find(empty_line, at));
    if (end > at) paragraphs.push_back(piece.substr(at, end - at));
    at = end + empty_line.size();
  }
  return paragraphs;
}

class SupportDocument : public testing::Test {
 protected:
  SupportDocument() {
    for (const std::string& text : table_.texts()) {
      for (const std::string& piece : fixed_pieces(text)) pieces_.insert(without_first_line_ends(piece));
    }
  }

  // Some text of the program ends so. The name of a step stands there without the ": " that follows it.
  bool is_said(const std::string& piece) const {
    const std::string step = piece.ends_with(": ") ? piece.substr(0, piece.size() - 2) : piece;
    return contains(utf16_bytes(piece) + '\0' + '\0') || contains(piece + '\0') || contains(step + '\0');
  }

  bool is_quoted_wide(const std::string& text) const {
    return is_quoted(text) || is_quoted(text.substr(1));  // see is_wide_for_nobody
  }

  bool is_quoted(const std::string& text) const {
    const std::string said = without_first_line_ends(text);
    const auto is_piece = [&](const std::string& piece) {
      return piece == said || piece == said + ": " || piece.starts_with(said + "\n\n");
    };
    return std::any_of(pieces_.begin(), pieces_.end(), is_piece) ||
           table_.document().find('"' + said + '"') != std::string::npos;
  }

  const PeFile program_{to_wide(build_path(KVX_PROGRAM_FILE))};
  const SupportTable table_;
  std::set<std::string> pieces_;

 private:
  bool contains(const std::string& bytes) const { return program_.bytes().find(bytes) != std::string::npos; }
};

TEST_F(SupportDocument, QuotesOnlyWhatTheProgramSays) {
  for (const std::string& piece : pieces_) {
    const std::vector<std::string> paragraphs = paragraphs_of(piece);
    const auto said = [this](const std::string& text) { return is_said(text); };
    EXPECT_TRUE(is_said(piece) || std::all_of(paragraphs.begin(), paragraphs.end(), said)) << "\"" << piece << "\"";
  }
}

TEST_F(SupportDocument, HasEveryTextThatIsShown) {
  size_t looked_at = 0;
  for (const std::string& text : texts_of(program_, sizeof(wchar_t))) {
    if (is_technical(text) || without_first_line_ends(text).empty() || is_wide_for_nobody(text)) continue;
    ++looked_at;
    EXPECT_TRUE(is_quoted_wide(text)) << "\"" << text << "\" is not in docs/support.md";
  }
  EXPECT_GT(looked_at, 60U);
  for (const char* button : {"Cancel", "Cancelling..."}) EXPECT_TRUE(is_quoted(button)) << button;
}

TEST_F(SupportDocument, HasEveryReasonAndResult) {
  size_t looked_at = 0;
  for (const std::string& text : texts_of(program_, 1)) {
    if (is_technical(text) || text.size() < 5 || text.find('%') != std::string::npos || is_for_the_log(text) ||
        is_manifest_reason(text) || is_of_a_library(text)) {
      continue;
    }
    ++looked_at;
    EXPECT_TRUE(is_quoted(text)) << "\"" << text << "\" is not in docs/support.md";
  }
  EXPECT_GT(looked_at, 35U);
}

}  // namespace
}  // namespace kvx::test
