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
  EXPECT_EQ(node.type(), 0);
  EXPECT_EQ(node.refCount(), 0);
  EXPECT_EQ(node.length(), 0);
  EXPECT_FALSE(node.booleanValue());
}

TEST(JSONData, TypeCodes) {
  JSONData node;
  node.setNull();
  EXPECT_EQ(node.type(), 1);
  node.setBoolean(true);
  EXPECT_EQ(node.type(), 2);
  node.setObject();
  EXPECT_EQ(node.type(), 3);
  node.setArray();
  EXPECT_EQ(node.type(), 4);
  node.setString("a");
  EXPECT_EQ(node.type(), 5);
  node.setLong(1);
  EXPECT_EQ(node.type(), 6);
  node.setDouble(1);
  EXPECT_EQ(node.type(), 7);
}

TEST(JSONData, SettingTheSameTypeKeepsTheContent) {
  JSONData node;
  parse(node, R"({"a":1})");
  node.setType(3);
  EXPECT_EQ(compact(node), R"({"a":1})");
  node.setString("x");
  node.setType(5);
  EXPECT_EQ(*node.stringValue(), "x");
}

TEST(JSONData, SettingAnotherTypeDropsTheContent) {
  JSONData node;
  parse(node, R"({"a":1})");
  node.setType(4);
  EXPECT_EQ(compact(node), "[]");
  node.setType(3);
  EXPECT_EQ(compact(node), "{}");
  node.setType(5);
  EXPECT_EQ(*node.stringValue(), "");
}

TEST(JSONData, UnknownTypeHasNoContentAndNoText) {
  JSONData node;
  parse(node, "[1]");
  node.setType(99);
  EXPECT_EQ(node.type(), 99);
  EXPECT_EQ(node.length(), 0);
  EXPECT_EQ(compact(node), "");
  EXPECT_EQ(node.longValue(), 0);
  node.reset();
  EXPECT_EQ(node.type(), 0);
}

TEST(JSONData, NullPointerSetsAnEmptyString) {
  JSONData node;
  node.setString("x");
  node.setString(nullptr);
  ASSERT_NE(node.stringValue(), nullptr);
  EXPECT_EQ(*node.stringValue(), "");
}

TEST(JSONData, StringsKeepZeroBytes) {
  JSONData node;
  node.setString(std::string("a\0b", 3));
  EXPECT_EQ(*node.stringValue(), std::string("a\0b", 3));
}

TEST(JSONData, StringCanBeSetFromThePartOfTheNodeThatGoes) {
  JSONData node;
  parse(node, R"(["a text that is too long for a short buffer"])");
  node.setString(*node.getByIndex(0)->stringValue());
  EXPECT_EQ(*node.stringValue(), "a text that is too long for a short buffer");
  node.setString(*node.stringValue());
  EXPECT_EQ(*node.stringValue(), "a text that is too long for a short buffer");
}

