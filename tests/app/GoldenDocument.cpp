#include "tests/app/GoldenDocument.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t CONTEXT = 3;   // equal pieces shown on either side
constexpr std::size_t LONGEST = 40;  // pieces of one document shown

// One piece a row, a member or a line: short enough to see what differs in it.
std::vector<std::string> piecesOf(const std::string& text) {
  std::vector<std::string> pieces;
  std::string piece;
  for (const char byte : text) {
    const bool afterBracket = !piece.empty() && (piece.back() == ']' || piece.back() == '}');
    piece += byte;
    if (byte == '\n' || byte == '{' || (byte == ',' && afterBracket)) {
      pieces.push_back(std::move(piece));
      piece.clear();
    }
  }
  pieces.push_back(piece);
  return pieces;
}

std::string printable(const std::string& piece) {
  std::string text;
  for (const char byte : piece) {
    const auto code = static_cast<unsigned char>(byte);
    if (code >= 0x20 && code < 0x7F) {
      text += byte;
      continue;
    }
    char escape[8];
    std::snprintf(escape, sizeof escape, "<%02x>", static_cast<unsigned>(code));
    text += escape;
  }
  return text;
}

using Pieces = std::vector<std::string>;

void show(testing::AssertionResult& result, char mark, const Pieces& pieces, std::size_t from,
          std::size_t to) {
  for (std::size_t i = from; i < std::min(to, from + LONGEST); ++i) {
    result << mark << ' ' << printable(pieces[i]) << '\n';
  }
  if (to > from + LONGEST) {
    result << mark << " ... and " << (to - from - LONGEST) << " pieces more\n";
  }
}

}  // namespace

testing::AssertionResult sameDocument(const std::string& expected, const std::string& actual) {
  if (expected == actual) {
    return testing::AssertionSuccess();
  }
  const Pieces left = piecesOf(expected);
  const Pieces right = piecesOf(actual);
  const std::size_t shorter = std::min(left.size(), right.size());
  std::size_t head = 0;
  while (head < shorter && left[head] == right[head]) {
    ++head;
  }
  std::size_t tail = 0;
  while (tail < shorter - head && left[left.size() - 1 - tail] == right[right.size() - 1 - tail]) {
    ++tail;
  }
  testing::AssertionResult result = testing::AssertionFailure();
  result << "the documents differ (- expected, " << expected.size() << " bytes; + actual, "
         << actual.size() << " bytes):\n";
  show(result, ' ', left, head - std::min(head, CONTEXT), head);
  show(result, '-', left, head, left.size() - tail);
  show(result, '+', right, head, right.size() - tail);
  show(result, ' ', left, left.size() - tail, std::min(left.size(), left.size() - tail + CONTEXT));
  return result;
}

std::string goldenDocument(const std::string& name) {
  std::ifstream in(std::filesystem::path(GOLDEN_FOLDER) / (name + ".json"), std::ios::binary);
  if (!in) {
    ADD_FAILURE() << "there is no golden document " << name;
  }
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

testing::AssertionResult matchesGolden(const std::string& name, const std::string& document) {
  testing::AssertionResult result = sameDocument(goldenDocument(name), document);
  return result ? result : result << "golden document: " << name << ".json\n";
}
