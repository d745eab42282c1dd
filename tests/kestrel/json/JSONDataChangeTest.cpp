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
  EXPECT_EQ(R"({"a":1,"b":1})", compact(node));
  EXPECT_EQ(3, one->refCount());
  node.setByKey("a", two);
  EXPECT_EQ(R"({"a":2,"b":1})", compact(node));
  EXPECT_EQ(2, one->refCount());
  EXPECT_EQ(2, two->refCount());
  node.setByKey("a", two);  // by itself
  EXPECT_EQ(2, two->refCount());
  JSONData::release(one);
  JSONData::release(two);
}

TEST(JSONDataChange, SetByKeyReplacesTheLastOfEqualKeys) {
  JSONData node;
  parse(node, R"({"a":1,"a":2})");
  auto* const three = new JSONData;
  three->setLong(3);
  node.setByKey("a", three);
  EXPECT_EQ(R"({"a":1,"a":3})", compact(node));
}

TEST(JSONDataChange, SetByKeyOfANullValueRemovesTheMember) {
  JSONData node;
  parse(node, R"({"a":1,"b":2,"a":3})");
  JSONData* const last = node.getByKey("a");
  last->retain();
  node.setByKey("a", nullptr);
  EXPECT_EQ(R"({"a":1,"b":2})", compact(node));
  EXPECT_EQ(1, last->refCount());
  JSONData::release(last);
  node.setByKey("missing", nullptr);
  EXPECT_EQ(R"({"a":1,"b":2})", compact(node));
  node.setByKey(*node.getKeyAtIndex(0), nullptr);
  EXPECT_EQ(R"({"b":2})", compact(node));
}

TEST(JSONDataChange, SetByKeyTurnsAnotherTypeIntoAnObject) {
  JSONData node;
  parse(node, R"(["key",7])");
  node.setByKey(*node.getByIndex(0)->stringValue(), node.getByIndex(1));
  EXPECT_EQ(R"({"key":7})", compact(node));
  EXPECT_EQ(1, node.getByKey("key")->refCount());
  node.setLong(1);
  node.setByKey("x", nullptr);
  EXPECT_EQ("{}", compact(node));
}

TEST(JSONDataChange, SetByKeyOfANullKeyDoesNothing) {
  JSONData node;
  JSONData* const value = heldLong(1);
  node.setByKey(static_cast<const char*>(nullptr), value);
  EXPECT_EQ(0, node.type());
  EXPECT_EQ(1, value->refCount());
  JSONData::release(value);
}

TEST(JSONDataChange, SetByIndexReplacesInRange) {
  JSONData node;
  parse(node, "[1,2,3]");
  JSONData* const old = node.getByIndex(1);
  old->retain();
  JSONData* const value = heldLong(9);
  node.setByIndex(1, value);
  EXPECT_EQ("[1,9,3]", compact(node));
  EXPECT_EQ(1, old->refCount());
  EXPECT_EQ(2, value->refCount());
  node.setByIndex(1, value);
  EXPECT_EQ(2, value->refCount());
  JSONData::release(old);
  JSONData::release(value);
}

TEST(JSONDataChange, SetByIndexAppendsAtTheLength) {
  JSONData node;
  parse(node, "[1]");
  JSONData* const value = heldLong(2);
  node.setByIndex(1, value);
  EXPECT_EQ("[1,2]", compact(node));
  EXPECT_EQ(2, value->refCount());
  JSONData::release(value);
}

TEST(JSONDataChange, SetByIndexPadsWithNulls) {
  JSONData node;
  parse(node, "[1]");
  JSONData* const value = heldLong(2);
  node.setByIndex(3, value);
  EXPECT_EQ("[1,null,null,2]", compact(node));
  EXPECT_EQ(1, node.getByIndex(1)->type());
  EXPECT_EQ(1, node.getByIndex(1)->refCount());
  EXPECT_NE(node.getByIndex(1), node.getByIndex(2));
  JSONData::release(value);
}

