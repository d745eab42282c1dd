#include "tests/unwinding/ChainDump.h"

#include <fstream>
#include <map>
#include <sstream>

namespace {

std::vector<unsigned char> bytesOf(const std::string& hexadecimal) {
  std::vector<unsigned char> bytes;
  for (std::size_t i = 0; i + 1 < hexadecimal.size(); i += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoul(hexadecimal.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

void readRegisters(std::istream& in, unwinding::Registers& registers) {
  std::string each;
  while (in >> each) {
    const std::size_t equals = each.find('=');
    registers.set(std::stoul(each), std::stoull(each.substr(equals + 1), nullptr, 16));
  }
}

}  // namespace

ChainDump readChainDump(const std::string& path) {
  static const std::map<std::string, unwinding::Machine> machines = {
      {"x86_64", unwinding::Machine::X86_64},
      {"x86", unwinding::Machine::X86},
      {"arm", unwinding::Machine::Arm},
      {"arm64", unwinding::Machine::Arm64}};
  ChainDump dump;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream words(line);
    std::string kind;
    std::string text;
    words >> kind;
    if (kind == "machine") {
      words >> text;
      dump.machine = machines.at(text);
    } else if (kind == "registers") {
      readRegisters(words, dump.registers);
    } else if (kind == "stack") {
      words >> text;
      dump.stack = bytesOf(text);
    } else if (kind == "map") {
      ChainDump::MappedFile file;
      words >> std::hex >> file.map.start >> file.map.end >> file.map.fileOffset >> file.path;
      file.map.file = static_cast<unwinding::FileId>(dump.files.size());
      dump.files.push_back(file);
    } else if (kind == "vdso") {
      words >> text;
      dump.vdso = bytesOf(text);
    } else if (kind == "signal") {
      words >> std::hex >> dump.signalReturn;
    } else if (kind == "caller") {
      std::uint64_t address = 0;
      words >> std::hex >> address;
      dump.callers.push_back(address);
    }
  }
  return dump;
}
