#include "listing/LineTable.h"

#include <dwarf.h>
#include <utility>

namespace listing {

namespace {

constexpr std::uint64_t LENGTH_OF_64_BITS = 0xFFFFFFFF;

std::string_view _textAt(std::string_view section, std::uint64_t offset) {
  if (offset >= section.size()) {
    return {};
  }
  const std::string_view rest = section.substr(static_cast<std::size_t>(offset));
  return rest.substr(0, rest.find('\0'));
}

bool _isAbsolute(std::string_view path) { return path.starts_with('/'); }

std::string _join(std::string_view directory, std::string_view name) {
  if (directory.empty() || _isAbsolute(name)) {
    return std::string(name);
  }
  return std::string(directory) + '/' + std::string(name);
}

// Without empty parts, "." and, where something stands before it, "..".
std::string _normal(std::string_view path) {
  std::vector<std::string_view> parts;
  for (std::size_t at = 0; at < path.size();) {
    const std::size_t end = std::min(path.find('/', at), path.size());
    const std::string_view part = path.substr(at, end - at);
    at = end + 1;
    const bool hasParent = !parts.empty() && parts.back() != "..";
    if (part == ".." && hasParent) {
      parts.pop_back();
    } else if (!part.empty() && part != "." && (part != ".." || !_isAbsolute(path))) {
      parts.push_back(part);
    }
  }
  std::string text;
  for (const std::string_view part : parts) {
    text += text.empty() && !_isAbsolute(path) ? "" : "/";
    text += part;
  }
  return text;
}

// What one field of an entry says: a text or a number.
struct Field {
  std::string_view text;
  std::uint64_t number = 0;
};

Field _takeField(ByteCursor& unit, std::uint64_t form, const LineTable::Texts& texts, bool is64) {
  const std::size_t offsetSize = is64 ? 8 : 4;
  switch (form) {
    case DW_FORM_string:
      return {unit.text(), 0};
    case DW_FORM_line_strp:
      return {_textAt(texts.debugLineStr, unit.number(offsetSize)), 0};
    case DW_FORM_strp:
      return {_textAt(texts.debugStr, unit.number(offsetSize)), 0};
    case DW_FORM_strp_sup:
      return {{}, unit.number(offsetSize)};
    case DW_FORM_udata:
      return {{}, unit.unsignedNumber()};
    case DW_FORM_data1:
      return {{}, unit.u8()};
    case DW_FORM_data2:
      return {{}, unit.number(2)};
    case DW_FORM_data4:
      return {{}, unit.number(4)};
    case DW_FORM_data8:
      return {{}, unit.number(8)};
    case DW_FORM_data16:
      unit.take(16);
      return {};
    case DW_FORM_block:
      unit.take(unit.unsignedNumber());
      return {};
    default:  // nothing tells how long it is
      unit.take(UINT64_MAX);
      return {};
  }
}

}  // namespace

std::optional<LineTable> LineTable::take(ByteCursor& section, const Texts& texts,
                                         bool isBigEndian) {
  std::uint64_t length = section.number(4);
  const bool is64 = length == LENGTH_OF_64_BITS;
  if (is64) {
    length = section.number(8);
  }
  ByteCursor unit(section.take(length), isBigEndian);
  LineTable table;
  table.isBigEndian_ = isBigEndian;
  return section.isOk() && table._readHeader(unit, texts, is64) ? std::optional(std::move(table))
                                                                : std::nullopt;
}

bool LineTable::_readHeader(ByteCursor& unit, const Texts& texts, bool is64) {
  version_ = static_cast<unsigned>(unit.number(2));
  if (version_ < 2 || version_ > 5) {
    return false;
  }
  if (version_ == 5) {
    unit.number(2);  // sizes of addresses and of segment selectors
  }
  const std::uint64_t headerLength = unit.number(is64 ? 8 : 4);
  ByteCursor header(unit.take(headerLength), isBigEndian_);
  program_ = unit.take(unit.left());
  minInstructionLength_ = header.u8();
  if (version_ >= 4) {
    header.u8();  // operations in an instruction
  }
  header.number(2);  // whether rows are statements at first, and the lowest advance of lines
  lineRange_ = header.u8();
  opcodeBase_ = header.u8();
  if (!unit.isOk() || !header.isOk() || lineRange_ == 0 || opcodeBase_ == 0) {
    return false;
  }
  opcodeLengths_ = header.take(opcodeBase_ - 1U);
  if (version_ < 5) {
    _readOldEntries(header);
    return header.isOk();
  }
  return _readEntries(header, texts, is64, directories_) &&
         _readEntries(header, texts, is64, files_);
}

// Before version 5: from 1 on; directory 0 is that of the unit.
void LineTable::_readOldEntries(ByteCursor& unit) {
  directories_.emplace_back();
  for (std::string_view name = unit.text(); !name.empty(); name = unit.text()) {
    directories_.push_back({name, 0});
  }
  files_.emplace_back();
  for (std::string_view name = unit.text(); !name.empty(); name = unit.text()) {
    files_.push_back({name, unit.unsignedNumber()});
    unit.skipLeb();  // time
    unit.skipLeb();  // size
  }
}

bool LineTable::_readEntries(ByteCursor& unit, const Texts& texts, bool is64,
                             std::vector<File>& entries) {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> format(unit.u8());
  for (auto& [content, form] : format) {
    content = unit.unsignedNumber();
    form = unit.unsignedNumber();
  }
  const std::uint64_t count = unit.unsignedNumber();
  // An entry takes a byte or more, unless it has no fields.
  if (!unit.isOk() || count > unit.left() || (format.empty() && count > 0)) {
    return false;
  }
  entries.reserve(static_cast<std::size_t>(count));
  for (std::uint64_t i = 0; i < count && unit.isOk(); ++i) {
    File& entry = entries.emplace_back();
    for (const auto& [content, form] : format) {
      const Field field = _takeField(unit, form, texts, is64);
      if (content == DW_LNCT_path) {
        entry.name = field.text;
      } else if (content == DW_LNCT_directory_index) {
        entry.directory = field.number;
      }
    }
  }
  return unit.isOk();
}

std::string LineTable::pathOf(std::uint64_t number, std::string_view directory) const {
  if (number >= files_.size() || files_[number].name.empty()) {
    return {};
  }
  const File& file = files_[number];
  const std::string_view unitDirectory =
      version_ == 5 && !directories_.empty() ? directories_.front().name : directory;
  const std::string_view ownDirectory = file.directory > 0 && file.directory < directories_.size()
                                            ? directories_[file.directory].name
                                            : "";
  return _normal(_join(_join(unitDirectory, ownDirectory), file.name));
}

}  // namespace listing
