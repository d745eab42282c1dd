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
  EXPECT_EQ("{}", compact(root));
  x.setLong(1);
  EXPECT_EQ(R"({"m":{"x":1}})", compact(root));
  y.setLong(2);
  missing["z"].setLong(3);
  EXPECT_EQ(R"({"m":{"x":1,"y":2,"z":3}})", compact(root));
}

TEST(JSOMPlace, DeepPendingPlacesAreFilledFromTheInside) {
  JSOM root;
  JSOM leaf = root["a"][0]["b"][-1];
  JSOM sibling(leaf);
  EXPECT_EQ("{}", compact(root));
  leaf.setString("x");
  EXPECT_EQ(R"({"a":[{"b":["x"]}]})", compact(root));
  sibling.setString("y");  // a second pending element for the same index
  EXPECT_EQ(R"({"a":[{"b":["y"]}]})", compact(root));
}

TEST(JSOMPlace, ContainerMadeByIndexingIsWrittenByItsOwnHandleToo) {
  JSOM root = loaded("{}");
  JSOM missing = root["m"];
  EXPECT_EQ(0, missing[-1].longValue(0));
  missing.setLong(5);
  EXPECT_EQ(R"({"m":5})", compact(root));

  JSOM parsed = root["p"];
  EXPECT_EQ(0, parsed["q"].longValue(0));
  EXPECT_FALSE(parsed.fromString(R"({"r":1})").isError());
  EXPECT_EQ(R"({"m":5,"p":{"r":1}})", compact(root));
}

TEST(JSOMPlace, FilledPlaceIsNotFilledAgain) {
  JSOM root = loaded("{}");
  JSOM missing = root["m"];
  JSOM x = missing["x"];
  JSOM y = missing["y"];
  x.setLong(1);
  root.erase("m");
  y.setLong(2);
  EXPECT_EQ("{}", compact(root));
  EXPECT_EQ(R"({"x":1,"y":2})", compact(missing));
}

TEST(JSOMPlace, TwoPlacesBelowOneMissingMemberBothGetTheirValue) {
  JSOM root = loaded("{}");
  JSOM host = root["server"]["host"];
  JSOM port = root["server"]["port"];
  host.setString("h");
  port.setLong(1);
  EXPECT_EQ(R"({"server":{"host":"h","port":1}})", compact(root));
}

TEST(JSOMPlace, TwoPlacesBelowOneMissingMemberOfAnUnboundRootBothGetTheirValue) {
  JSOM root;
  JSOM host = root["server"]["host"];
  JSOM port = root["server"]["port"];
  port.setLong(1);
  host.setString("h");
  EXPECT_EQ(R"({"server":{"port":1,"host":"h"}})", compact(root));
}

TEST(JSOMPlace, TwoPlacesBelowOnePendingHandleBothGetTheirValue) {
  JSOM root = loaded("{}");
  JSOM server = root["server"];
  JSOM host = server["host"];
  JSOM port = server["port"];
  host.setString("h");
  port.setLong(1);
  EXPECT_EQ(R"({"server":{"host":"h","port":1}})", compact(root));
  EXPECT_EQ(2, server.size());
}

TEST(JSOMPlace, WriteThroughAnOlderPlaceKeepsWhatWasWrittenSince) {
  JSOM root = loaded("{}");
  JSOM server = root["server"];
  JSOM host = server["host"];
  root["server"]["port"].setLong(1);
  root["server"]["user"].setString("u");
  EXPECT_EQ(2, server.size());
  EXPECT_EQ(1, server["port"].longValue(0));
  host.setString("h");
  EXPECT_EQ(R"({"server":{"port":1,"user":"u","host":"h"}})", compact(root));
  server["port"].setLong(2);
  EXPECT_EQ(R"({"server":{"port":2,"user":"u","host":"h"}})", compact(root));
}

TEST(JSOMPlace, PendingHandleKeepsWhatWasWrittenBelowItsPlaceSince) {
  JSOM root = loaded("{}");
  JSOM older = root["server"];
  root["server"]["port"].setLong(1);
  older["host"].setString("h");
  EXPECT_EQ(R"({"server":{"port":1,"host":"h"}})", compact(root));
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
  EXPECT_EQ(R"([{"x":[{"c":3,"a":1,"b":2}],"y":4}])", compact(root));
}

TEST(JSOMPlace, HandlesOfOnePlaceShareItsNode) {
  JSOM root = loaded("{}");
  JSOM first = root["a"];
  JSOM second = root["a"];
  first.setLong(1);
  second.setLong(2);
  EXPECT_EQ(2, first.longValue(0));
  EXPECT_TRUE(first == second);
  EXPECT_EQ(R"({"a":2})", compact(root));
}

TEST(JSOMPlace, PlaceBelowAScalarThatCameMeanwhileMakesItAContainer) {
  JSOM root = loaded("{}");
  JSOM host = root["server"]["host"];
  root["server"].setLong(5);
  host.setString("h");
  EXPECT_EQ(R"({"server":{"host":"h"}})", compact(root));
}

TEST(JSOMPlace, AssignmentToAnIndexedPlaceFromTheTreeItJoins) {
  JSOM root = loaded(R"({"a":1})");
  JSOM place = root["b"];
  EXPECT_FALSE(place["c"].isNumber());
  place = root;
  EXPECT_EQ(R"({"a":1,"b":{"a":1}})", compact(root));
}

TEST(JSOMPlace, EqualPlacesBelowAMissingMember) {
  JSOM root = loaded("{}");
  EXPECT_TRUE(root["a"]["b"] == root["a"]["b"]);
  EXPECT_FALSE(root["a"]["b"] == root["c"]["b"]);
  EXPECT_FALSE(root["a"]["b"] == root["a"]["c"]);
  EXPECT_FALSE(root["a"][0]["b"] == root["a"]["b"]);
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
  EXPECT_EQ("{}", compact(root));
}
