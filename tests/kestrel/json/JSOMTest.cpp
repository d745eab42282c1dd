#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kestrel/json/JSOM.h"
#include "tests/kestrel/json/JsonTexts.h"
#include "tests/support/StreamCapture.h"

using kestrel::JSOM;
using kestrel::JSONData;

namespace {

// Read by the constructor of a static object, before anything of this file or the library need be
// set up.
struct EarlyReader {
  EarlyReader()
      : isError(JSOM::JERROR.isError()),
        blankIsError(JSOM::BLANK.isError()),
        precision(JSOM::defaultPrecision),
        text(JSOM().stringValue(JSOM::EMPTY_STRING)) {}
  bool isError;
  bool blankIsError;
  int precision;
  std::string text;
};
const EarlyReader EARLY;

}  // namespace

TEST(JSOM, StaticMembers) {
  EXPECT_EQ(4, JSOM::defaultPrecision);
  EXPECT_EQ("", JSOM::EMPTY_STRING);
  EXPECT_TRUE(JSOM::JERROR.isError());
  EXPECT_FALSE(JSOM::BLANK.isError());
}

TEST(JSOM, StaticMembersCanBeUsedByOtherStaticObjects) {
  EXPECT_TRUE(EARLY.isError);
  EXPECT_FALSE(EARLY.blankIsError);
  EXPECT_EQ(4, EARLY.precision);
  EXPECT_EQ("", EARLY.text);
}

TEST(JSOM, CopyOfBlankIsARootOfItsOwn) {
  JSOM handle(JSOM::BLANK);
  handle["a"].setLong(1);
  EXPECT_EQ(R"({"a":1})", compact(handle));
  EXPECT_EQ("", compact(JSOM::BLANK));
  EXPECT_FALSE(JSOM::BLANK.isObject());
}

TEST(JSOM, ConstructionHoldsNodeAndParent) {
  auto* const node = new JSONData;
  auto* const parent = new JSONData;
  node->retain();
  parent->retain();
  {
    const JSOM bound(node, parent);
    const JSOM copy(bound);
    const JSOM element(parent, 0);
    const JSOM member(parent, "a");
    const std::string key = "b";
    const JSOM other(parent, key);
    EXPECT_EQ(3, node->refCount());
    EXPECT_EQ(6, parent->refCount());
    const JSOM root(node);
    EXPECT_EQ(4, node->refCount());
  }
  EXPECT_EQ(1, node->refCount());
  EXPECT_EQ(1, parent->refCount());
  JSONData::release(node);
  JSONData::release(parent);
}

TEST(JSOM, NullNodeGivesANullReference) {
  JSOM handle(static_cast<JSONData*>(nullptr));
  EXPECT_TRUE(handle.isError());
  StderrCapture errors;
  handle.setLong(1);
  EXPECT_EQ("JSOM::setLong(): null reference error\n", errors.end());
  EXPECT_TRUE(handle.isError());
}

TEST(JSOM, NullReferenceWithAParentTellsAnotherMessage) {
  auto* const parent = new JSONData;
  JSOM handle(static_cast<JSONData*>(nullptr), parent);
  StderrCapture errors;
  handle.setLong(1);
  EXPECT_EQ("JSOM::setLong(): internal error, no info\n", errors.end());
  EXPECT_TRUE(JSOM(parent, static_cast<const char*>(nullptr)).isError());
}

TEST(JSOM, EveryWriteThroughANullReferenceNamesItselfAndDoesNothing) {
  const JSOM value = loaded("1");
  StderrCapture errors;
  JSOM::JERROR.setLong(1);
  JSOM::JERROR.setBoolean(true);
  JSOM::JERROR.setDouble(1);
  JSOM::JERROR.setString("x");
  JSOM::JERROR.setString(std::string("x"));
  JSOM::JERROR = value;
  JSOM::JERROR.copy(value);
  JSOM::JERROR.copy(JSOM::BLANK);
  EXPECT_TRUE(JSOM::JERROR.fromString("1").isError());
  EXPECT_TRUE(JSOM::JERROR[0].isError());
  EXPECT_TRUE(JSOM::JERROR["a"].isError());
  EXPECT_TRUE(JSOM::JERROR[std::string("a")].isError());
  EXPECT_TRUE(JSOM::JERROR.at(0).isError());
  EXPECT_TRUE(JSOM::JERROR.at("a").isError());
  EXPECT_TRUE(JSOM::JERROR.at(std::string("a")).isError());
  JSOM::JERROR.clear();
  JSOM::JERROR.erase(0);
  JSOM::JERROR.erase("a");
  JSOM::JERROR.erase(std::string("a"));
  JSOM::JERROR.expandValues();
  EXPECT_TRUE(JSOM::JERROR.isError());
  EXPECT_EQ(
      "JSOM::setLong(): null reference error\n"
      "JSOM::setBoolean(): null reference error\n"
      "JSOM::setDouble(): null reference error\n"
      "JSOM::setString(char *): null reference error\n"
      "JSOM::setString(string &): null reference error\n"
      "JSOM::operator[](int32_t): null reference error\n"
      "JSOM::copy(): null reference error\n"
      "JSOM::copy(): null reference error\n"
      "JSOM::fromString(): null reference error\n"
      "JSOM::operator[](int32_t): null reference error\n"
      "JSOM::operator[](char *): null reference error\n"
      "JSOM::operator[](string &): null reference error\n"
      "JSOM::at(int32_t): null reference error\n"
      "JSOM::at(char *): null reference error\n"
      "JSOM::at(string &): null reference error\n",
      errors.end());
}

