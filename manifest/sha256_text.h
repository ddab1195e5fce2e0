// A SHA-256 digest as text, kept in place: a manifest has one for each of its files.
#pragma once

#include <algorithm>
#include <array>
#include <string_view>

namespace kvx {

// 64 lower-case hexadecimal characters; a new one is all zeros.
class Sha256Text {
 public:
  static constexpr size_t length = 64;

  Sha256Text() { digits_.fill('0'); }

  // `text` passes is_sha256_hex.
  explicit Sha256Text(std::string_view text) : Sha256Text() {
    std::copy_n(text.begin(), std::min(length, text.size()), digits_.begin());
  }

  // NOLINTNEXTLINE(google-explicit-constructor): it is text
  operator std::string_view() const { return {digits_.data(), length}; }

  friend bool operator==(const Sha256Text&, const Sha256Text&) = default;
  friend bool operator==(const Sha256Text& a, std::string_view b) { return std::string_view(a) == b; }

 private:
  std::array<char, length> digits_{};
};

}  // namespace kvx