TEST(JSONDataChange, SetByIndexTurnsAnotherTypeIntoAnArray) {
  JSONData node;
  parse(node, R"({"a":5,"b":6})");
  node.setByIndex(0, node.getByKey("b"));
  EXPECT_EQ("[6]", compact(node));
  node.setLong(1);
  JSONData* const value = heldLong(2);
  node.setByIndex(1, value);
  EXPECT_EQ("[null,2]", compact(node));
  JSONData::release(value);
}

TEST(JSONDataChange, SetByIndexTakesAMillionPastTheEndAndNoMore) {
  JSONData node;
  parse(node, R"({"a":1})");
  JSONData* const value = heldLong(2);
  node.setByIndex(1000001, value);  // the array would start empty
  EXPECT_EQ(R"({"a":1})", compact(node));
  EXPECT_EQ(1, value->refCount());
  node.setByIndex(std::numeric_limits<int>::max(), value);
  EXPECT_EQ(R"({"a":1})", compact(node));
  EXPECT_EQ(1, value->refCount());
  node.setByIndex(1000000, value);
  EXPECT_EQ(1000001, node.length());
  EXPECT_EQ(1, node.getByIndex(999999)->type());
  EXPECT_EQ(2, node.getByIndex(1000000)->longValue());
  EXPECT_EQ(2, value->refCount());
  JSONData::release(value);
}

TEST(JSONDataChange, SetByIndexOfANegativeIndexChangesNothing) {
  JSONData node;
  node.setLong(5);
  JSONData* const value = heldLong(2);
  node.setByIndex(-1, value);
  node.setByIndex(std::numeric_limits<int>::min(), value);
  EXPECT_EQ("5", compact(node));
  EXPECT_EQ(1, value->refCount());
  JSONData::release(value);
}

TEST(JSONDataChange, SetByIndexOfANullValueRemovesInRangeAndChangesNothingPastTheEnd) {
  JSONData node;
  parse(node, "[1,2,3]");
  node.setByIndex(3, nullptr);
  node.setByIndex(7, nullptr);
  node.setByIndex(-1, nullptr);
  EXPECT_EQ("[1,2,3]", compact(node));
  node.setByIndex(1, nullptr);
  EXPECT_EQ("[1,3]", compact(node));
  parse(node, R"({"a":1})");
  node.setByIndex(0, nullptr);
  EXPECT_EQ(R"({"a":1})", compact(node));
  node.setLong(5);
  node.setByIndex(0, nullptr);
  EXPECT_EQ("5", compact(node));
}

TEST(JSONDataChange, EraseByIndex) {
  JSONData node;
  parse(node, "[1,2,3]");
  JSONData* const second = node.getByIndex(1);
  second->retain();
  node.erase(1);
  EXPECT_EQ("[1,3]", compact(node));
  EXPECT_EQ(1, second->refCount());
  JSONData::release(second);
  parse(node, R"({"a":1,"b":2})");
  node.erase(0);
  EXPECT_EQ(R"({"b":2})", compact(node));
}

TEST(JSONDataChange, EraseByKeyTakesTheLastOfEqualKeys) {
  JSONData node;
  parse(node, R"({"a":1,"b":2,"a":3})");
  node.erase("a");
  EXPECT_EQ(R"({"a":1,"b":2})", compact(node));
  node.erase(std::string("a"));
  EXPECT_EQ(R"({"b":2})", compact(node));
}

TEST(JSONDataChange, EraseOfWhatIsNotThereDoesNothing) {
  JSONData node;
  parse(node, "[1,2]");
  node.erase(2);
  node.erase(-1);
  node.erase("a");
  EXPECT_EQ("[1,2]", compact(node));
  parse(node, R"({"a":1})");
  node.erase(1);
  node.erase("b");
  node.erase(std::string("b"));
  node.erase(static_cast<const char*>(nullptr));
  EXPECT_EQ(R"({"a":1})", compact(node));
  node.setLong(3);
  node.erase(0);
  node.erase("a");
  EXPECT_EQ("3", compact(node));
}
