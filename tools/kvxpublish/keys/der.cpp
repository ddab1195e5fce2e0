#include "tools/kvxpublish/keys/der.h"

#include <algorithm>

namespace kvx::publish {
namespace {

constexpr uint8_t long_form = 0x80;
constexpr size_t number_bytes = 32;

// A positive integer of at most 32 bytes, filled up with zeros in front.
bool read_number(DerReader& reader, std::span<uint8_t> number) {
  const auto integer = reader.take(der_integer);
  if (!integer || integer->empty() || (integer->front() & 0x80) != 0) return false;
  Bytes digits = *integer;
  if (digits.front() == 0) digits = digits.subspan(1);
  if (digits.size() > number.size()) return false;
  std::ranges::fill(number, uint8_t{0});
  std::ranges::copy(digits, number.last(digits.size()).begin());
  return true;
}

}  // namespace

std::optional<Bytes> DerReader::take(uint8_t tag) {
  if (rest_.size() < 2 || rest_[0] != tag) return std::nullopt;
  size_t header = 2;
  size_t length = rest_[1];
  if (length >= long_form) {
    const size_t count = length & 0x7F;
    if (count == 0 || count > 2 || rest_.size() < header + count) return std::nullopt;
    length = 0;
    for (size_t i = 0; i < count; ++i) length = length << 8 | rest_[header + i];
    header += count;
  }
  if (rest_.size() - header < length) return std::nullopt;
  const Bytes content = rest_.subspan(header, length);
  rest_ = rest_.subspan(header + length);
  return content;
}

std::string der_value(uint8_t tag, std::string_view content) {
  std::string value(1, static_cast<char>(tag));
  if (content.size() >= long_form) value += static_cast<char>(long_form | 1);  // one byte of length follows
  value += static_cast<char>(content.size());
  return value.append(content);
}

bool read_der_signature(Bytes der, std::array<uint8_t, 64>& r_and_s) {
  DerReader outer(der);
  const auto sequence = outer.take(der_sequence);
  if (!sequence || !outer.is_at_end()) return false;
  DerReader numbers(*sequence);
  const std::span<uint8_t> both(r_and_s);
  return read_number(numbers, both.first(number_bytes)) && read_number(numbers, both.last(number_bytes)) &&
         numbers.is_at_end();
}

}  // namespace kvx::publish
