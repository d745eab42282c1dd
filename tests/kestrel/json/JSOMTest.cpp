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
  EXPECT_EQ(JSOM::defaultPrecision, 4);
  EXPECT_EQ(JSOM::EMPTY_STRING, "");
  EXPECT_TRUE(JSOM::JERROR.isError());
  EXPECT_FALSE(JSOM::BLANK.isError());
}

TEST(JSOM, StaticMembersCanBeUsedByOtherStaticObjects) {
  EXPECT_TRUE(EARLY.isError);
  EXPECT_FALSE(EARLY.blankIsError);
  EXPECT_EQ(EARLY.precision, 4);
  EXPECT_EQ(EARLY.text, "");
}

TEST(JSOM, CopyOfBlankIsARootOfItsOwn) {
  JSOM handle(JSOM::BLANK);
  handle["a"].setLong(1);
  EXPECT_EQ(compact(handle), R"({"a":1})");
  EXPECT_EQ(compact(JSOM::BLANK), "");
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
    EXPECT_EQ(node->refCount(), 3);
    EXPECT_EQ(parent->refCount(), 6);
    const JSOM root(node);
    EXPECT_EQ(node->refCount(), 4);
  }
  EXPECT_EQ(node->refCount(), 1);
  EXPECT_EQ(parent->refCount(), 1);
  JSONData::release(node);
  JSONData::release(parent);
}

TEST(JSOM, NullNodeGivesANullReference) {
  JSOM handle(static_cast<JSONData*>(nullptr));
  EXPECT_TRUE(handle.isError());
  StderrCapture errors;
  handle.setLong(1);
  EXPECT_EQ(errors.stop(), "JSOM::setLong(): null reference error\n");
  EXPECT_TRUE(handle.isError());
}

TEST(JSOM, NullReferenceWithAParentTellsAnotherMessage) {
  auto* const parent = new JSONData;
  JSOM handle(static_cast<JSONData*>(nullptr), parent);
  StderrCapture errors;
  handle.setLong(1);
  EXPECT_EQ(errors.stop(), "JSOM::setLong(): internal error, no info\n");
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
  EXPECT_EQ(errors.stop(),
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
            "JSOM::at(string &): null reference error\n");
}

TEST(JSOM, ReadingTheMemberOfAMissingMemberGivesTheDefaultAndAddsNothing) {
  JSOM root = loaded(R"({"a":1})");
  EXPECT_EQ(root["missing"]["deeper"].longValue(7), 7);
  EXPECT_EQ(root["missing"][0][std::string("x")][-1].longValue(8), 8);
  EXPECT_EQ(root.at("missing").at(0).at(std::string("x")).at(-1).longValue(9), 9);
  EXPECT_FALSE(root["missing"]["deeper"].isObject());
  EXPECT_EQ(compact(root), R"({"a":1})");
}

TEST(JSOM, IndexingAnEmptyRootTwiceAndWritingCreatesBothLevels) {
  JSOM root;
  root["a"]["b"].setLong(1);
  EXPECT_EQ(compact(root), R"({"a":{"b":1}})");
}

TEST(JSOM, UnboundRootBecomesAContainerWhenIndexed) {
  JSOM object;
  EXPECT_EQ(compact(object), "");
  EXPECT_EQ(object["a"].longValue(3), 3);
  EXPECT_EQ(compact(object), "{}");
  JSOM array;
  EXPECT_EQ(array[0].longValue(3), 3);
  EXPECT_EQ(compact(array), "[]");
  JSOM other;
  EXPECT_EQ(other[std::string("a")].longValue(3), 3);
  EXPECT_TRUE(other.isObject());
}

TEST(JSOM, KeyOfAHandleThatWasIndexedNeedNotOutliveIt) {
  JSOM root = loaded("{}");
  auto key = std::make_unique<std::string>("a key that is too long for a short buffer");
  JSOM leaf = root[*key]["x"];
  key.reset();
  leaf.setLong(1);
  EXPECT_EQ(compact(root), R"({"a key that is too long for a short buffer":{"x":1}})");
}

