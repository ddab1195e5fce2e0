#include "net/content_range.h"

namespace kvx {

bool take_number(std::wstring_view& text, uint64_t& number) {
  number = 0;
  size_t digits = 0;
  while (digits < text.size() && text[digits] >= L'0' && text[digits] <= L'9') {
    number = number * 10 + static_cast<uint64_t>(text[digits] - L'0');
    ++digits;
  }
  text.remove_prefix(digits);
  return digits > 0;
}

bool is_expected_range(std::wstring_view content_range, uint64_t offset, uint64_t total_size) {
  constexpr std::wstring_view unit = L"bytes";
  if (content_range.size() < unit.size()) return false;
  const size_t unit_at = content_range.find(unit);
  if (unit_at == std::wstring_view::npos) return false;

  std::wstring_view rest = content_range.substr(unit_at + unit.size());
  while (rest.starts_with(L' ')) rest.remove_prefix(1);
  uint64_t first = 0;
  uint64_t last = 0;
  if (!take_number(rest, first)) return false;
  if (!rest.starts_with(L'-') || rest.size() < 2) return false;
  rest.remove_prefix(1);
  if (!take_number(rest, last)) return false;
  if (!rest.starts_with(L'/')) return false;
  rest.remove_prefix(1);

  uint64_t total = total_size;
  const bool total_is_open = rest.empty() || rest.starts_with(L'*');
  if (!total_is_open && !take_number(rest, total)) return false;
  return total == total_size && first == offset && last + 1 == total_size;
}

}  // namespace kvx
