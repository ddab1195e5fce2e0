#include "tools/kvxpublish/keys/base64.h"

namespace kvx::publish {
namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view blanks = " \t\r\n";
constexpr char padding = '=';
constexpr size_t group_characters = 4;  // for three bytes
constexpr size_t group_bytes = 3;
constexpr unsigned character_bits = 6;

}  // namespace

std::string to_base64(std::span<const uint8_t> bytes) {
  std::string text;
  for (size_t at = 0; at < bytes.size(); at += group_bytes) {
    const size_t count = std::min(group_bytes, bytes.size() - at);
    uint32_t group = 0;
    for (size_t i = 0; i < group_bytes; ++i) group = group << 8 | (i < count ? bytes[at + i] : 0U);
    for (size_t i = 0; i < group_characters; ++i) {
      const uint32_t value = group >> (character_bits * (group_characters - 1 - i)) & 0x3FU;
      text += i <= count ? alphabet[value] : padding;
    }
  }
  return text;
}

std::optional<std::vector<uint8_t>> from_base64(std::string_view text) {
  std::vector<uint8_t> bytes;
  uint32_t bits = 0;
  size_t characters = 0;
  size_t paddings = 0;
  for (const char character : text) {
    if (blanks.find(character) != std::string_view::npos) continue;
    const size_t value = alphabet.find(character);
    if (character == padding) {
      ++paddings;
    } else if (value == std::string_view::npos || paddings > 0) {
      return std::nullopt;
    }
    bits = bits << character_bits | (character == padding ? 0 : static_cast<uint32_t>(value));
    if (++characters % group_characters != 0) continue;
    for (size_t i = 0; i < group_bytes - std::min(paddings, group_bytes); ++i) {
      bytes.push_back(static_cast<uint8_t>(bits >> (8 * (group_bytes - 1 - i))));
    }
    bits = 0;
  }
  if (characters % group_characters != 0 || paddings > 2) return std::nullopt;
  return bytes;
}

}  // namespace kvx::publish
