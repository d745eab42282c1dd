// Nodes and handles from texts and back, for the tests of this folder. Texts are compact, with up
// to six fraction digits.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "kestrel/json/JSOM.h"
#include "kestrel/json/JSONData.h"

inline std::string compact(const kestrel::JSONData& node) {
  std::string out;
  node.toJsonString(out, false, 6);
  return out;
}

inline std::string compact(const kestrel::JSOM& handle) {
  std::string out;
  handle.toCompactString(out, 6);
  return out;
}

inline void parse(kestrel::JSONData& node, const std::string& json) {
  ASSERT_TRUE(node.setFromJsonStlString(json)) << json;
}

// A handle on what the text says.
inline kestrel::JSOM loaded(const std::string& json) {
  kestrel::JSOM handle;
  EXPECT_FALSE(handle.fromString(json).isError()) << json;
  return handle;
}

// A new node that the caller holds.
inline kestrel::JSONData* heldLong(long long value) {
  auto* const node = new kestrel::JSONData;
  node->setLong(value);
  node->retain();
  return node;
}
