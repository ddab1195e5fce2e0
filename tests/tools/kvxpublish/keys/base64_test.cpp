#include "tools/kvxpublish/keys/base64.h"

#include <gmock/gmock.h>

namespace kvx::test {
namespace {

std::string encoded(const std::string& text) {
  return publish::to_base64({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
}

std::string decoded(std::string_view text) {
  const auto bytes = publish::from_base64(text);
  return bytes ? std::string(bytes->begin(), bytes->end()) : "refused";
}

// The examples of RFC 4648, section 10.
TEST(Base64, GoesBothWays) {
  struct Case {
    const char* text;
    const char* base64;
  };
  for (const Case& c :
       {Case{"", ""}, Case{"f", "Zg=="}, Case{"fo", "Zm8="}, Case{"foo", "Zm9v"}, Case{"foob", "Zm9vYg=="},
        Case{"fooba", "Zm9vYmE="}, Case{"foobar", "Zm9vYmFy"}, Case{"\xFB\xFF\xBF", "+/+/"}}) {
    EXPECT_EQ(encoded(c.text), c.base64);
    EXPECT_EQ(decoded(c.base64), c.text);
  }
}

TEST(Base64, MayHaveBlanksAndLineEnds) { EXPECT_EQ(decoded("\r\nZm9v\n Ym\tFy \n"), "foobar"); }

TEST(Base64, IsRefusedWhereItIsDamaged) {
  for (const char* text : {"Z", "Zg", "Zg=", "Zg===", "Z===", "Zm9v=", "Zg==Zg==", "Zm9-", "Zm9_", "Zm,v", "===="}) {
    EXPECT_EQ(decoded(text), "refused") << text;
  }
}

}  // namespace
}  // namespace kvx::test