TEST(JSOM, ReadingTheMemberOfAMissingMemberGivesTheDefaultAndAddsNothing) {
  JSOM root = loaded(R"({"a":1})");
  EXPECT_EQ(7, root["missing"]["deeper"].longValue(7));
  EXPECT_EQ(8, root["missing"][0][std::string("x")][-1].longValue(8));
  EXPECT_EQ(9, root.at("missing").at(0).at(std::string("x")).at(-1).longValue(9));
  EXPECT_FALSE(root["missing"]["deeper"].isObject());
  EXPECT_EQ(R"({"a":1})", compact(root));
}

TEST(JSOM, IndexingAnEmptyRootTwiceAndWritingCreatesBothLevels) {
  JSOM root;
  root["a"]["b"].setLong(1);
  EXPECT_EQ(R"({"a":{"b":1}})", compact(root));
}

TEST(JSOM, UnboundRootBecomesAContainerWhenIndexed) {
  JSOM object;
  EXPECT_EQ("", compact(object));
  EXPECT_EQ(3, object["a"].longValue(3));
  EXPECT_EQ("{}", compact(object));
  JSOM array;
  EXPECT_EQ(3, array[0].longValue(3));
  EXPECT_EQ("[]", compact(array));
  JSOM other;
  EXPECT_EQ(3, other[std::string("a")].longValue(3));
  EXPECT_TRUE(other.isObject());
}

TEST(JSOM, KeyOfAHandleThatWasIndexedNeedNotOutliveIt) {
  JSOM root = loaded("{}");
  auto key = std::make_unique<std::string>("a key that is too long for a short buffer");
  JSOM leaf = root[*key]["x"];
  key.reset();
  leaf.setLong(1);
  EXPECT_EQ(R"({"a key that is too long for a short buffer":{"x":1}})", compact(root));
}

TEST(JSOM, HandlesKeepTheirContainersAlive) {
  std::unique_ptr<JSOM> leaf;
  {
    JSOM root = loaded(R"({"a":[1,2]})");
    leaf = std::make_unique<JSOM>(root["a"][1]);
  }
  EXPECT_EQ(2, leaf->longValue(0));
  leaf->setLong(3);
  EXPECT_EQ(3, leaf->longValue(0));
}

TEST(JSOM, IndexRules) {
  JSOM root = loaded("[10,20]");
  EXPECT_EQ(10, root[0].longValue(0));
  EXPECT_EQ(20, root[1].longValue(0));
  JSOM slot = root[2];
  EXPECT_FALSE(slot.isError());
  EXPECT_FALSE(slot.isNumber());
  EXPECT_FALSE(root[-1].isError());
  slot.setLong(30);
  root[-1].setLong(40);
  EXPECT_EQ("[10,20,30,40]", compact(root));
}

TEST(JSOM, IndexOutOfBoundsPrintsAndGivesTheNullReference) {
  JSOM root = loaded("[10,20]");
  StderrCapture errors;
  EXPECT_TRUE(root[5].isError());
  EXPECT_TRUE(root[3].isError());
  EXPECT_TRUE(root[-2].isError());
  EXPECT_TRUE(root.at(3).isError());
  EXPECT_EQ(
      "JSOM::operator[](int32_t): index out of bounds\n"
      "JSOM::operator[](int32_t): index out of bounds\n"
      "JSOM::operator[](int32_t): index out of bounds\n"
      "JSOM::at(int32_t): index out of range\n",
      errors.end());
}

