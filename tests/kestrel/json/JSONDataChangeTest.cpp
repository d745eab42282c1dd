// What setByKey(), setByIndex() and erase() do to a container, and to the references on its
// children.
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "kestrel/json/JSONData.h"
#include "tests/kestrel/json/JsonTexts.h"

using kestrel::JSONData;

TEST(JSONDataChange, SetByKeyAppendsAndReplaces) {
  JSONData node;
  JSONData* const one = heldLong(1);
  JSONData* const two = heldLong(2);
  node.setByKey("a", one);
  node.setByKey(std::string("b"), one);
  EXPECT_EQ(compact(node), R"({"a":1,"b":1})");
  EXPECT_EQ(one->refCount(), 3);
  node.setByKey("a", two);
  EXPECT_EQ(compact(node), R"({"a":2,"b":1})");
  EXPECT_EQ(one->refCount(), 2);
  EXPECT_EQ(two->refCount(), 2);
  node.setByKey("a", two);  // by itself
  EXPECT_EQ(two->refCount(), 2);
  JSONData::release(one);
  JSONData::release(two);
}

TEST(JSONDataChange, SetByKeyReplacesTheLastOfEqualKeys) {
  JSONData node;
  parse(node, R"({"a":1,"a":2})");
  auto* const three = new JSONData;
  three->setLong(3);
  node.setByKey("a", three);
  EXPECT_EQ(compact(node), R"({"a":1,"a":3})");
}

TEST(JSONDataChange, SetByKeyOfANullValueRemovesTheMember) {
  JSONData node;
  parse(node, R"({"a":1,"b":2,"a":3})");
  JSONData* const last = node.getByKey("a");
  last->retain();
  node.setByKey("a", nullptr);
  EXPECT_EQ(compact(node), R"({"a":1,"b":2})");
  EXPECT_EQ(last->refCount(), 1);
  JSONData::release(last);
  node.setByKey("missing", nullptr);
  EXPECT_EQ(compact(node), R"({"a":1,"b":2})");
  node.setByKey(*node.getKeyAtIndex(0), nullptr);
  EXPECT_EQ(compact(node), R"({"b":2})");
}

TEST(JSONDataChange, SetByKeyTurnsAnotherTypeIntoAnObject) {
  JSONData node;
  parse(node, R"(["key",7])");
  node.setByKey(*node.getByIndex(0)->stringValue(), node.getByIndex(1));
  EXPECT_EQ(compact(node), R"({"key":7})");
  EXPECT_EQ(node.getByKey("key")->refCount(), 1);
  node.setLong(1);
  node.setByKey("x", nullptr);
  EXPECT_EQ(compact(node), "{}");
}

TEST(JSONDataChange, SetByKeyOfANullKeyDoesNothing) {
  JSONData node;
  JSONData* const value = heldLong(1);
  node.setByKey(static_cast<const char*>(nullptr), value);
  EXPECT_EQ(node.type(), 0);
  EXPECT_EQ(value->refCount(), 1);
  JSONData::release(value);
}

TEST(JSONDataChange, SetByIndexReplacesInRange) {
  JSONData node;
  parse(node, "[1,2,3]");
  JSONData* const old = node.getByIndex(1);
  old->retain();
  JSONData* const value = heldLong(9);
  node.setByIndex(1, value);
  EXPECT_EQ(compact(node), "[1,9,3]");
  EXPECT_EQ(old->refCount(), 1);
  EXPECT_EQ(value->refCount(), 2);
  node.setByIndex(1, value);
  EXPECT_EQ(value->refCount(), 2);
  JSONData::release(old);
  JSONData::release(value);
}

TEST(JSONDataChange, SetByIndexAppendsAtTheLength) {
  JSONData node;
  parse(node, "[1]");
  JSONData* const value = heldLong(2);
  node.setByIndex(1, value);
  EXPECT_EQ(compact(node), "[1,2]");
  EXPECT_EQ(value->refCount(), 2);
  JSONData::release(value);
}

TEST(JSONDataChange, SetByIndexPadsWithNulls) {
  JSONData node;
  parse(node, "[1]");
  JSONData* const value = heldLong(2);
  node.setByIndex(3, value);
  EXPECT_EQ(compact(node), "[1,null,null,2]");
  EXPECT_EQ(node.getByIndex(1)->type(), 1);
  EXPECT_EQ(node.getByIndex(1)->refCount(), 1);
  EXPECT_NE(node.getByIndex(1), node.getByIndex(2));
  JSONData::release(value);
}

