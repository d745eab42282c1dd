#include <memory>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "model/MapName.h"

namespace {

MapName::SharedText shared(std::string text) {
  return std::make_shared<const std::string>(std::move(text));
}

MapName plain(const std::string& text) {
  MapName name;
  name = text;
  return name;
}

}  // namespace

TEST(MapNameTest, IsEmptyAtFirst) {
  const MapName name;
  EXPECT_EQ(name.str(), "");
  EXPECT_TRUE(name == "");
  EXPECT_TRUE(name.isOfNoFile());
  EXPECT_EQ(name.shared(), nullptr);
}

TEST(MapNameTest, PlainTextStandsAsItIs) {
  const MapName name = plain("/bin/app");
  EXPECT_EQ(name.str(), "/bin/app");
  EXPECT_EQ(static_cast<std::string>(name), "/bin/app");
  EXPECT_FALSE(name.isOfNoFile());
  EXPECT_EQ(*name.shared(), "/bin/app");
}

TEST(MapNameTest, PlainTextMayHoldAnyBytes) {
  const std::string bytes("a\0\xFF{}", 5);
  EXPECT_EQ(plain(bytes).str(), bytes);
}

TEST(MapNameTest, OnlyAnEmptyNameAndOneThatBeginsWithABraceAreOfNoFile) {
  EXPECT_TRUE(plain("").isOfNoFile());
  EXPECT_TRUE(plain("{").isOfNoFile());
  EXPECT_TRUE(plain("{stack}").isOfNoFile());
  EXPECT_FALSE(plain("/a{").isOfNoFile());
  EXPECT_FALSE(plain("}").isOfNoFile());
  EXPECT_FALSE(plain(std::string(1, '\0')).isOfNoFile());
}

TEST(MapNameTest, PageHasItsStartInHexadecimalDigits) {
  EXPECT_EQ(MapName::ofPage(shared("{app"), 0x12345).str(), "{app-12345}");
  EXPECT_EQ(MapName::ofPage(shared("{app"), 0xABCDEF).str(), "{app-abcdef}");
}

TEST(MapNameTest, PageAtZero) { EXPECT_EQ(MapName::ofPage(shared("{app"), 0).str(), "{app-0}"); }

TEST(MapNameTest, PageAtTheLastAddress) {
  EXPECT_EQ(MapName::ofPage(shared("{app"), UINT64_MAX).str(), "{app-ffffffffffffffff}");
}

TEST(MapNameTest, InterruptVectors) {
  EXPECT_EQ(MapName::ofInterrupts(shared("{app")).str(), "{app-interrupt}");
}

TEST(MapNameTest, MadeUpNamesAreOfNoFile) {
  EXPECT_TRUE(MapName::ofPage(shared("{app"), 1).isOfNoFile());
  EXPECT_TRUE(MapName::ofInterrupts(shared("{app")).isOfNoFile());
}

TEST(MapNameTest, MadeUpNamesShareTheirBeginning) {
  const MapName::SharedText beginning = shared("{" + std::string(5000, 'x'));
  const MapName page = MapName::ofPage(beginning, 0x1000);
  const MapName vectors = MapName::ofInterrupts(beginning);
  EXPECT_EQ(page.shared(), beginning);
  EXPECT_EQ(vectors.shared(), beginning);
  EXPECT_EQ(beginning.use_count(), 3);
  EXPECT_EQ(page.str(), *beginning + "-1000}");
  EXPECT_EQ(vectors.str(), *beginning + "-interrupt}");
}

TEST(MapNameTest, BeginningOutlivesWhoeverMadeIt) {
  MapName name;
  {
    const MapName::SharedText beginning = shared("{gone");
    name = MapName::ofPage(beginning, 16);
  }
  EXPECT_EQ(name.str(), "{gone-10}");
}

TEST(MapNameTest, CopiesShareToo) {
  const MapName::SharedText beginning = shared("{app");
  const MapName name = MapName::ofPage(beginning, 16);
  const MapName copy = name;
  EXPECT_EQ(copy.str(), "{app-10}");
  EXPECT_EQ(copy.shared(), beginning);
}

TEST(MapNameTest, CopiesOfAPlainTextShareIt) {
  const MapName name = plain("/bin/app");
  const MapName copy = name;
  EXPECT_EQ(copy.shared(), name.shared());
}

TEST(MapNameTest, OrderIsThatOfTheTexts) {
  const MapName::ByText isLess;
  EXPECT_TRUE(isLess(shared("a"), shared("b")));
  EXPECT_FALSE(isLess(shared("b"), shared("b")));
  EXPECT_TRUE(isLess(std::string("a"), shared("b")));
  EXPECT_FALSE(isLess(shared("b"), std::string("a")));
}

TEST(MapNameTest, EachKindReplacesTheOther) {
  const MapName::SharedText beginning = shared("{app");
  MapName name = MapName::ofPage(beginning, 16);
  name = std::string("/bin/app");
  EXPECT_EQ(name.str(), "/bin/app");
  EXPECT_EQ(*name.shared(), "/bin/app");
  EXPECT_FALSE(name.isOfNoFile());
  EXPECT_EQ(beginning.use_count(), 1);
  name = MapName::ofInterrupts(beginning);
  EXPECT_EQ(name.str(), "{app-interrupt}");
  EXPECT_EQ(name.shared(), beginning);
}

TEST(MapNameTest, EqualsTheTextThatItShows) {
  EXPECT_TRUE(MapName::ofPage(shared("{app"), 16) == "{app-10}");
  EXPECT_FALSE(MapName::ofPage(shared("{app"), 16) == "{app-11}");
  EXPECT_FALSE(MapName::ofPage(shared("{app"), 16) == "{app");
  EXPECT_FALSE(MapName::ofPage(shared("{app"), 16) == MapName::ofInterrupts(shared("{app")).str());
  EXPECT_TRUE(plain("{app-10}") == MapName::ofPage(shared("{app"), 16).str());
}