TEST(JSOM, IndexOnAnObjectGivesTheValuesOfItsMembers) {
  JSOM root = loaded(R"({"a":1,"b":2})");
  EXPECT_EQ(2, root[1].longValue(0));
  root[1].setLong(5);
  EXPECT_EQ(R"({"a":1,"b":5})", compact(root));
}

TEST(JSOM, IndexOnAScalarTurnsItIntoAContainerOnlyWhenWritten) {
  JSOM root = loaded("7");
  EXPECT_EQ(1, root["a"].longValue(1));
  EXPECT_EQ(1, root[0].longValue(1));
  EXPECT_EQ("7", compact(root));
  root["a"].setLong(2);
  EXPECT_EQ(R"({"a":2})", compact(root));
  JSOM other = loaded("7");
  other[-1].setLong(3);
  EXPECT_EQ("[3]", compact(other));
}

TEST(JSOM, NullKeyPrintsAndGivesTheNullReference) {
  JSOM root = loaded("{}");
  const char* const none = nullptr;
  StderrCapture errors;
  EXPECT_TRUE(root[none].isError());
  EXPECT_TRUE(root.at(none).isError());
  EXPECT_EQ(
      "JSOM::operator[](char *): null key pointer\n"
      "JSOM::at(char *): null key pointer\n",
      errors.end());
}

TEST(JSOM, AtFollowsTheIndexOperators) {
  JSOM root;
  root.at("a").at(std::string("b")).at(0).setLong(1);
  root.at("a").at("b").at(-1).setLong(2);
  EXPECT_EQ(R"({"a":{"b":[1,2]}})", compact(root));
  EXPECT_EQ(2, root.at("a").at("b").at(1).longValue(0));
}

TEST(JSOM, EqualKeysGiveTheLastMember) {
  JSOM root = loaded(R"({"a":1,"a":2})");
  EXPECT_EQ(2, root["a"].longValue(0));
  EXPECT_EQ(2, root[std::string("a")].longValue(0));
}

TEST(JSOM, SizeAndKeys) {
  JSOM root = loaded(R"({"a":1,"b":[1,2,3]})");
  EXPECT_EQ(2, root.size());
  EXPECT_EQ(3, root["b"].size());
  EXPECT_EQ(0, root["a"].size());
  EXPECT_EQ(0, root["c"].size());
  EXPECT_EQ(0, JSOM().size());
  EXPECT_EQ(0, JSOM::JERROR.size());
  EXPECT_EQ("b", *root.key(1));
  EXPECT_EQ(nullptr, root.key(2));
  EXPECT_EQ(nullptr, root.key(-1));
  EXPECT_EQ(nullptr, root["b"].key(0));
  EXPECT_EQ(nullptr, root["c"].key(0));
}

TEST(JSOM, TypeTests) {
  JSOM root = loaded(R"([null,true,1,1.5,"x",[],{}])");
  for (int i = 0; i < 7; ++i) {
    JSOM value = root[i];
    EXPECT_EQ(i == 0, value.isNull()) << i;
    EXPECT_EQ(i == 1, value.isBoolean()) << i;
    EXPECT_EQ(i == 2 || i == 3, value.isNumber()) << i;
    EXPECT_EQ(i == 4, value.isString()) << i;
    EXPECT_EQ(i == 5, value.isArray()) << i;
    EXPECT_EQ(i == 6, value.isObject()) << i;
    EXPECT_FALSE(value.isError());
  }
}

TEST(JSOM, TypeTestsAreFalseForHandlesThatAreNotBound) {
  JSOM root = loaded("{}");
  const std::vector<JSOM> handles = {JSOM(), JSOM::JERROR, JSOM::BLANK, root["a"]};
  for (const JSOM& handle : handles) {
    EXPECT_FALSE(handle.isNull() || handle.isBoolean() || handle.isNumber() || handle.isString() ||
                 handle.isArray() || handle.isObject());
  }
}

TEST(JSOM, PendingHandleStaysPendingWhenTheMemberAppears) {
  JSOM root = loaded("{}");
  JSOM pending = root["a"];
  root["a"].setLong(1);
  EXPECT_EQ(7, pending.longValue(7));
  pending.setLong(2);
  EXPECT_EQ(R"({"a":2})", compact(root));
}

TEST(JSOM, Writes) {
  JSOM root;
  root["long"].setLong(-5);
  root["boolean"].setBoolean(true);
  root["double"].setDouble(2.25);
  root["chars"].setString("x");
  root["null"].setString(nullptr);
  root["string"].setString(std::string("y"));
  EXPECT_EQ(R"({"long":-5,"boolean":true,"double":2.25,"chars":"x","null":null,"string":"y"})",
            compact(root));
  root["long"].setString("again");
  EXPECT_EQ("again", root["long"].stringValue(JSOM::EMPTY_STRING));
}