TEST(JSONDataChange, SetByIndexTurnsAnotherTypeIntoAnArray) {
  JSONData node;
  parse(node, R"({"a":5,"b":6})");
  node.setByIndex(0, node.getByKey("b"));
  EXPECT_EQ(compact(node), "[6]");
  node.setLong(1);
  JSONData* const value = heldLong(2);
  node.setByIndex(1, value);
  EXPECT_EQ(compact(node), "[null,2]");
  JSONData::release(value);
}

TEST(JSONDataChange, SetByIndexTakesAMillionPastTheEndAndNoMore) {
  JSONData node;
  parse(node, R"({"a":1})");
  JSONData* const value = heldLong(2);
  node.setByIndex(1000001, value);  // the array would start empty
  EXPECT_EQ(compact(node), R"({"a":1})");
  EXPECT_EQ(value->refCount(), 1);
  node.setByIndex(std::numeric_limits<int>::max(), value);
  EXPECT_EQ(compact(node), R"({"a":1})");
  EXPECT_EQ(value->refCount(), 1);
  node.setByIndex(1000000, value);
  EXPECT_EQ(node.length(), 1000001);
  EXPECT_EQ(node.getByIndex(999999)->type(), 1);
  EXPECT_EQ(node.getByIndex(1000000)->longValue(), 2);
  EXPECT_EQ(value->refCount(), 2);
  JSONData::release(value);
}

TEST(JSONDataChange, SetByIndexOfANegativeIndexChangesNothing) {
  JSONData node;
  node.setLong(5);
  JSONData* const value = heldLong(2);
  node.setByIndex(-1, value);
  node.setByIndex(std::numeric_limits<int>::min(), value);
  EXPECT_EQ(compact(node), "5");
  EXPECT_EQ(value->refCount(), 1);
  JSONData::release(value);
}

TEST(JSONDataChange, SetByIndexOfANullValueRemovesInRangeAndChangesNothingPastTheEnd) {
  JSONData node;
  parse(node, "[1,2,3]");
  node.setByIndex(3, nullptr);
  node.setByIndex(7, nullptr);
  node.setByIndex(-1, nullptr);
  EXPECT_EQ(compact(node), "[1,2,3]");
  node.setByIndex(1, nullptr);
  EXPECT_EQ(compact(node), "[1,3]");
  parse(node, R"({"a":1})");
  node.setByIndex(0, nullptr);
  EXPECT_EQ(compact(node), R"({"a":1})");
  node.setLong(5);
  node.setByIndex(0, nullptr);
  EXPECT_EQ(compact(node), "5");
}

TEST(JSONDataChange, EraseByIndex) {
  JSONData node;
  parse(node, "[1,2,3]");
  JSONData* const second = node.getByIndex(1);
  second->retain();
  node.erase(1);
  EXPECT_EQ(compact(node), "[1,3]");
  EXPECT_EQ(second->refCount(), 1);
  JSONData::release(second);
  parse(node, R"({"a":1,"b":2})");
  node.erase(0);
  EXPECT_EQ(compact(node), R"({"b":2})");
}

TEST(JSONDataChange, EraseByKeyTakesTheLastOfEqualKeys) {
  JSONData node;
  parse(node, R"({"a":1,"b":2,"a":3})");
  node.erase("a");
  EXPECT_EQ(compact(node), R"({"a":1,"b":2})");
  node.erase(std::string("a"));
  EXPECT_EQ(compact(node), R"({"b":2})");
}

TEST(JSONDataChange, EraseOfWhatIsNotThereDoesNothing) {
  JSONData node;
  parse(node, "[1,2]");
  node.erase(2);
  node.erase(-1);
  node.erase("a");
  EXPECT_EQ(compact(node), "[1,2]");
  parse(node, R"({"a":1})");
  node.erase(1);
  node.erase("b");
  node.erase(std::string("b"));
  node.erase(static_cast<const char*>(nullptr));
  EXPECT_EQ(compact(node), R"({"a":1})");
  node.setLong(3);
  node.erase(0);
  node.erase("a");
  EXPECT_EQ(compact(node), "3");
}
