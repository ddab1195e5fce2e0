// What a command found out or did, for people and for machines. It is collected while the command runs and written once
// at its end: on standard output as lines "name=value", or as one JSON object; notes and the next step on standard
// error. A command that fails writes nothing of it but the failure.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "tools/kvxpublish/cli/console.h"
#include "tools/kvxpublish/cli/failure.h"

namespace kvx::publish {

using ReportValue = std::variant<std::string, uint64_t, bool>;
using ReportField = std::pair<std::string, ReportValue>;

class Report {
 public:
  Report();
  Report(const Report&) = delete;
  Report& operator=(const Report&) = delete;
  ~Report();

  // "name=value"; a member of the JSON object. Names are lower case with "_" and used once.
  void add(const std::string& name, const ReportValue& value);

  // One line "name=value" each; an array of the JSON object, also when it is empty.
  void add_list(const std::string& name, const std::vector<std::string>& values);

  // One more entry of a list of records: a line "list=first TAB second ..."; an object in the array "list".
  void add_record(const std::string& list, std::initializer_list<ReportField> fields);

  // Whole sentences for the person.
  void note(const std::string& text) { notes_.push_back(text); }
  void next_step(const std::string& text) { next_step_ = text; }

 private:
  friend void write_report(const Report& report, bool as_json, Console& console);

  struct Document;
  std::unique_ptr<Document> document_;
  std::string lines_;
  std::vector<std::string> notes_;
  std::string next_step_;
};

void write_report(const Report& report, bool as_json, Console& console);

// The failure's line on standard error; with `as_json` also {"error": TEXT, "code": NUMBER} on standard output.
void write_failure(const Failure& failure, bool as_json, Console& console);

}  // namespace kvx::publish