TEST(JSONData, ReadsOfEveryType) {
  JSONData node;
  node.setLong(-3);
  EXPECT_EQ(node.longValue(), -3);
  EXPECT_EQ(node.doubleValue(), -3.0);
  EXPECT_EQ(node.stringValue(), nullptr);
  node.setDouble(-2.75);
  EXPECT_EQ(node.longValue(), -2);
  EXPECT_EQ(node.doubleValue(), -2.75);
  node.setBoolean(true);
  EXPECT_EQ(node.longValue(), 1);
  EXPECT_EQ(node.doubleValue(), 1.0);
  EXPECT_TRUE(node.booleanValue());
  node.setBoolean(false);
  EXPECT_EQ(node.longValue(), 0);
  EXPECT_EQ(node.doubleValue(), 0.0);
  EXPECT_FALSE(node.booleanValue());
  for (const int type : {0, 1, 3, 4, 5}) {
    node.setType(type);
    EXPECT_EQ(node.longValue(), 0);
    EXPECT_EQ(node.doubleValue(), 0.0);
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
  EXPECT_EQ(asLong(9223372036854775808.0), LONGEST);
  EXPECT_EQ(asLong(9223372036854774784.0), 9223372036854774784LL);
  EXPECT_EQ(asLong(-9223372036854775808.0), SHORTEST);
  EXPECT_EQ(asLong(-9223372036854777856.0), SHORTEST);
  EXPECT_EQ(asLong(1e300), LONGEST);
  EXPECT_EQ(asLong(std::numeric_limits<double>::infinity()), LONGEST);
  EXPECT_EQ(asLong(-std::numeric_limits<double>::infinity()), SHORTEST);
}

TEST(JSONData, NotANumberIsTheLong0) {
  JSONData node;
  node.setDouble(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(node.longValue(), 0);
}

TEST(JSONData, GetByIndexIsRangeChecked) {
  JSONData node;
  parse(node, "[10,20]");
  EXPECT_EQ(node.getByIndex(1)->longValue(), 20);
  EXPECT_EQ(node.getByIndex(2), nullptr);
  EXPECT_EQ(node.getByIndex(-1), nullptr);
  JSONData object;
  parse(object, R"({"a":1,"b":2})");
  EXPECT_EQ(object.getByIndex(1)->longValue(), 2);
  EXPECT_EQ(object.getByIndex(2), nullptr);
  object.setLong(1);
  EXPECT_EQ(object.getByIndex(0), nullptr);
}

TEST(JSONData, GetByKeyFindsTheLastOfEqualKeys) {
  JSONData node;
  parse(node, R"({"a":1,"b":5,"a":2})");
  EXPECT_EQ(node.getByKey("a")->longValue(), 2);
  EXPECT_EQ(node.getByKey(std::string("a"))->longValue(), 2);
  EXPECT_EQ(node.getByKey("b")->longValue(), 5);
  EXPECT_EQ(node.getByKey("A"), nullptr);
  EXPECT_EQ(node.getByKey("ab"), nullptr);
  EXPECT_EQ(node.getByKey(static_cast<const char*>(nullptr)), nullptr);
  EXPECT_EQ(compact(node), R"({"a":1,"b":5,"a":2})");
}

TEST(JSONData, GetByKeyOfAnotherTypeIsNull) {
  JSONData node;
  parse(node, "[1]");
  EXPECT_EQ(node.getByKey("a"), nullptr);
  node.setLong(1);
  EXPECT_EQ(node.getByKey(std::string("a")), nullptr);
}

TEST(JSONData, KeysAtIndexes) {
  JSONData node;
  parse(node, R"({"a":1,"b":2})");
  EXPECT_EQ(*node.getKeyAtIndex(0), "a");
  EXPECT_EQ(*node.getKeyAtIndex(1), "b");
  EXPECT_EQ(node.getKeyAtIndex(2), nullptr);
  EXPECT_EQ(node.getKeyAtIndex(-1), nullptr);
  parse(node, "[1]");
  EXPECT_EQ(node.getKeyAtIndex(0), nullptr);
}

TEST(JSONData, KeysStayWhereTheyAreWhileOthersComeAndGo) {
  JSONData node;
  parse(node, R"({"x":0,"kept":1})");
  const std::string* const key = node.getKeyAtIndex(1);
  node.erase("x");
  for (int i = 0; i < 100; ++i) {
    node.setByKey(std::to_string(i), new JSONData);
  }
  EXPECT_EQ(key, node.getKeyAtIndex(0));
  EXPECT_EQ(*key, "kept");
}

TEST(JSONData, ResetReleasesTheChildren) {
  JSONData node;
  JSONData* const value = heldLong(1);
  node.setByKey("a", value);
  node.reset();
  EXPECT_EQ(node.type(), 0);
  EXPECT_EQ(value->refCount(), 1);
  JSONData::release(value);
}

TEST(JSONData, ClearEmptiesTheContentAndKeepsTheType) {
  JSONData node;
  const auto cleared = [&](const char* json) {
    parse(node, json);
    node.clear();
    return compact(node);
  };
  EXPECT_EQ(cleared(R"({"a":[1]})"), "{}");
  EXPECT_EQ(cleared("[1,[2]]"), "[]");
  EXPECT_EQ(cleared("\"abc\""), "\"\"");
  EXPECT_EQ(cleared("12"), "0");
  EXPECT_EQ(cleared("1.5"), "0");
  EXPECT_EQ(node.type(), 7);
  EXPECT_EQ(cleared("true"), "false");
  EXPECT_EQ(cleared("null"), "null");
}

TEST(JSONData, CloneIsDeepAndHeldByNobody) {
  const std::string json = R"({"b":[1,2.5,"x",{"k":null}],"a":true,"b":{}})";
  JSONData node;
  parse(node, json);
  JSONData* const twin = node.clone();
  EXPECT_EQ(twin->refCount(), 0);
  EXPECT_EQ(json, compact(*twin));
  EXPECT_EQ(twin->getByIndex(0)->refCount(), 1);
  EXPECT_NE(node.getByIndex(0), twin->getByIndex(0));
  twin->getByIndex(0)->setLong(7);
  twin->erase("a");
  EXPECT_EQ(json, compact(node));
  EXPECT_EQ(compact(*twin), R"({"b":7,"b":{}})");
  JSONData::release(twin);
}

TEST(JSONData, CloneOfAFreshNode) {
  JSONData node;
  JSONData* const twin = node.clone();
  EXPECT_EQ(twin->type(), 0);
  JSONData::release(twin);
}

TEST(JSONData, CopyKeepsTheHoldersAndTheOrder) {
  JSONData source;
  parse(source, R"({"b":1,"a":[2]})");
  JSONData* const target = heldLong(5);
  target->retain();
  target->copy(source);
  EXPECT_EQ(target->refCount(), 2);
  EXPECT_EQ(compact(*target), R"({"b":1,"a":[2]})");
  source.getByKey("a")->setNull();
  EXPECT_EQ(compact(*target), R"({"b":1,"a":[2]})");
  JSONData::release(target);
  JSONData::release(target);
}

TEST(JSONData, CopyIsSafeFromItself) {
  JSONData node;
  parse(node, R"({"a":[1,"x"]})");
  node.copy(node);
  EXPECT_EQ(compact(node), R"({"a":[1,"x"]})");
}

TEST(JSONData, CopyIsSafeFromAnAncestor) {
  JSONData node;
  parse(node, R"({"a":[1,{"b":2}]})");
  node.getByKey("a")->getByIndex(1)->copy(node);
  EXPECT_EQ(compact(node), R"({"a":[1,{"a":[1,{"b":2}]}]})");
}

TEST(JSONData, CopyIsSafeFromADescendant) {
  JSONData node;
  parse(node, R"({"a":[1,{"b":"a text that is too long for a short buffer"}]})");
  node.copy(*node.getByKey("a")->getByIndex(1));
  EXPECT_EQ(compact(node), R"({"b":"a text that is too long for a short buffer"})");
}

TEST(JSONData, ReferenceCountSticksAt65535) {
  static JSONData* const node = heldLong(1);  // reachable to the end: it is never freed
  for (int i = 2; i < 65535; ++i) {
    node->retain();
  }
  EXPECT_EQ(node->refCount(), 65534);
  JSONData::release(node);
  EXPECT_EQ(node->refCount(), 65533);
  node->retain();
  node->retain();
  EXPECT_EQ(node->refCount(), 65535);
  node->retain();
  EXPECT_EQ(node->refCount(), 65535);
  for (int i = 0; i < 70000; ++i) {
    JSONData::release(node);
  }
  EXPECT_EQ(node->refCount(), 65535);
  EXPECT_EQ(node->longValue(), 1);
}

TEST(JSONData, StuckNodeSurvivesItsContainers) {
  static JSONData* const shared = heldLong(1);
  {
    JSONData container;
    for (int i = 0; i < 70000; ++i) {
      container.setByIndex(i, shared);
    }
    EXPECT_EQ(shared->refCount(), 65535);
  }
  EXPECT_EQ(shared->refCount(), 65535);
  EXPECT_EQ(shared->longValue(), 1);
}

TEST(JSONData, SharedChildLivesAsLongAsItsLastHolder) {
  auto* const first = new JSONData;
  auto* const second = new JSONData;
  JSONData* const value = heldLong(4);
  first->setByKey("v", value);
  second->setByIndex(0, value);
  JSONData::release(value);
  JSONData::release(first);
  EXPECT_EQ(compact(*second), "[4]");
  JSONData::release(second);
  JSONData::release(nullptr);
}
