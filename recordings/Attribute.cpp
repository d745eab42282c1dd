#include "recordings/Attribute.h"

#include <algorithm>

namespace recordings {

namespace {

// Flag bits are a bit field, which fills the bytes in the order of the file: from the lowest bit of
// each byte on little-endian machines, from the highest on big-endian ones.
std::uint64_t flagsAt(Bytes bytes, ByteOrder order) {
  const bool isHostLittle = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
  const bool isWriterBig = (order == ByteOrder::FOREIGN) == isHostLittle;
  std::uint64_t flags = 0;
  for (unsigned i = 0; i < bytes.size(); ++i) {
    unsigned byte = bytes[i];
    if (isWriterBig) {
      unsigned mirrored = 0;
      for (unsigned bit = 0; bit < 8; ++bit) {
        mirrored |= (byte >> bit & 1) << (7 - bit);
      }
      byte = mirrored;
    }
    flags |= std::uint64_t{byte} << (8 * i);
  }
  return flags;
}

}  // namespace

Attribute Attribute::decode(Bytes bytes, ByteOrder order) {
  Attribute attribute;
  FieldReader header(bytes, order);
  header.skip(4);
  const std::uint32_t size = header.take<std::uint32_t>();
  const std::size_t known =
      std::min<std::size_t>(bytes.size(), size == 0 ? std::uint32_t{abi::ATTR_FIRST_SIZE} : size);
  FieldReader fields(bytes.first(known), order);
  attribute.type = fields.take<std::uint32_t>();
  fields.skip(4);
  attribute.config = fields.take<std::uint64_t>();
  attribute.period = fields.take<std::uint64_t>();
  attribute.sampleType = fields.take<std::uint64_t>();
  attribute.readFormat = fields.take<std::uint64_t>();
  attribute.flags = flagsAt(fields.takeBytes(8), order);
  fields.skip(8 + 8 + 8);  // wakeup and breakpoint
  attribute.branchSampleType = fields.take<std::uint64_t>();
  attribute.sampleRegsUser = fields.take<std::uint64_t>();
  attribute.sampleStackUser = fields.take<std::uint32_t>();
  attribute.clockId = static_cast<std::int32_t>(fields.take<std::uint32_t>());
  attribute.sampleRegsIntr = fields.take<std::uint64_t>();
  return attribute;
}

}  // namespace recordings
