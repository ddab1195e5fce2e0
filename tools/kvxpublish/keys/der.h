// The little of DER (ITU-T X.690) that keys and signatures on P-256 need. Pure functions; any thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace kvx::publish {

using Bytes = std::span<const uint8_t>;

constexpr uint8_t der_integer = 0x02;
constexpr uint8_t der_bit_string = 0x03;
constexpr uint8_t der_octet_string = 0x04;
constexpr uint8_t der_object_identifier = 0x06;
constexpr uint8_t der_sequence = 0x30;

// Takes DER values off the front of a run of bytes.
class DerReader {
 public:
  explicit DerReader(Bytes bytes) : rest_(bytes) {}

  [[nodiscard]] bool is_at_end() const { return rest_.empty(); }
  [[nodiscard]] bool next_is(uint8_t tag) const { return !rest_.empty() && rest_[0] == tag; }

  // The content of the next value; nothing when its tag is another or its length runs past the end.
  std::optional<Bytes> take(uint8_t tag);

 private:
  Bytes rest_;
};

// One value: tag, length, content.
[[nodiscard]] std::string der_value(uint8_t tag, std::string_view content);

// An ECDSA signature as openssl and signing services give it (a sequence of two integers) as r then s, 32 bytes each,
// big-endian. False when it is anything else.
[[nodiscard]] bool read_der_signature(Bytes der, std::array<uint8_t, 64>& r_and_s);

}  // namespace kvx::publish
