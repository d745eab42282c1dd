#include <gtest/gtest.h>

#include "listing/ListText.h"

namespace listing {
namespace {

std::string lineOf(std::string_view name, std::string_view file = {}) {
  ListText list;
  list.add(0x12ab, name, file);
  return list.text().substr(sizeof("00000000000012ab t ") - 1);
}

TEST(ListTextTest, AddressTypeAndName) {
  ListText list;
  list.add(0x12ab, "main");
  list.add(0xffffffff81000000, "_text");
  EXPECT_EQ(list.text(), "00000000000012ab t main\nffffffff81000000 t _text\n");
}

TEST(ListTextTest, SourceFileBehindATab) {
  EXPECT_EQ(lineOf("main", "/a/b.c"), "main\t/a/b.c:0\n");
}

TEST(ListTextTest, ShortNamesHaveBlanksBehindThem) {
  EXPECT_EQ(lineOf("f"), "f  \n");
  EXPECT_EQ(lineOf("ab"), "ab \n");
  EXPECT_EQ(lineOf("abc"), "abc\n");
}

TEST(ListTextTest, WhatReadersTakeForMappingSymbolsIsWrittenOtherwise) {
  EXPECT_EQ(lineOf("f$abc"), "f\uFF04abc\n");
  EXPECT_EQ(lineOf("f$d$t"), "f\uFF04d\uFF04t\n");
  EXPECT_EQ(lineOf("f$xyz$"), "f$xyz$\n");
  EXPECT_EQ(lineOf("f", "/$a.c"),
            "f  \t/\uFF04"
            "a.c:0\n");
}

TEST(ListTextTest, ControlCharactersAreQuestionMarks) {
  EXPECT_EQ(lineOf("a\tb\nc\x7f"), "a?b?c?\n");
}

TEST(ListTextTest, OnlyUtf8) {
  EXPECT_EQ(lineOf("h\xC3\xA9llo"), "h\xC3\xA9llo\n");
  EXPECT_EQ(lineOf("h\xE9llo"), "h?llo\n");
  EXPECT_EQ(lineOf("abc\xC3"), "abc?\n");
  EXPECT_EQ(lineOf("x\xED\xA0\x80y"), "x???y\n");  // half of a surrogate pair
  EXPECT_EQ(lineOf("x\xF0\x9F\x98\x80"), "x\xF0\x9F\x98\x80\n");
}

}  // namespace
}  // namespace listing
