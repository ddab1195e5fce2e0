// The tables of docs/support.md: what the launcher says, as its publisher's support finds it.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kvx::test {

struct SupportRow {
  std::vector<std::string> keys;  // exit codes, or the kind of a reason
  std::string text;               // with "\n"; "*words*" are placeholders
};

class SupportTable {
 public:
  // Reads the document; fails the test when a table is not there, or one of its cells is empty.
  SupportTable();

  [[nodiscard]] const std::string& document() const { return document_; }
  // Every text of every table.
  [[nodiscard]] std::vector<std::string> texts() const;

  // A message box, or the result message of a run that ended with this code, is what one of the rows says; a reason in
  // it is what one of its rows says. With a code, the message is one that such a run ends with.
  [[nodiscard]] bool explains_message(const std::string& text, std::optional<int> code = {}) const;
  [[nodiscard]] bool explains_result(int code, const std::string& message) const;

 private:
  [[nodiscard]] bool fits(const std::string& text, const std::string& row) const;
  [[nodiscard]] bool is_known_reason(const std::string& kinds, const std::string& reason) const;

  std::string document_;
  std::vector<SupportRow> messages_;
  std::vector<SupportRow> continuations_;  // how a message that offers the installed game goes on
  std::vector<SupportRow> results_;
  std::vector<SupportRow> reasons_;
  std::vector<SupportRow> status_lines_;
  std::vector<SupportRow> detail_lines_;
};

// A text of the document between its placeholders.
[[nodiscard]] std::vector<std::string> fixed_pieces(const std::string& text);

}  // namespace kvx::test
