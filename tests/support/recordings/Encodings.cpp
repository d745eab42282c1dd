#include "tests/support/recordings/Encodings.h"

namespace made {

std::vector<std::pair<std::string, Encoding>> allEncodings() {
  std::vector<std::pair<std::string, Encoding>> all;
  for (const ByteOrder order : {ByteOrder::LITTLE, ByteOrder::BIG}) {
    const std::string suffix = order == ByteOrder::BIG ? ", big-endian" : "";
    const auto add = [&](const std::string& name, Encoding encoding) {
      encoding.order = order;
      all.emplace_back(name + suffix, encoding);
    };
    for (const unsigned size : {64u, 72u, 80u, 96u, 104u, 112u, 120u, 128u, 136u, 144u, 200u}) {
      add("attribute of " + std::to_string(size), {.attributeSize = size});
      add("pipe, attribute of " + std::to_string(size),
          {.form = Form::PIPE, .attributeSize = size});
    }
    add("attribute without its size", {.attributeSize = 64, .hasAttributeSize = false});
    add("padded attribute", {.attributeSize = 96, .attributePadding = 24});
    add("attributes last", {.attributesLast = true});
    add("event types", {.magic = Magic::PERFFILE, .attributeSize = 72, .hasEventTypes = true});
    add("short header",
        {.form = Form::SHORT_HEADER, .magic = Magic::PERFFILE, .attributeSize = 64});
    add("old pipe", {.form = Form::PIPE, .magic = Magic::PERFFILE, .attributeSize = 72});
    add("pipe with tracing data", {.form = Form::PIPE, .hasTracingData = true});
    add("ids", {.identification = Identification::ID});
    add("identifiers", {.identification = Identification::IDENTIFIER});
    add("pipe with ids", {.form = Form::PIPE, .identification = Identification::ID});
    add("old maps", {.maps = Maps::MMAP});
    add("maps with build ids", {.maps = Maps::MMAP2_BUILD_ID});
    for (const unsigned push : {7u, 61u, 200u, 100000u}) {
      add("compressed in pushes of " + std::to_string(push),
          {.compression = Compression::COMPRESSED, .pushBytes = push});
      add("compressed anew in pushes of " + std::to_string(push),
          {.compression = Compression::COMPRESSED2, .pushBytes = push});
    }
    add("compressed pipe", {.form = Form::PIPE, .compression = Compression::COMPRESSED});
    add("without rounds", {.hasRounds = false});
    add("unfinished", {.isUnfinished = true});
    add("unfinished, compressed", {.compression = Compression::COMPRESSED, .isUnfinished = true});
  }
  return all;
}

}  // namespace made
