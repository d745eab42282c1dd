// Compares documents with the ones in tests/golden, byte for byte.
#pragma once

#include <string>

#include <gtest/gtest.h>

// Whether two documents are the same. If not, the message shows the pieces in which they differ,
// with a few around them.
testing::AssertionResult sameDocument(const std::string& expected, const std::string& actual);

// The document tests/golden/<name>.json.
std::string goldenDocument(const std::string& name);

// Whether `document` is that document.
testing::AssertionResult matchesGolden(const std::string& name, const std::string& document);
