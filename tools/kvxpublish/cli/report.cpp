#include "tools/kvxpublish/cli/report.h"

#include <nlohmann/json.hpp>

namespace kvx::publish {
namespace {

using OrderedJson = nlohmann::ordered_json;

std::string as_text(const ReportValue& value) {
  if (const auto* text = std::get_if<std::string>(&value)) return *text;
  if (const auto* number = std::get_if<uint64_t>(&value)) return std::to_string(*number);
  return std::get<bool>(value) ? "yes" : "no";
}

OrderedJson as_json_value(const ReportValue& value) {
  if (const auto* text = std::get_if<std::string>(&value)) return *text;
  return std::visit([](const auto& alternative) { return OrderedJson(alternative); }, value);
}

// Text that is not UTF-8 can only come from a file; it must not cost the rest.
std::string dump(const OrderedJson& document) {
  return document.dump(-1, ' ', false, OrderedJson::error_handler_t::replace) + '\n';
}

}  // namespace

struct Report::Document {
  OrderedJson root = OrderedJson::object();
};

Report::Report() : document_(std::make_unique<Document>()) {}
Report::~Report() = default;

void Report::add(const std::string& name, const ReportValue& value) {
  document_->root[name] = as_json_value(value);
  lines_ += name + '=' + as_text(value) + '\n';
}

void Report::add_list(const std::string& name, const std::vector<std::string>& values) {
  OrderedJson& list = document_->root[name] = OrderedJson::array();
  for (const std::string& value : values) {
    list.push_back(as_json_value(value));
    lines_ += name + '=' + as_text(value) + '\n';
  }
}

void Report::add_record(const std::string& list, std::initializer_list<ReportField> fields) {
  OrderedJson record = OrderedJson::object();
  std::string line;
  for (const auto& [name, value] : fields) {
    record[name] = as_json_value(value);
    line += (line.empty() ? "" : "\t") + as_text(value);
  }
  document_->root[list].push_back(std::move(record));
  lines_ += list + '=' + line + '\n';
}

void write_report(const Report& report, bool as_json, Console& console) {
  console.write_data(as_json ? dump(report.document_->root) : report.lines_);
  for (const std::string& note : report.notes_) {
    console.write_message(coloured(console, Colour::yellow, "note: ") + note + '\n');
  }
  if (!report.next_step_.empty()) {
    console.write_message(coloured(console, Colour::green, "next: ") + report.next_step_ + '\n');
  }
}

void write_failure(const Failure& failure, bool as_json, Console& console) {
  const std::string& text = failure.text;
  if (as_json) console.write_data(dump({{"error", text}, {"code", static_cast<int>(failure.code)}}));
  console.write_message(coloured(console, Colour::red, "kvxpublish: ") + text + '\n');
}

}  // namespace kvx::publish
