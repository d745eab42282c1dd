// Handles that stand for places which do not exist yet, and several that wait for one place.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kestrel/json/JSOM.h"
#include "tests/kestrel/json/JsonTexts.h"

using kestrel::JSOM;

TEST(JSOMPlace, PendingHandleThatIsIndexedBecomesAContainerButJoinsTheTreeOnlyWhenWrittenTo) {
  JSOM root = loaded("{}");
  JSOM missing = root["m"];
  EXPECT_FALSE(missing.isObject());
  JSOM x = missing["x"];
  EXPECT_TRUE(missing.isObject());
  JSOM y = missing["y"];
  EXPECT_EQ(compact(root), "{}");
  x.setLong(1);
  EXPECT_EQ(compact(root), R"({"m":{"x":1}})");
  y.setLong(2);
  missing["z"].setLong(3);
  EXPECT_EQ(compact(root), R"({"m":{"x":1,"y":2,"z":3}})");
}

TEST(JSOMPlace, DeepPendingPlacesAreFilledFromTheInside) {
  JSOM root;
  JSOM leaf = root["a"][0]["b"][-1];
  JSOM sibling(leaf);
  EXPECT_EQ(compact(root), "{}");
  leaf.setString("x");
  EXPECT_EQ(compact(root), R"({"a":[{"b":["x"]}]})");
  sibling.setString("y");  // a second pending element for the same index
  EXPECT_EQ(compact(root), R"({"a":[{"b":["y"]}]})");
}

TEST(JSOMPlace, ContainerMadeByIndexingIsWrittenByItsOwnHandleToo) {
  JSOM root = loaded("{}");
  JSOM missing = root["m"];
  EXPECT_EQ(missing[-1].longValue(0), 0);
  missing.setLong(5);
  EXPECT_EQ(compact(root), R"({"m":5})");

  JSOM parsed = root["p"];
  EXPECT_EQ(parsed["q"].longValue(0), 0);
  EXPECT_FALSE(parsed.fromString(R"({"r":1})").isError());
  EXPECT_EQ(compact(root), R"({"m":5,"p":{"r":1}})");
}

TEST(JSOMPlace, FilledPlaceIsNotFilledAgain) {
  JSOM root = loaded("{}");
  JSOM missing = root["m"];
  JSOM x = missing["x"];
  JSOM y = missing["y"];
  x.setLong(1);
  root.erase("m");
  y.setLong(2);
  EXPECT_EQ(compact(root), "{}");
  EXPECT_EQ(compact(missing), R"({"x":1,"y":2})");
}

TEST(JSOMPlace, TwoPlacesBelowOneMissingMemberBothGetTheirValue) {
  JSOM root = loaded("{}");
  JSOM host = root["server"]["host"];
  JSOM port = root["server"]["port"];
  host.setString("h");
  port.setLong(1);
  EXPECT_EQ(compact(root), R"({"server":{"host":"h","port":1}})");
}

TEST(JSOMPlace, TwoPlacesBelowOneMissingMemberOfAnUnboundRootBothGetTheirValue) {
  JSOM root;
  JSOM host = root["server"]["host"];
  JSOM port = root["server"]["port"];
  port.setLong(1);
  host.setString("h");
  EXPECT_EQ(compact(root), R"({"server":{"port":1,"host":"h"}})");
}

TEST(JSOMPlace, TwoPlacesBelowOnePendingHandleBothGetTheirValue) {
  JSOM root = loaded("{}");
  JSOM server = root["server"];
  JSOM host = server["host"];
  JSOM port = server["port"];
  host.setString("h");
  port.setLong(1);
  EXPECT_EQ(compact(root), R"({"server":{"host":"h","port":1}})");
  EXPECT_EQ(server.size(), 2);
}

TEST(JSOMPlace, WriteThroughAnOlderPlaceKeepsWhatWasWrittenSince) {
  JSOM root = loaded("{}");
  JSOM server = root["server"];
  JSOM host = server["host"];
  root["server"]["port"].setLong(1);
  root["server"]["user"].setString("u");
  EXPECT_EQ(server.size(), 2);
  EXPECT_EQ(server["port"].longValue(0), 1);
  host.setString("h");
  EXPECT_EQ(compact(root), R"({"server":{"port":1,"user":"u","host":"h"}})");
  server["port"].setLong(2);
  EXPECT_EQ(compact(root), R"({"server":{"port":2,"user":"u","host":"h"}})");
}

TEST(JSOMPlace, PendingHandleKeepsWhatWasWrittenBelowItsPlaceSince) {
  JSOM root = loaded("{}");
  JSOM older = root["server"];
  root["server"]["port"].setLong(1);
  older["host"].setString("h");
  EXPECT_EQ(compact(root), R"({"server":{"port":1,"host":"h"}})");
}

TEST(JSOMPlace, DeepPlacesMeetWhereTheirPathsDo) {
  JSOM root = loaded("[]");
  JSOM a = root[0]["x"][0]["a"];
  JSOM b = root[0]["x"][0]["b"];
  JSOM c = root[0]["x"][-1]["c"];  // the slot that both others wait for, too
  JSOM d = root[0]["y"];
  c.setLong(3);
  a.setLong(1);
  d.setLong(4);
  b.setLong(2);
  EXPECT_EQ(compact(root), R"([{"x":[{"c":3,"a":1,"b":2}],"y":4}])");
}

TEST(JSOMPlace, HandlesOfOnePlaceShareItsNode) {
  JSOM root = loaded("{}");
  JSOM first = root["a"];
  JSOM second = root["a"];
  first.setLong(1);
  second.setLong(2);
  EXPECT_EQ(first.longValue(0), 2);
  EXPECT_TRUE(first == second);
  EXPECT_EQ(compact(root), R"({"a":2})");
}

TEST(JSOMPlace, PlaceBelowAScalarThatCameMeanwhileMakesItAContainer) {
  JSOM root = loaded("{}");
  JSOM host = root["server"]["host"];
  root["server"].setLong(5);
  host.setString("h");
  EXPECT_EQ(compact(root), R"({"server":{"host":"h"}})");
}

TEST(JSOMPlace, AssignmentToAnIndexedPlaceFromTheTreeItJoins) {
  JSOM root = loaded(R"({"a":1})");
  JSOM place = root["b"];
  EXPECT_FALSE(place["c"].isNumber());
  place = root;
  EXPECT_EQ(compact(root), R"({"a":1,"b":{"a":1}})");
}

TEST(JSOMPlace, EqualPlacesBelowAMissingMember) {
  JSOM root = loaded("{}");
  EXPECT_TRUE(root["a"]["b"] == root["a"]["b"]);
  EXPECT_FALSE(root["a"]["b"] == root["c"]["b"]);
  EXPECT_FALSE(root["a"]["b"] == root["a"]["c"]);
  EXPECT_FALSE(root["a"][0]["b"] == root["a"]["b"]);
}

TEST(JSOMPlace, PlacesBelowDifferentElementsDiffer) {
  JSOM root = loaded("[]");
  const JSOM belowFirst = root[0]["b"];
  root[0].setLong(1);
  EXPECT_FALSE(belowFirst == root[1]["b"]);
}

TEST(JSOMPlace, APathLongerThanTheThreadsStackCanBeWrittenAndGivenUp) {
  JSOM root = loaded("{}");
  std::vector<JSOM> handles{root["k"]};
  for (int i = 0; i < 200000; ++i) {
    JSOM next = handles.back()["k"];
    handles.pop_back();
    handles.push_back(next);
  }
  handles.clear();
  EXPECT_EQ(compact(root), "{}");
}