TEST(JSOM, CopiesShareTheNode) {
  JSOM first = loaded("1");
  JSOM second(first);
  second.setLong(2);
  EXPECT_EQ(2, first.longValue(0));
  EXPECT_TRUE(first == second);
}

TEST(JSOM, AssignmentCopiesDeeply) {
  JSOM source = loaded(R"({"a":[1,2]})");
  JSOM target = loaded("7");
  JSOM sameNode(target);
  target = source;
  EXPECT_EQ(R"({"a":[1,2]})", compact(target));
  EXPECT_EQ(R"({"a":[1,2]})", compact(sameNode));
  source["a"][0].setLong(9);
  EXPECT_EQ(R"({"a":[1,2]})", compact(target));
}

TEST(JSOM, AssignmentToAPendingHandleCreatesTheMember) {
  JSOM root = loaded("{}");
  root["a"]["b"] = loaded("[1]");
  EXPECT_EQ(R"({"a":{"b":[1]}})", compact(root));
}

TEST(JSOM, AssignmentOfWhatIsNotBoundDoesNothing) {
  JSOM root = loaded(R"({"a":1})");
  root["a"] = root["missing"];
  root["b"] = JSOM::JERROR;
  root["c"] = JSOM::BLANK;
  JSOM& self = root;
  root = self;
  EXPECT_EQ(R"({"a":1})", compact(root));
}

TEST(JSOM, AssignmentFromItsOwnTree) {
  JSOM root = loaded(R"({"a":{"b":1}})");
  root["c"] = root;
  EXPECT_EQ(R"({"a":{"b":1},"c":{"a":{"b":1}}})", compact(root));
  root["a"]["b"] = root;
  EXPECT_EQ(R"({"a":{"b":{"a":{"b":1},"c":{"a":{"b":1}}}},"c":{"a":{"b":1}}})", compact(root));
  root = root["c"];
  EXPECT_EQ(R"({"a":{"b":1}})", compact(root));
}

TEST(JSOM, CopyOfWhatIsNotBoundSetsFalse) {
  JSOM root = loaded(R"({"a":1,"b":2})");
  root["a"].copy(root["missing"]);
  root["b"].copy(JSOM::JERROR);
  root["c"].copy(JSOM::BLANK);
  EXPECT_EQ(R"({"a":false,"b":false,"c":false})", compact(root));
}

TEST(JSOM, CopyIsDeep) {
  JSOM source = loaded("[1,2]");
  JSOM root;
  root["a"].copy(source);
  source[0].setLong(9);
  EXPECT_EQ(R"({"a":[1,2]})", compact(root));
  root.copy(root);
  EXPECT_EQ(R"({"a":[1,2]})", compact(root));
}

TEST(JSOM, ClearAndErase) {
  JSOM root = loaded(R"({"a":1,"b":[1,2],"c":"x"})");
  root["b"].erase(0);
  root.erase("a");
  root["c"].clear();
  EXPECT_EQ(R"({"b":[2],"c":""})", compact(root));
  root.erase(std::string("c"));
  root["missing"].clear();
  root["missing"].erase("a");
  root.erase(7);
  root.erase("missing");
  EXPECT_EQ(R"({"b":[2]})", compact(root));
  root.clear();
  EXPECT_EQ("{}", compact(root));
}

TEST(JSOM, Equality) {
  JSOM root = loaded(R"({"a":1,"b":1})");
  EXPECT_TRUE(root["a"] == root["a"]);
  EXPECT_FALSE(root["a"] == root["b"]);
  EXPECT_TRUE(root["c"] == root["c"]);
  EXPECT_FALSE(root["c"] == root["d"]);
  EXPECT_TRUE(JSOM(JSOM::JERROR) == JSOM::JERROR);
  EXPECT_TRUE(root["a"] != JSOM::JERROR);
  EXPECT_TRUE(root["c"] != JSOM::JERROR);
  EXPECT_FALSE(JSOM() == JSOM());
  const std::string key = "e";
  EXPECT_TRUE(root[key] == root[key]);
  EXPECT_TRUE(root[-1] == root[2]);
}

TEST(JSOM, ManyHandlesOnOneContainerKeepItForever) {
  static JSOM root = loaded("[1]");  // reachable to the end: the node is never freed
  {
    std::vector<JSOM> handles;
    handles.reserve(70000);
    for (int i = 0; i < 70000; ++i) handles.push_back(root[0]);
    EXPECT_EQ(1, handles.back().longValue(0));
  }
  EXPECT_EQ("[1]", compact(root));
}
