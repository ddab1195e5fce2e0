#include "foundations/version_number.h"

#include <algorithm>

namespace kvx {
namespace {

constexpr size_t longest_text = 32;
constexpr size_t most_components = 4;
constexpr uint64_t largest_component = 1000000000;

uint32_t component_or_zero(const std::vector<uint32_t>& components, size_t index) {
  return index < components.size() ? components[index] : 0;
}

}  // namespace

bool parse_version(std::string_view text, std::vector<uint32_t>& components) {
  components.clear();
  if (text.empty() || text.size() > longest_text) return false;
  uint64_t value = 0;
  bool after_digit = false;
  for (const char c : text) {
    if (c >= '0' && c <= '9') {
      value = value * 10 + static_cast<uint64_t>(c - '0');
      if (value > largest_component) return false;
      after_digit = true;
    } else if (c == '.' && after_digit) {
      components.push_back(static_cast<uint32_t>(value));
      value = 0;
      after_digit = false;
    } else {
      return false;
    }
  }
  if (!after_digit) return false;
  components.push_back(static_cast<uint32_t>(value));
  return components.size() <= most_components;
}

bool is_version(std::string_view text) {
  std::vector<uint32_t> components;
  return parse_version(text, components);
}

int compare_versions(std::string_view a, std::string_view b) {
  std::vector<uint32_t> left;
  std::vector<uint32_t> right;
  if (!parse_version(a, left) || !parse_version(b, right)) return 0;
  for (size_t i = 0; i < std::max(left.size(), right.size()); ++i) {
    const uint32_t l = component_or_zero(left, i);
    const uint32_t r = component_or_zero(right, i);
    if (l != r) return l < r ? -1 : 1;
  }
  return 0;
}

}  // namespace kvx
