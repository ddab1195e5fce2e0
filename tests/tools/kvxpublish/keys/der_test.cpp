#include "tools/kvxpublish/keys/der.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace kvx::test {
namespace {

using publish::der_integer;
using publish::der_sequence;
using publish::der_value;

publish::Bytes as_bytes(const std::string& text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

std::string number(const std::string& digits) { return der_value(der_integer, digits); }

std::string signature(const std::string& r, const std::string& s) {
  return der_value(der_sequence, number(r) + number(s));
}

std::string read(const std::string& der) {
  std::array<uint8_t, 64> r_and_s{};
  if (!publish::read_der_signature(as_bytes(der), r_and_s)) return "refused";
  return {r_and_s.begin(), r_and_s.end()};
}

TEST(Der, WritesShortAndLongLengths) {
  EXPECT_EQ(der_value(0x30, ""), std::string("\x30\x00", 2));
  EXPECT_EQ(der_value(0x04, "ab"),
            "\x04\x02"
            "ab");
  EXPECT_EQ(der_value(0x04, std::string(127, 'x')), "\x04\x7F" + std::string(127, 'x'));
  EXPECT_EQ(der_value(0x04, std::string(128, 'x')), "\x04\x81\x80" + std::string(128, 'x'));
}

TEST(Der, ReadsSignaturesWhoseNumbersAreShortOrHaveALeadingZero) {
  const std::string full(32, '\x7F');
  const std::string high(32, '\xFF');
  EXPECT_EQ(read(signature(full, full)), full + full);
  EXPECT_EQ(read(signature('\0' + high, full)), high + full);
  EXPECT_EQ(read(signature("\x01", '\0' + high)), std::string(31, '\0') + '\x01' + high);
}

TEST(Der, RefusesWhatIsNoSignatureOnP256) {
  struct Case {
    const char* what;
    std::string der;
  };
  const std::string full(32, '\x7F');
  const std::string good = signature(full, full);
  for (const Case& c : std::vector<Case>{
           {"nothing", ""},
           {"a cut one", good.substr(0, good.size() - 1)},
           {"bytes after it", good + 'x'},
           {"one number alone", der_value(der_sequence, number(full))},
           {"three numbers", der_value(der_sequence, number(full) + number(full) + number(full))},
           {"a negative number", signature("\x80", full)},
           {"an empty number", signature("", full)},
           {"a number of 33 bytes", signature(full + 'x', full)},
           {"another type", der_value(der_sequence, der_value(0x04, full) + number(full))},
           {"a length without an end", std::string("\x30\x80", 2)},
           {"a length of three bytes", std::string("\x30\x83\x00\x00\x00", 5)},
       }) {
    EXPECT_EQ(read(c.der), "refused") << c.what;
  }
}

}  // namespace
}  // namespace kvx::test
