#include "recordings/SideRecords.h"

#include <algorithm>

#include "recordings/Abi.h"

namespace recordings {

bool MapRecord::isOfKernel() const {
  const unsigned mode = misc & abi::MISC_CPUMODE;
  return mode == abi::MISC_KERNEL || mode == abi::MISC_GUEST_KERNEL;
}

std::optional<MapRecord> MapRecord::decode(const Record& record, Bytes body, ByteOrder order) {
  FieldReader fields(body, order);
  MapRecord map;
  map.misc = record.misc;
  map.pid = fields.take<std::uint32_t>();
  map.tid = fields.take<std::uint32_t>();
  map.start = fields.take<std::uint64_t>();
  map.length = fields.take<std::uint64_t>();
  map.pageOffset = fields.take<std::uint64_t>();
  if (record.type == abi::RECORD_MMAP2) {
    if ((record.misc & abi::MISC_MMAP_BUILD_ID) != 0) {
      const std::size_t size =
          std::min<std::size_t>(fields.take<std::uint8_t>(), abi::BUILD_ID_SIZE);
      fields.skip(3);
      const Bytes id = fields.takeBytes(abi::BUILD_ID_SIZE);
      map.buildId.assign(id.begin(),
                         id.begin() + static_cast<std::ptrdiff_t>(std::min(size, id.size())));
    } else {
      fields.skip(4 + 4 + 8 + 8);  // device, inode, generation
    }
    fields.skip(4);  // protection
    map.flags = fields.take<std::uint32_t>();
  }
  if (!fields.ok()) {
    return std::nullopt;
  }
  map.name = fields.takeRestAsText();
  return map;
}

std::optional<CommRecord> CommRecord::decode(const Record& record, Bytes body, ByteOrder order) {
  FieldReader fields(body, order);
  CommRecord comm;
  comm.pid = fields.take<std::uint32_t>();
  comm.tid = fields.take<std::uint32_t>();
  if (!fields.ok()) {
    return std::nullopt;
  }
  comm.name = fields.takeRestAsText();
  comm.isExec = (record.misc & abi::MISC_COMM_EXEC) != 0;
  return comm;
}

std::optional<TaskRecord> TaskRecord::decode(const Record& record, Bytes body, ByteOrder order) {
  FieldReader fields(body, order);
  TaskRecord task;
  task.pid = fields.take<std::uint32_t>();
  task.parentPid = fields.take<std::uint32_t>();
  task.tid = fields.take<std::uint32_t>();
  task.parentTid = fields.take<std::uint32_t>();
  task.isMadeByPerf = (record.misc & abi::MISC_FORK_EXEC) != 0;
  return fields.ok() ? std::optional(task) : std::nullopt;
}

std::optional<KsymbolRecord> KsymbolRecord::decode(Bytes body, ByteOrder order) {
  FieldReader fields(body, order);
  KsymbolRecord symbol;
  symbol.start = fields.take<std::uint64_t>();
  symbol.length = fields.take<std::uint32_t>();
  fields.skip(2);
  symbol.isRemoved = (fields.take<std::uint16_t>() & abi::KSYMBOL_UNREGISTER) != 0;
  if (!fields.ok()) {
    return std::nullopt;
  }
  symbol.name = fields.takeRestAsText();
  return symbol;
}

std::optional<std::uint64_t> decodeLost(const Record& record, Bytes body, ByteOrder order) {
  FieldReader fields(body, order);
  if (record.type == abi::RECORD_LOST) {
    fields.skip(8);  // id
  }
  const std::uint64_t lost = fields.take<std::uint64_t>();
  return fields.ok() ? std::optional(lost) : std::nullopt;
}

}  // namespace recordings
