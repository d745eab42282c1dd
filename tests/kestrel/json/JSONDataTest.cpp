#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "kestrel/json/JSONData.h"
#include "tests/kestrel/json/JsonTexts.h"

using kestrel::JSONData;

namespace {

constexpr long long LONGEST = std::numeric_limits<long long>::max();
constexpr long long SHORTEST = std::numeric_limits<long long>::min();

}  // namespace

TEST(JSONData, FreshNodeHasNoTypeAndNoHolder) {
  JSONData node;
  EXPECT_EQ(0, node.type());
  EXPECT_EQ(0, node.refCount());
  EXPECT_EQ(0, node.length());
  EXPECT_FALSE(node.booleanValue());
}

TEST(JSONData, TypeCodes) {
  JSONData node;
  node.setNull();
  EXPECT_EQ(1, node.type());
  node.setBoolean(true);
  EXPECT_EQ(2, node.type());
  node.setObject();
  EXPECT_EQ(3, node.type());
  node.setArray();
  EXPECT_EQ(4, node.type());
  node.setString("a");
  EXPECT_EQ(5, node.type());
  node.setLong(1);
  EXPECT_EQ(6, node.type());
  node.setDouble(1);
  EXPECT_EQ(7, node.type());
}

TEST(JSONData, SettingTheSameTypeKeepsTheContent) {
  JSONData node;
  parse(node, R"({"a":1})");
  node.setType(3);
  EXPECT_EQ(R"({"a":1})", compact(node));
  node.setString("x");
  node.setType(5);
  EXPECT_EQ("x", *node.stringValue());
}

TEST(JSONData, SettingAnotherTypeDropsTheContent) {
  JSONData node;
  parse(node, R"({"a":1})");
  node.setType(4);
  EXPECT_EQ("[]", compact(node));
  node.setType(3);
  EXPECT_EQ("{}", compact(node));
  node.setType(5);
  EXPECT_EQ("", *node.stringValue());
}

TEST(JSONData, UnknownTypeHasNoContentAndNoText) {
  JSONData node;
  parse(node, "[1]");
  node.setType(99);
  EXPECT_EQ(99, node.type());
  EXPECT_EQ(0, node.length());
  EXPECT_EQ("", compact(node));
  EXPECT_EQ(0, node.longValue());
  node.reset();
  EXPECT_EQ(0, node.type());
}

TEST(JSONData, NullPointerSetsAnEmptyString) {
  JSONData node;
  node.setString("x");
  node.setString(nullptr);
  ASSERT_NE(nullptr, node.stringValue());
  EXPECT_EQ("", *node.stringValue());
}

TEST(JSONData, StringsKeepZeroBytes) {
  JSONData node;
  node.setString(std::string("a\0b", 3));
  EXPECT_EQ(std::string("a\0b", 3), *node.stringValue());
}

TEST(JSONData, StringCanBeSetFromThePartOfTheNodeThatGoes) {
  JSONData node;
  parse(node, R"(["a text that is too long for a short buffer"])");
  node.setString(*node.getByIndex(0)->stringValue());
  EXPECT_EQ("a text that is too long for a short buffer", *node.stringValue());
  node.setString(*node.stringValue());
  EXPECT_EQ("a text that is too long for a short buffer", *node.stringValue());
}

TEST(JSONData, ReadsOfEveryType) {
  JSONData node;
  node.setLong(-3);
  EXPECT_EQ(-3, node.longValue());
  EXPECT_EQ(-3.0, node.doubleValue());
  EXPECT_EQ(nullptr, node.stringValue());
  node.setDouble(-2.75);
  EXPECT_EQ(-2, node.longValue());
  EXPECT_EQ(-2.75, node.doubleValue());
  node.setBoolean(true);
  EXPECT_EQ(1, node.longValue());
  EXPECT_EQ(1.0, node.doubleValue());
  EXPECT_TRUE(node.booleanValue());
  node.setBoolean(false);
  EXPECT_EQ(0, node.longValue());
  EXPECT_EQ(0.0, node.doubleValue());
  EXPECT_FALSE(node.booleanValue());
  for (const int type : {0, 1, 3, 4, 5}) {
    node.setType(type);
    EXPECT_EQ(0, node.longValue());
    EXPECT_EQ(0.0, node.doubleValue());
  }
}

