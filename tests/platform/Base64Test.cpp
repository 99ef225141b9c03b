#include <gtest/gtest.h>

#include "platform/Base64.hpp"

namespace brimlog {
namespace {

TEST(Base64Test, StandardTextIsStrictAndURLSafeTextNeedsNoPadding) {
  EXPECT_EQ(base64Decode(""), "");
  EXPECT_EQ(base64Decode("aGk="), "hi");
  EXPECT_EQ(base64Decode("aA=="), "h");
  EXPECT_EQ(base64Decode("aGV5"), "hey");
  EXPECT_EQ(base64Decode("+/+/"), std::string("\xFB\xFF\xBF"));
  EXPECT_EQ(base64Decode("AAEC/w=="), std::string("\x00\x01\x02\xFF", 4));

  // Not padded, three pads, a pad inside, whitespace, the URL-safe alphabet, not ASCII.
  for (const char* text : {"aGk", "a===", "aG=k", "aA==aA==", "aG k", "aGk-", "aG\xC3\xA9"}) {
    EXPECT_EQ(base64Decode(text), std::nullopt) << text;
  }

  // URL-safe text needs no padding.
  EXPECT_EQ(base64URLDecode("_-8"), std::string("\xFF\xEF"));
  EXPECT_EQ(base64URLDecode("_-8="), std::string("\xFF\xEF"));
  EXPECT_EQ(base64URLDecode("eyJleHAiOjF9"), R"({"exp":1})");
  EXPECT_EQ(base64URLDecode("eyJleHAiOjE3fQ"), R"({"exp":17})");
  EXPECT_EQ(base64URLDecode(""), "");
  // One character over a group of four cannot hold a byte.
  EXPECT_EQ(base64URLDecode("eyJle"), std::nullopt);
  // The standard alphabet's own "+" and "/" are still read.
  EXPECT_EQ(base64URLDecode("+/8"), std::string("\xFB\xFF"));
  EXPECT_EQ(base64URLDecode("a.b"), std::nullopt);
}

}  // namespace
}  // namespace brimlog