TEST(JSOM, HandlesKeepTheirContainersAlive) {
  std::unique_ptr<JSOM> leaf;
  {
    JSOM root = loaded(R"({"a":[1,2]})");
    leaf = std::make_unique<JSOM>(root["a"][1]);
  }
  EXPECT_EQ(leaf->longValue(0), 2);
  leaf->setLong(3);
  EXPECT_EQ(leaf->longValue(0), 3);
}

TEST(JSOM, IndexRules) {
  JSOM root = loaded("[10,20]");
  EXPECT_EQ(root[0].longValue(0), 10);
  EXPECT_EQ(root[1].longValue(0), 20);
  JSOM slot = root[2];
  EXPECT_FALSE(slot.isError());
  EXPECT_FALSE(slot.isNumber());
  EXPECT_FALSE(root[-1].isError());
  slot.setLong(30);
  root[-1].setLong(40);
  EXPECT_EQ(compact(root), "[10,20,30,40]");
}

TEST(JSOM, IndexOutOfBoundsPrintsAndGivesTheNullReference) {
  JSOM root = loaded("[10,20]");
  StderrCapture errors;
  EXPECT_TRUE(root[5].isError());
  EXPECT_TRUE(root[3].isError());
  EXPECT_TRUE(root[-2].isError());
  EXPECT_TRUE(root.at(3).isError());
  EXPECT_EQ(errors.stop(),
            "JSOM::operator[](int32_t): index out of bounds\n"
            "JSOM::operator[](int32_t): index out of bounds\n"
            "JSOM::operator[](int32_t): index out of bounds\n"
            "JSOM::at(int32_t): index out of range\n");
}

TEST(JSOM, IndexOnAnObjectGivesTheValuesOfItsMembers) {
  JSOM root = loaded(R"({"a":1,"b":2})");
  EXPECT_EQ(root[1].longValue(0), 2);
  root[1].setLong(5);
  EXPECT_EQ(compact(root), R"({"a":1,"b":5})");
}

TEST(JSOM, IndexOnAScalarTurnsItIntoAContainerOnlyWhenWritten) {
  JSOM root = loaded("7");
  EXPECT_EQ(root["a"].longValue(1), 1);
  EXPECT_EQ(root[0].longValue(1), 1);
  EXPECT_EQ(compact(root), "7");
  root["a"].setLong(2);
  EXPECT_EQ(compact(root), R"({"a":2})");
  JSOM other = loaded("7");
  other[-1].setLong(3);
  EXPECT_EQ(compact(other), "[3]");
}

TEST(JSOM, NullKeyPrintsAndGivesTheNullReference) {
  JSOM root = loaded("{}");
  const char* const none = nullptr;
  StderrCapture errors;
  EXPECT_TRUE(root[none].isError());
  EXPECT_TRUE(root.at(none).isError());
  EXPECT_EQ(errors.stop(),
            "JSOM::operator[](char *): null key pointer\n"
            "JSOM::at(char *): null key pointer\n");
}

TEST(JSOM, AtFollowsTheIndexOperators) {
  JSOM root;
  root.at("a").at(std::string("b")).at(0).setLong(1);
  root.at("a").at("b").at(-1).setLong(2);
  EXPECT_EQ(compact(root), R"({"a":{"b":[1,2]}})");
  EXPECT_EQ(root.at("a").at("b").at(1).longValue(0), 2);
}

TEST(JSOM, EqualKeysGiveTheLastMember) {
  JSOM root = loaded(R"({"a":1,"a":2})");
  EXPECT_EQ(root["a"].longValue(0), 2);
  EXPECT_EQ(root[std::string("a")].longValue(0), 2);
}

TEST(JSOM, SizeAndKeys) {
  JSOM root = loaded(R"({"a":1,"b":[1,2,3]})");
  EXPECT_EQ(root.size(), 2);
  EXPECT_EQ(root["b"].size(), 3);
  EXPECT_EQ(root["a"].size(), 0);
  EXPECT_EQ(root["c"].size(), 0);
  EXPECT_EQ(JSOM().size(), 0);
  EXPECT_EQ(JSOM::JERROR.size(), 0);
  EXPECT_EQ(*root.key(1), "b");
  EXPECT_EQ(root.key(2), nullptr);
  EXPECT_EQ(root.key(-1), nullptr);
  EXPECT_EQ(root["b"].key(0), nullptr);
  EXPECT_EQ(root["c"].key(0), nullptr);
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
  EXPECT_EQ(pending.longValue(7), 7);
  pending.setLong(2);
  EXPECT_EQ(compact(root), R"({"a":2})");
}

