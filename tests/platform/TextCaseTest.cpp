#include <gtest/gtest.h>

#include "platform/TextCase.hpp"

namespace brimlog {
namespace {

TEST(TextCaseTest, LowercasesEveryLetterItKnows) {
  EXPECT_EQ(lowercased("Opus 4.1"), "opus 4.1");
  EXPECT_EQ(lowercased("ÉCLAIR Ÿ"), "éclair ÿ");
  EXPECT_EQ(lowercased("ŁÓDŹ"), "łódź");
  EXPECT_EQ(lowercased("ΣΟΦΙΑ Ά"), "σοφια ά");
  EXPECT_EQ(lowercased("МОДЕЛЬ Ё"), "модель ё");
  EXPECT_EQ(lowercased("İ"), "i\xCC\x87");
  // Other scripts and broken UTF-8 pass through.
  EXPECT_EQ(lowercased("模型 Ⅻ"), "模型 Ⅻ");
  EXPECT_EQ(lowercased("A\xFF"
                       "B\xC3"),
            "a\xFF"
            "b\xC3");
  EXPECT_EQ(lowercased(""), "");
}

TEST(TextCaseTest, UppercasesOnlyTheFirstCharacter) {
  EXPECT_EQ(uppercasedFirst("max"), "Max");
  EXPECT_EQ(uppercasedFirst("Team"), "Team");
  EXPECT_EQ(uppercasedFirst("élite"), "Élite");
  EXPECT_EQ(uppercasedFirst("ßtandard"), "SStandard");
  EXPECT_EQ(uppercasedFirst("ÿes"), "Ÿes");
  EXPECT_EQ(uppercasedFirst("ωmega"), "Ωmega");
  EXPECT_EQ(uppercasedFirst("жук"), "Жук");
  EXPECT_EQ(uppercasedFirst("1x"), "1x");
  EXPECT_EQ(uppercasedFirst(""), "");
  EXPECT_EQ(uppercasedFirst("\xC3"), "\xC3");
}

}  // namespace
}  // namespace brimlog
