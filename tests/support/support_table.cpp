#include "tests/support/support_table.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>

#include "foundations/paths.h"
#include "foundations/text.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_paths.h"

namespace kvx::test {
namespace {

std::string replaced(std::string text, const std::string& what, const std::string& with) {
  for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size()) {
    text.replace(at, what.size(), with);
  }
  return text;
}

std::vector<std::string> cells_of(const std::string& line) {
  std::vector<std::string> cells;
  std::istringstream parts(line.substr(1));
  for (std::string cell; std::getline(parts, cell, '|');) {
    const size_t first = std::min(cell.size(), cell.find_first_not_of(' '));
    cells.push_back(cell.substr(first, cell.find_last_not_of(' ') - first + 1));
  }
  return cells;
}

// "10, 20" and "42 †" without the mark.
std::vector<std::string> keys_of(const std::string& cell) {
  std::vector<std::string> keys;
  std::istringstream parts(replaced(cell, " †", ""));
  for (std::string key; std::getline(parts, key, ',');) keys.push_back(replaced(key, " ", ""));
  return keys;
}

// The rows of the table under a heading.
std::vector<SupportRow> table_under(const std::string& document, const std::string& heading, size_t key_column,
                                    size_t text_column) {
  std::vector<SupportRow> rows;
  std::istringstream lines(document.substr(std::min(document.size(), document.find("\n" + heading + "\n") + 1)));
  std::string line;
  std::getline(lines, line);
  size_t columns = 0;
  while (std::getline(lines, line) && !line.starts_with("#")) {
    const bool in_body = columns != 0;
    if (line.starts_with("|---")) {
      columns = cells_of(line).size();
    } else if (in_body && line.starts_with("|")) {
      const std::vector<std::string> cells = cells_of(line);
      EXPECT_EQ(cells.size(), columns) << line;
      EXPECT_EQ(std::count(cells.begin(), cells.end(), ""), 0) << "an empty cell in " << line;
      rows.push_back({keys_of(cells.at(key_column)), replaced(cells.at(text_column), "<br>", "\n")});
    } else if (in_body) {
      break;
    }
  }
  EXPECT_FALSE(rows.empty()) << "docs/support.md has no table under " << heading;
  return rows;
}

bool has_key(const SupportRow& row, const std::string& key) {
  return std::find(row.keys.begin(), row.keys.end(), key) != row.keys.end();
}

// A message that may offer the installed game.
bool is_of_offline_start(const SupportRow& row) {
  return has_key(row, "10") || has_key(row, "20") || has_key(row, "21");
}

constexpr char placeholder_form[] = R"(\*([^*\n]+)\*)";

}  // namespace

SupportTable::SupportTable() : document_(read_text(full_path(to_wide(source_path("docs/support.md"))))) {
  messages_ = table_under(document_, "## Message boxes", 0, 1);
  continuations_ = table_under(document_, "### How the messages with 10, 20 and 21 go on", 0, 1);
  results_ = table_under(document_, "## Result messages", 0, 1);
  reasons_ = table_under(document_, "## Reasons", 0, 1);
  status_lines_ = table_under(document_, "## What the window says", 0, 0);
  detail_lines_ = table_under(document_, "### The line below it", 0, 0);
}

std::vector<std::string> SupportTable::texts() const {
  std::vector<std::string> all;
  for (const auto* table : {&messages_, &continuations_, &results_, &reasons_, &status_lines_, &detail_lines_}) {
    for (const SupportRow& row : *table) all.push_back(row.text);
  }
  return all;
}

bool SupportTable::explains_message(const std::string& text, std::optional<int> code) const {
  return std::any_of(messages_.begin(), messages_.end(), [&](const SupportRow& row) {
    const bool has_code = !code || has_key(row, std::to_string(*code));
    if (has_code && fits(text, row.text)) return true;
    // The offer may be declined, and the game may not start.
    if (!has_code && code != 60 && code != 70) return false;
    const std::string& warning = continuations_.back().text;
    return std::any_of(continuations_.begin(), continuations_.end() - 1, [&](const SupportRow& end) {
      return is_of_offline_start(row) && has_key(end, row.keys[0]) &&
             (fits(text, row.text + "\n\n" + end.text) || fits(text, row.text + "\n\n" + end.text + "\n\n" + warning));
    });
  });
}

bool SupportTable::explains_result(int code, const std::string& message) const {
  const std::string key = std::to_string(code);
  const auto has_row = [&](const std::vector<SupportRow>& table, const std::string& wanted) {
    return std::any_of(table.begin(), table.end(),
                       [&](const SupportRow& row) { return has_key(row, wanted) && fits(message, row.text); });
  };
  const auto is_offline_message = [&](const std::string& wanted) { return has_row(messages_, wanted); };
  if (code == 10 || code == 20 || code == 21) return is_offline_message(key);
  if (code == 60 || code == 70) {
    return message.empty() || has_row(results_, key) || is_offline_message("10") || is_offline_message("20") ||
           is_offline_message("21");
  }
  return code == 99 ? message.empty() : has_row(results_, key);
}

bool SupportTable::fits(const std::string& text, const std::string& row) const {
  static const std::regex special(R"([.\[\]{}()\\+?^$|])");
  std::string pattern;
  std::vector<std::string> names;
  const std::regex placeholder(placeholder_form);
  size_t end = 0;
  for (std::sregex_iterator found(row.begin(), row.end(), placeholder), none; found != none; ++found) {
    const auto at = static_cast<size_t>(found->position());
    pattern += std::regex_replace(row.substr(end, at - end), special, R"(\$&)") + "([^]*)";
    names.push_back(found->str(1));
    end = at + static_cast<size_t>(found->length());
  }
  pattern += std::regex_replace(row.substr(end), special, R"(\$&)");
  std::smatch match;
  if (!std::regex_match(text, match, std::regex(pattern))) return false;
  for (size_t i = 0; i < names.size(); ++i) {
    if (names[i].ends_with(" reason") && !is_known_reason(names[i], match.str(i + 1))) return false;
  }
  return true;
}

bool SupportTable::is_known_reason(const std::string& kinds, const std::string& reason) const {
  // Those are listed by the tool that checks manifests.
  if (kinds == "manifest reason") return true;
  return std::any_of(reasons_.begin(), reasons_.end(), [&](const SupportRow& row) {
    return kinds.find(row.keys[0]) != std::string::npos && fits(reason, row.text);
  });
}

std::vector<std::string> fixed_pieces(const std::string& text) {
  const std::regex gap(placeholder_form);
  std::vector<std::string> pieces;
  for (std::sregex_token_iterator piece(text.begin(), text.end(), gap, -1), none; piece != none; ++piece) {
    if (piece->length() > 0) pieces.push_back(piece->str());
  }
  return pieces;
}

}  // namespace kvx::test