TEST(JSOM, Writes) {
  JSOM root;
  root["long"].setLong(-5);
  root["boolean"].setBoolean(true);
  root["double"].setDouble(2.25);
  root["chars"].setString("x");
  root["null"].setString(nullptr);
  root["string"].setString(std::string("y"));
  EXPECT_EQ(compact(root),
            R"({"long":-5,"boolean":true,"double":2.25,"chars":"x","null":null,"string":"y"})");
  root["long"].setString("again");
  EXPECT_EQ(root["long"].stringValue(JSOM::EMPTY_STRING), "again");
}

TEST(JSOM, CopiesShareTheNode) {
  JSOM first = loaded("1");
  JSOM second(first);
  second.setLong(2);
  EXPECT_EQ(first.longValue(0), 2);
  EXPECT_TRUE(first == second);
}

TEST(JSOM, AssignmentCopiesDeeply) {
  JSOM source = loaded(R"({"a":[1,2]})");
  JSOM target = loaded("7");
  JSOM sameNode(target);
  target = source;
  EXPECT_EQ(compact(target), R"({"a":[1,2]})");
  EXPECT_EQ(compact(sameNode), R"({"a":[1,2]})");
  source["a"][0].setLong(9);
  EXPECT_EQ(compact(target), R"({"a":[1,2]})");
}

TEST(JSOM, AssignmentToAPendingHandleCreatesTheMember) {
  JSOM root = loaded("{}");
  root["a"]["b"] = loaded("[1]");
  EXPECT_EQ(compact(root), R"({"a":{"b":[1]}})");
}

TEST(JSOM, AssignmentOfWhatIsNotBoundDoesNothing) {
  JSOM root = loaded(R"({"a":1})");
  root["a"] = root["missing"];
  root["b"] = JSOM::JERROR;
  root["c"] = JSOM::BLANK;
  JSOM& self = root;
  root = self;
  EXPECT_EQ(compact(root), R"({"a":1})");
}

TEST(JSOM, AssignmentFromItsOwnTree) {
  JSOM root = loaded(R"({"a":{"b":1}})");
  root["c"] = root;
  EXPECT_EQ(compact(root), R"({"a":{"b":1},"c":{"a":{"b":1}}})");
  root["a"]["b"] = root;
  EXPECT_EQ(compact(root), R"({"a":{"b":{"a":{"b":1},"c":{"a":{"b":1}}}},"c":{"a":{"b":1}}})");
  root = root["c"];
  EXPECT_EQ(compact(root), R"({"a":{"b":1}})");
}

TEST(JSOM, CopyOfWhatIsNotBoundSetsFalse) {
  JSOM root = loaded(R"({"a":1,"b":2})");
  root["a"].copy(root["missing"]);
  root["b"].copy(JSOM::JERROR);
  root["c"].copy(JSOM::BLANK);
  EXPECT_EQ(compact(root), R"({"a":false,"b":false,"c":false})");
}

TEST(JSOM, CopyIsDeep) {
  JSOM source = loaded("[1,2]");
  JSOM root;
  root["a"].copy(source);
  source[0].setLong(9);
  EXPECT_EQ(compact(root), R"({"a":[1,2]})");
  root.copy(root);
  EXPECT_EQ(compact(root), R"({"a":[1,2]})");
}

TEST(JSOM, ClearAndErase) {
  JSOM root = loaded(R"({"a":1,"b":[1,2],"c":"x"})");
  root["b"].erase(0);
  root.erase("a");
  root["c"].clear();
  EXPECT_EQ(compact(root), R"({"b":[2],"c":""})");
  root.erase(std::string("c"));
  root["missing"].clear();
  root["missing"].erase("a");
  root.erase(7);
  root.erase("missing");
  EXPECT_EQ(compact(root), R"({"b":[2]})");
  root.clear();
  EXPECT_EQ(compact(root), "{}");
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
    for (int i = 0; i < 70000; ++i) {
      handles.push_back(root[0]);
    }
    EXPECT_EQ(handles.back().longValue(0), 1);
  }
  EXPECT_EQ(compact(root), "[1]");
}
