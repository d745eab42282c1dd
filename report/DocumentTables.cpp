#include "report/DocumentTables.h"

#include <algorithm>
#include <simdjson.h>
#include <string_view>
#include <utility>
#include <vector>

#include "report/DocumentPieces.h"

namespace report {

namespace {

namespace ondemand = simdjson::ondemand;

// Values of a call chain from here on are markers, no addresses (PERF_CONTEXT_MAX of
// linux/perf_event.h).
constexpr uint64_t FIRST_MARKER = static_cast<uint64_t>(-4095);

// The values of one row, in order.
class RowCursor {
 public:
  RowCursor(ondemand::array row, const char* table)
      : next_(row.begin().value()), end_(row.end().value()), table_(table) {}

  ondemand::value take() {
    if (!started_) {
      started_ = true;
    } else {
      ++next_;
    }
    if (!(next_ != end_)) {
      throw NoDocument(std::string("a row of \"") + table_ + "\" is too short.");
    }
    return (*next_).value();
  }
  uint64_t takeNumber() { return take().get_uint64().value(); }
  uint32_t take32() { return static_cast<uint32_t>(takeNumber()); }
  std::string takeString() {
    const std::string_view text = take().get_string().value();
    return std::string(text);
  }

 private:
  ondemand::array_iterator next_;
  ondemand::array_iterator end_;
  const char* table_;
  bool started_ = false;
};

std::string_view trimmed(std::string_view token) {
  const std::size_t end = token.find_last_not_of(" \t\r\n");
  return token.substr(0, end == std::string_view::npos ? 0 : end + 1);
}

// The digits of what may be a marker; a lower address need not be made a number.
bool mayBeMarker(std::string_view token) {
  constexpr std::size_t DIGITS = 20;
  return token.size() >= DIGITS;
}

void parseSample(ondemand::array values, SampleRows& rows) {
  RowCursor row(values, "samples");
  row.take();  // the key
  const uint64_t ip = row.takeNumber();
  const uint64_t mapkey = row.takeNumber();
  uint32_t digits = 0;
  const int64_t time = parseSeconds(trimmed(row.take().raw_json_token()), digits);
  const uint32_t cpu = row.take32();
  const uint32_t pidkey = row.take32();
  row.take();  // the tid once more
  rows.mapkeys.push_back(mapkey);
  bool isFirst = true;
  for (ondemand::array pair : row.take().get_array()) {
    RowCursor entry(pair, "samples");
    ondemand::value value = entry.take();
    const bool isRead = isFirst || mayBeMarker(value.raw_json_token());
    const uint64_t address = isRead ? value.get_uint64().value() : 0;
    const uint64_t caller = entry.takeNumber();
    if (address >= FIRST_MARKER) {
      continue;
    }
    // A chain may begin with the sampled address itself.
    if (!isFirst || address != ip) {
      rows.mapkeys.push_back(caller);
    }
    isFirst = false;
  }
  rows.timeDigits = std::max(rows.timeDigits, digits);
  rows.rows.push_back({time, cpu, pidkey, rows.mapkeys.size()});
}

void parseLibrary(RowCursor& row, ProfileBuilder& builder) {
  const uint64_t key = row.takeNumber();
  const uint32_t pidkey = row.take32();
  std::string name = row.takeString();
  builder.addLibrary(key, pidkey, std::move(name), row.takeNumber());
}

void parseFunction(RowCursor& row, ProfileBuilder& builder) {
  const uint64_t key = row.takeNumber();
  std::string name = row.takeString();
  const uint64_t start = row.takeNumber();
  row.take();  // the size
  uint64_t firstMap = std::numeric_limits<uint64_t>::max();
  bool isFirst = true;
  for (auto map : row.take().get_array()) {
    const uint64_t mapkey = map.get_uint64().value();
    firstMap = isFirst ? mapkey : firstMap;
    isFirst = false;
  }
  builder.addFunction(key, std::move(name), start, firstMap);
}

void parseProcess(RowCursor& row, ProfileBuilder& builder) {
  const uint32_t key = row.take32(), pid = row.take32(), tid = row.take32();
  builder.addProcess(key, pid, tid, row.takeString());
}

void parseFile(RowCursor& row, ProfileBuilder& builder) {
  row.take();  // the key
  const std::string name = row.takeString();
  std::vector<uint64_t> functions;
  for (ondemand::array pair : row.take().get_array()) {
    functions.push_back(RowCursor(pair, "files").takeNumber());
  }
  builder.addFile(name, functions);
}

struct Table {
  const char* name;
  void (*parseRow)(RowCursor& row, ProfileBuilder& builder);
};
constexpr Table TABLES[] = {{"libraries", parseLibrary},
                            {"functions", parseFunction},
                            {"processes", parseProcess},
                            {"files", parseFile}};

// Rows are read with simdjson's exceptions; they say what is wrong with the JSON.
template <typename Operation>
void asNoDocument(const Operation& operation) {
  try {
    operation();
  } catch (const simdjson::simdjson_error& problem) {
    throw NoDocument(problem.what());  // a sentence
  }
}

}  // namespace

int64_t parseSeconds(std::string_view token, uint32_t& fractionDigits) {
  constexpr uint32_t DIGITS = 9;
  const bool isNegative = token.starts_with('-');
  uint64_t value = 0;
  uint32_t fraction = 0;
  bool inFraction = false;
  for (const char byte : token.substr(isNegative ? 1 : 0)) {
    if (byte == '.' && !inFraction) {
      inFraction = true;
    } else if (byte < '0' || byte > '9') {
      return ProfileBuilder::NO_TIME;
    } else if (!inFraction || fraction < DIGITS) {
      if (value > (1ULL << 62) / 10) {
        return ProfileBuilder::NO_TIME;
      }
      value = value * 10 + static_cast<uint64_t>(byte - '0');
      fraction += inFraction;
    }
  }
  if (token.size() <= (isNegative ? 1U : 0U)) {
    return ProfileBuilder::NO_TIME;
  }
  fractionDigits = fraction;
  for (; fraction < DIGITS; ++fraction) {
    if (value > (1ULL << 62) / 10) {
      return ProfileBuilder::NO_TIME;
    }
    value *= 10;
  }
  return isNegative ? -static_cast<int64_t>(value) : static_cast<int64_t>(value);
}

struct SampleRowsParser::Parser {
  ondemand::parser parser;
};

SampleRowsParser::SampleRowsParser() : parser_(std::make_unique<Parser>()) {}

SampleRowsParser::~SampleRowsParser() = default;

SampleRows SampleRowsParser::parse(std::string_view rows) {
  static_assert(DocumentPieces::PADDING >= simdjson::SIMDJSON_PADDING);
  SampleRows result;
  asNoDocument([&] {
    ondemand::document document =
        parser_->parser.iterate(rows.data(), rows.size(), rows.size() + simdjson::SIMDJSON_PADDING);
    for (ondemand::array row : document.get_array()) {
      parseSample(row, result);
    }
  });
  return result;
}

void parseOtherTables(std::string text, ProfileBuilder& builder) {
  bool found[std::size(TABLES)] = {};
  asNoDocument([&] {
    text.reserve(text.size() + simdjson::SIMDJSON_PADDING);
    ondemand::parser parser;
    ondemand::document document = parser.iterate(text.data(), text.size(), text.capacity());
    ondemand::object tables = document.get_object();
    for (auto member : tables) {
      const std::string name(std::string_view(member.unescaped_key()));
      const auto table = std::find_if(std::begin(TABLES), std::end(TABLES),
                                      [&name](const Table& known) { return name == known.name; });
      if (table == std::end(TABLES)) {
        throw NoDocument("it has an unknown table \"" + name + "\".");
      }
      for (ondemand::array values : member.value().find_field("data").get_array()) {
        RowCursor row(values, table->name);
        table->parseRow(row, builder);
      }
      found[table - std::begin(TABLES)] = true;
    }
    if (document.current_location().error() == simdjson::SUCCESS) {
      throw NoDocument("something stands behind its end. Did -a append to an older document?");
    }
  });
  for (std::size_t i = 0; i < std::size(TABLES); ++i) {
    if (!found[i]) {
      throw NoDocument(std::string("the table \"") + TABLES[i].name + "\" is missing.");
    }
  }
}

}  // namespace report
