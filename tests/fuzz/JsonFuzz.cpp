// Fuzz target: a JSON text is parsed and handled as the program handles configurations. The input
// is the text, up to its first zero byte; what follows is a script of operations on handles, two
// bytes each (see Script).
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "kestrel/json/JSOM.h"
#include "tests/fuzz/AllocationMeter.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/JsonRoundTrip.h"

using kestrel::JSOM;

namespace {

const std::string KEYS[] = {"", "a", "b", "log", "level", "kernelStartAddress"};
const char* const TEXTS[] = {"",   "yes",           "12",      "-3.5", "${FUZZ_NAME}",
                             "${", "[1,{\"a\":2}]", "{\"b\":", "x"};

// Runs operations on handles of one tree. Every handle stays until the end.
class Script {
 public:
  explicit Script(const JSOM& root) { handles_.push_back(root); }

  void run(const uint8_t* bytes, std::size_t size) {
    for (std::size_t i = 0; i + 1 < size && i / 2 < MOST_OPERATIONS; i += 2) {
      _do(bytes[i], bytes[i + 1]);
    }
  }

 private:
  static constexpr std::size_t MOST_OPERATIONS = 48;
  static constexpr int MOST_COPIES = 3;  // each may double the tree

  // The operation's upper bits choose the handle, its lower ones what is done.
  void _do(uint8_t operation, uint8_t argument) {
    JSOM handle = handles_[(operation >> 4) % handles_.size()];
    switch (operation & 0x0F) {
      case 0:
        handles_.push_back(handle[argument % 8 - 1]);
        break;
      case 1:
        handles_.push_back(handle[_key(argument)]);
        break;
      case 2:
        handles_.push_back(handle.at(_key(argument).c_str()));
        break;
      case 3:
        _read(handle, argument);
        break;
      case 4:
        handle.setLong(argument - 128);
        break;
      case 5:
        handle.setDouble((argument - 128) / 16.0L);
        break;
      case 6:
        handle.setBoolean(argument % 2 != 0);
        break;
      case 7:
        handle.setString(argument == 0 ? nullptr : _text(argument));
        break;
      case 8:
        handle.erase(argument % 8 - 1);
        break;
      case 9:
        handle.erase(_key(argument));
        break;
      case 10:
        handle.clear();
        break;
      case 11:
        _copy(handle, argument);
        break;
      case 12:
        handle.expandValues();
        break;
      case 13:
        handle.fromString(_text(argument));
        break;
      case 14:
        _look(handle, argument);
        break;
      default:
        _write(handle, argument);
        break;
    }
  }

  static const std::string& _key(uint8_t argument) { return KEYS[argument % std::size(KEYS)]; }
  static const char* _text(uint8_t argument) { return TEXTS[argument % std::size(TEXTS)]; }

  static void _read(const JSOM& handle, uint8_t argument) {
    switch (argument % 5) {
      case 0:
        handle.longValue(argument);
        break;
      case 1:
        handle.doubleValue(argument);
        break;
      case 2:
        handle.booleanValue(argument > 127);
        break;
      case 3:
        handle.stringValue(JSOM::EMPTY_STRING);
        break;
      default:
        handle.stringValuePtr(nullptr);
        break;
    }
  }

  void _copy(JSOM& handle, uint8_t argument) {
    if (copies_++ >= MOST_COPIES) {
      return;
    }
    const JSOM& other = handles_[argument % handles_.size()];
    if (argument > 127) {
      handle.copy(other);
    } else {
      handle = other;
    }
  }

  void _look(const JSOM& handle, uint8_t argument) const {
    const JSOM& other = handles_[argument % handles_.size()];
    require((handle == other) == (other == handle), "equality has no direction");
    const std::string* const key = handle.key(argument % 8);
    require(key == nullptr || (handle.isObject() && argument % 8 < handle.size()),
            "only members have keys");
  }

  static void _write(const JSOM& handle, uint8_t argument) {
    std::ostringstream out;
    handle.toStream(out);
    std::string text;
    handle.toString(text, argument % 8);
  }

  std::vector<JSOM> handles_;
  int copies_ = 0;
};

void requireSameFromStream(const std::string& text, bool isParsed, const JSOM& parsed) {
  std::istringstream in(text);
  JSOM streamed;
  require(!streamed.fromStream(in).isError() == isParsed,
          "a text is parsed from a stream as from a string");
  std::string one;
  std::string other;
  parsed.toCompactString(one, 6);
  streamed.toCompactString(other, 6);
  require(one == other, "a tree is the same from a stream as from a string");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  silenceMessages();
  setenv("FUZZ_NAME", "value", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const AllocationMeter meter;
  const std::string text(reinterpret_cast<const char*>(data),
                         strnlen(reinterpret_cast<const char*>(data), size));
  JSOM root;
  const bool isParsed = !root.fromString(text).isError();
  requireBoundedMemory(meter, size);
  requireSameFromStream(text, isParsed, root);
  if (isParsed) {
    requireRoundTrip(root);
  }
  if (text.size() + 1 < size) {
    Script(root).run(data + text.size() + 1, size - text.size() - 1);
    requireRoundTrip(root);
  }
  return 0;
}