TEST(JSONData, BooleanValueLooksAtTheFirstByteOnly) {
  JSONData node;
  node.setLong(-1);  // all bytes 0xff
  EXPECT_TRUE(node.booleanValue());
  node.setLong(0);
  EXPECT_FALSE(node.booleanValue());
  node.setLong(-1);
  node.setBoolean(false);
  EXPECT_FALSE(node.booleanValue());
}

TEST(JSONData, DoubleOutsideTheRangeOfALongSaturates) {
  JSONData node;
  const auto asLong = [&](double value) {
    node.setDouble(value);
    return node.longValue();
  };
  EXPECT_EQ(LONGEST, asLong(9223372036854775808.0));
  EXPECT_EQ(9223372036854774784LL, asLong(9223372036854774784.0));
  EXPECT_EQ(SHORTEST, asLong(-9223372036854775808.0));
  EXPECT_EQ(SHORTEST, asLong(-9223372036854777856.0));
  EXPECT_EQ(LONGEST, asLong(1e300));
  EXPECT_EQ(LONGEST, asLong(std::numeric_limits<double>::infinity()));
  EXPECT_EQ(SHORTEST, asLong(-std::numeric_limits<double>::infinity()));
}

TEST(JSONData, NotANumberIsTheLong0) {
  JSONData node;
  node.setDouble(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(0, node.longValue());
}

TEST(JSONData, GetByIndexIsRangeChecked) {
  JSONData node;
  parse(node, "[10,20]");
  EXPECT_EQ(20, node.getByIndex(1)->longValue());
  EXPECT_EQ(nullptr, node.getByIndex(2));
  EXPECT_EQ(nullptr, node.getByIndex(-1));
  JSONData object;
  parse(object, R"({"a":1,"b":2})");
  EXPECT_EQ(2, object.getByIndex(1)->longValue());
  EXPECT_EQ(nullptr, object.getByIndex(2));
  object.setLong(1);
  EXPECT_EQ(nullptr, object.getByIndex(0));
}

TEST(JSONData, GetByKeyFindsTheLastOfEqualKeys) {
  JSONData node;
  parse(node, R"({"a":1,"b":5,"a":2})");
  EXPECT_EQ(2, node.getByKey("a")->longValue());
  EXPECT_EQ(2, node.getByKey(std::string("a"))->longValue());
  EXPECT_EQ(5, node.getByKey("b")->longValue());
  EXPECT_EQ(nullptr, node.getByKey("A"));
  EXPECT_EQ(nullptr, node.getByKey("ab"));
  EXPECT_EQ(nullptr, node.getByKey(static_cast<const char*>(nullptr)));
  EXPECT_EQ(R"({"a":1,"b":5,"a":2})", compact(node));
}

TEST(JSONData, GetByKeyOfAnotherTypeIsNull) {
  JSONData node;
  parse(node, "[1]");
  EXPECT_EQ(nullptr, node.getByKey("a"));
  node.setLong(1);
  EXPECT_EQ(nullptr, node.getByKey(std::string("a")));
}

TEST(JSONData, KeysAtIndexes) {
  JSONData node;
  parse(node, R"({"a":1,"b":2})");
  EXPECT_EQ("a", *node.getKeyAtIndex(0));
  EXPECT_EQ("b", *node.getKeyAtIndex(1));
  EXPECT_EQ(nullptr, node.getKeyAtIndex(2));
  EXPECT_EQ(nullptr, node.getKeyAtIndex(-1));
  parse(node, "[1]");
  EXPECT_EQ(nullptr, node.getKeyAtIndex(0));
}

TEST(JSONData, KeysStayWhereTheyAreWhileOthersComeAndGo) {
  JSONData node;
  parse(node, R"({"x":0,"kept":1})");
  const std::string* const key = node.getKeyAtIndex(1);
  node.erase("x");
  for (int i = 0; i < 100; ++i) node.setByKey(std::to_string(i), new JSONData);
  EXPECT_EQ(key, node.getKeyAtIndex(0));
  EXPECT_EQ("kept", *key);
}

TEST(JSONData, ResetReleasesTheChildren) {
  JSONData node;
  JSONData* const value = heldLong(1);
  node.setByKey("a", value);
  node.reset();
  EXPECT_EQ(0, node.type());
  EXPECT_EQ(1, value->refCount());
  JSONData::release(value);
}

TEST(JSONData, ClearEmptiesTheContentAndKeepsTheType) {
  JSONData node;
  const auto cleared = [&](const char* json) {
    parse(node, json);
    node.clear();
    return compact(node);
  };
  EXPECT_EQ("{}", cleared(R"({"a":[1]})"));
  EXPECT_EQ("[]", cleared("[1,[2]]"));
  EXPECT_EQ("\"\"", cleared("\"abc\""));
  EXPECT_EQ("0", cleared("12"));
  EXPECT_EQ("0", cleared("1.5"));
  EXPECT_EQ(7, node.type());
  EXPECT_EQ("false", cleared("true"));
  EXPECT_EQ("null", cleared("null"));
}

TEST(JSONData, CloneIsDeepAndHeldByNobody) {
  const std::string json = R"({"b":[1,2.5,"x",{"k":null}],"a":true,"b":{}})";
  JSONData node;
  parse(node, json);
  JSONData* const twin = node.clone();
  EXPECT_EQ(0, twin->refCount());
  EXPECT_EQ(json, compact(*twin));
  EXPECT_EQ(1, twin->getByIndex(0)->refCount());
  EXPECT_NE(node.getByIndex(0), twin->getByIndex(0));
  twin->getByIndex(0)->setLong(7);
  twin->erase("a");
  EXPECT_EQ(json, compact(node));
  EXPECT_EQ(R"({"b":7,"b":{}})", compact(*twin));
  JSONData::release(twin);
}

TEST(JSONData, CloneOfAFreshNode) {
  JSONData node;
  JSONData* const twin = node.clone();
  EXPECT_EQ(0, twin->type());
  JSONData::release(twin);
}

TEST(JSONData, CopyKeepsTheHoldersAndTheOrder) {
  JSONData source;
  parse(source, R"({"b":1,"a":[2]})");
  JSONData* const target = heldLong(5);
  target->retain();
  target->copy(source);
  EXPECT_EQ(2, target->refCount());
  EXPECT_EQ(R"({"b":1,"a":[2]})", compact(*target));
  source.getByKey("a")->setNull();
  EXPECT_EQ(R"({"b":1,"a":[2]})", compact(*target));
  JSONData::release(target);
  JSONData::release(target);
}

TEST(JSONData, CopyIsSafeFromItself) {
  JSONData node;
  parse(node, R"({"a":[1,"x"]})");
  node.copy(node);
  EXPECT_EQ(R"({"a":[1,"x"]})", compact(node));
}

TEST(JSONData, CopyIsSafeFromAnAncestor) {
  JSONData node;
  parse(node, R"({"a":[1,{"b":2}]})");
  node.getByKey("a")->getByIndex(1)->copy(node);
  EXPECT_EQ(R"({"a":[1,{"a":[1,{"b":2}]}]})", compact(node));
}

TEST(JSONData, CopyIsSafeFromADescendant) {
  JSONData node;
  parse(node, R"({"a":[1,{"b":"a text that is too long for a short buffer"}]})");
  node.copy(*node.getByKey("a")->getByIndex(1));
  EXPECT_EQ(R"({"b":"a text that is too long for a short buffer"})", compact(node));
}

TEST(JSONData, ReferenceCountSticksAt65535) {
  static JSONData* const node = heldLong(1);  // reachable to the end: it is never freed
  for (int i = 2; i < 65535; ++i) node->retain();
  EXPECT_EQ(65534, node->refCount());
  JSONData::release(node);
  EXPECT_EQ(65533, node->refCount());
  node->retain();
  node->retain();
  EXPECT_EQ(65535, node->refCount());
  node->retain();
  EXPECT_EQ(65535, node->refCount());
  for (int i = 0; i < 70000; ++i) JSONData::release(node);
  EXPECT_EQ(65535, node->refCount());
  EXPECT_EQ(1, node->longValue());
}

TEST(JSONData, StuckNodeSurvivesItsContainers) {
  static JSONData* const shared = heldLong(1);
  {
    JSONData container;
    for (int i = 0; i < 70000; ++i) container.setByIndex(i, shared);
    EXPECT_EQ(65535, shared->refCount());
  }
  EXPECT_EQ(65535, shared->refCount());
  EXPECT_EQ(1, shared->longValue());
}

TEST(JSONData, SharedChildLivesAsLongAsItsLastHolder) {
  auto* const first = new JSONData;
  auto* const second = new JSONData;
  JSONData* const value = heldLong(4);
  first->setByKey("v", value);
  second->setByIndex(0, value);
  JSONData::release(value);
  JSONData::release(first);
  EXPECT_EQ("[4]", compact(*second));
  JSONData::release(second);
  JSONData::release(nullptr);
}
