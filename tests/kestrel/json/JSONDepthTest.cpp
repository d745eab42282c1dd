// Every operation at the greatest depth that parses, and some far beyond it: none may need thread
// stack for depth.
#include <cstdlib>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "kestrel/json/JSOM.h"
#include "kestrel/json/JSONData.h"
#include "tests/kestrel/json/JsonTexts.h"
#include "tests/support/StreamCapture.h"

using kestrel::JSOM;
using kestrel::JSONData;

namespace {

constexpr int DEEPEST = 10000;
constexpr int FAR_TOO_DEEP = 200000;

// Arrays and objects in turn, with a value beside and behind each inner one.
std::string nestedText(int depth) {
  std::string text;
  for (int i = 0; i < depth; ++i) {
    text += i % 2 == 0 ? "[1," : "{\"k\":";
  }
  text += "\"${DEPTH_TEST}\"";
  for (int i = depth - 1; i >= 0; --i) {
    text += i % 2 == 0 ? ",2]" : ",\"l\":3}";
  }
  return text;
}

// What no text can build.
JSONData* builtDown(int depth) {
  auto* node = new JSONData;
  node->setLong(1);
  for (int i = 0; i < depth; ++i) {
    auto* const outer = new JSONData;
    if (i % 2 == 0) {
      outer->setByIndex(0, node);
    } else {
      outer->setByKey("k", node);
    }
    node = outer;
  }
  return node;
}

}  // namespace

TEST(JSONDepth, ParseWriteAndFree) {
  const std::string text = nestedText(DEEPEST);
  JSONData node;
  ASSERT_TRUE(node.setFromJsonStlString(text));
  EXPECT_EQ(text, compact(node));
  std::istringstream in(text);
  node.reset();
  ASSERT_TRUE(node.setFromStream(in));
  EXPECT_EQ(text, compact(node));
}

TEST(JSONDepth, PrettyTextAndStream) {
  JSONData node;
  ASSERT_TRUE(node.setFromJsonStlString(nestedText(DEEPEST)));
  std::string pretty;
  node.toJsonString(pretty, true, 6);
  JSONData again;
  ASSERT_TRUE(again.setFromJsonStlString(pretty));
  std::ostringstream out;
  again.appendStream(out);
  EXPECT_EQ(nestedText(DEEPEST), out.str());
}

TEST(JSONDepth, CloneAndCopy) {
  JSONData node;
  ASSERT_TRUE(node.setFromJsonStlString(nestedText(DEEPEST)));
  JSONData* const twin = node.clone();
  EXPECT_EQ(nestedText(DEEPEST), compact(*twin));
  JSONData other;
  other.copy(*twin);
  JSONData::release(twin);
  EXPECT_EQ(nestedText(DEEPEST), compact(other));
  other.setNull();
}

TEST(JSONDepth, ExpandValues) {
  ASSERT_EQ(setenv("DEPTH_TEST", "found", 1), 0);
  JSOM handle;
  ASSERT_FALSE(handle.fromString(nestedText(DEEPEST)).isError());
  handle.expandValues();
  std::string out;
  handle.toCompactString(out, 6);
  std::string expected = nestedText(DEEPEST);
  expected.replace(expected.find("${DEPTH_TEST}"), 13, "found");
  EXPECT_EQ(out, expected);
}

TEST(JSONDepth, HandleDeepCopies) {
  JSOM handle;
  ASSERT_FALSE(handle.fromString(nestedText(DEEPEST)).isError());
  JSOM other;
  other["copy"] = handle;
  std::string out;
  other.toCompactString(out, 6);
  EXPECT_EQ(out, "{\"copy\":" + nestedText(DEEPEST) + "}");
}

TEST(JSONDepth, FailureAtTheGreatestDepthFreesEverything) {
  JSONData node;
  StderrCapture errors;
  EXPECT_FALSE(node.setFromJsonStlString(nestedText(DEEPEST + 1)));
  EXPECT_EQ(compact(node), "[1]");
}

TEST(JSONDepth, TreesDeeperThanAnyTextAreWrittenCopiedAndFreed) {
  JSONData* const node = builtDown(FAR_TOO_DEEP);
  JSONData* const twin = node->clone();
  EXPECT_EQ(compact(*node), compact(*twin));
  JSOM handle(twin);
  handle.expandValues();
  JSONData::release(node);
}

TEST(JSONDepth, WideTreesAreWrittenCopiedAndFreed) {
  JSONData node;
  for (int i = 0; i < 300000; ++i) {
    node.setByIndex(i, new JSONData);
  }
  JSONData* const twin = node.clone();
  EXPECT_EQ(twin->length(), 300000);
  JSONData::release(twin);
}
