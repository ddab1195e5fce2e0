#include "tools/kvxpublish/cli/problems.h"

#include <algorithm>
#include <array>

namespace kvx::publish {
namespace {

constexpr size_t most_lines = 20;

constexpr std::array by_gravity = {ExitCode::key, ExitCode::refused, ExitCode::failed};

size_t rank(const Failure& failure) {
  return static_cast<size_t>(std::ranges::find(by_gravity, failure.code) - by_gravity.begin());
}

}  // namespace

void Problems::add(ExitCode code, std::string line) {
  const std::scoped_lock lock(mutex_);
  lines_.push_back({code, std::move(line)});
}

bool Problems::settle(const std::string& where, Failure& failure) const {
  if (lines_.empty()) return true;
  std::vector<Failure> lines = lines_;
  std::ranges::sort(lines, {}, &Failure::text);
  const ExitCode code = std::ranges::min(lines, {}, rank).code;
  if (lines.size() == 1) return fail(code, lines.front().text, failure);
  std::string text = where + ": " + std::to_string(lines.size()) + " things are wrong";
  for (size_t i = 0; i < std::min(lines.size(), most_lines); ++i) text += "\n  " + lines[i].text;
  if (lines.size() > most_lines) text += "\n  and " + std::to_string(lines.size() - most_lines) + " more";
  return fail(code, text, failure);
}

}  // namespace kvx::publish
