// Fuzz target: a recording goes through the reader, the record store and both passes to a document,
// as in a run of the program. The input is the recording; PerfFileChoices.h says what else it
// chooses.
//
// No lister is run, and no file of the machine is read: the cache counts as frozen, and two lists
// stand ready in memory, the kernel's and that of /bin/app.
#include <cstdlib>
#include <fstream>
#include <ostream>
#include <stdexcept>
#include <streambuf>

#include "app/PerfInputRunnerPass1.h"
#include "app/PerfInputRunnerPass2.h"
#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "kestrel/TimeConverter.h"
#include "kestrel/json/JsomWriter.h"
#include "model/MMapStore.h"
#include "model/ThreadStore.h"
#include "symbols/SourceFileStore.h"
#include "symbols/SymbolCache.h"
#include "symbols/SymbolTableStore.h"
#include "tests/fuzz/AllocationMeter.h"
#include "tests/fuzz/DocumentCheck.h"
#include "tests/fuzz/FreshProcess.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/MemoryFile.h"
#include "tests/fuzz/PerfFileChoices.h"

using kestrel::Singleton;

namespace {

const char* const KERNEL_LIST =
    "bf008000 T _text\n"
    "bf008100 t first\n"
    "bf009000 T second\n"
    "bf00a000 T _etext\n";
const char* const APP_LIST =
    "00000100 T _init\n"
    "00000400 T main\t/src/main.c:12\n"
    "00000480 t helper(int, char const*)\t/src/helper.c:7\n"
    "00000900 W last\t/src/helper.c:99\n";

// Keeps the document outside the heap that is measured.
class DocumentBuffer : public std::streambuf {
 public:
  DocumentBuffer() = default;
  DocumentBuffer(const DocumentBuffer&) = delete;
  DocumentBuffer& operator=(const DocumentBuffer&) = delete;
  ~DocumentBuffer() override { std::free(bytes_); }

  std::string text() const { return std::string(bytes_, size_); }

 protected:
  int_type overflow(int_type byte) override {
    const char c = traits_type::to_char_type(byte);
    return xsputn(&c, 1) == 1 ? byte : traits_type::eof();
  }
  std::streamsize xsputn(const char* bytes, std::streamsize count) override {
    const auto more = static_cast<std::size_t>(count);
    if (more > capacity_ - size_) {
      capacity_ = 2 * (size_ + more);
      bytes_ = static_cast<char*>(std::realloc(bytes_, capacity_));
    }
    traits_type::copy(bytes_ + size_, bytes, more);
    size_ += more;
    return count;
  }

 private:
  char* bytes_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

struct SymbolLists {
  SymbolLists() {
    kernel.write(KERNEL_LIST);
    app.write(APP_LIST);
  }
  MemoryFile kernel;
  MemoryFile app;
};

// In the order of a run: it shows in the keys.
void provideSymbols(unsigned char choice) {
  static const SymbolLists lists;
  const PerfSettings& settings = *Singleton<PerfSettings>::Instance();
  SymbolCache& cache = *Singleton<SymbolCache>::Instance();
  if ((choice & NO_KERNEL_LIST) == 0) {
    cache.setOverride(settings.kernelMapName, lists.kernel.path());
  }
  cache.setOverride("/bin/app", lists.app.path());
  SymbolTableStore& tables = *Singleton<SymbolTableStore>::Instance();
  tables.setLocation(settings.kernelMapName, settings.kernelMapName);
  tables.getSymbolTable(&Singleton<MMapStore>::Instance()->kernelMap());
}

// False for a recording that ends the run: one without attributes.
bool convert(const std::string& path, unsigned char choice, std::ostream& out) {
  kestrel::TimeConverter times = chooseTimes(choice);
  std::ifstream input(path, std::ios::in | std::ios::binary);
  kestrel::JsomWriter writer(&out);
  writer.whitespace = (choice & WHITESPACE) != 0;
  writer.startObject();
  try {
    const PerfInputRunnerPass1 pass1(&input, &times, &writer);
    input.clear();
    input.seekg(0);
    const PerfInputRunnerPass2 pass2(&input, &times, &writer);
  } catch (const std::invalid_argument&) {
    writer.end();
    return false;
  }
  Singleton<MMapStore>::Instance()->writeLegacyJsonObject(writer, false);
  Singleton<SymbolTableStore>::Instance()->writeLegacyJsonObject(writer, false);
  Singleton<ThreadStore>::Instance()->writeLegacyJsonObject(writer, false);
  Singleton<SourceFileStore>::Instance()->writeLegacyJsonObject(writer, false);
  writer.endObject();
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static MemoryFile recording;
  recording.write(data, size);
  const unsigned char choice = choicesIn(data, size);
  DocumentBuffer document;
  std::ostream out(&document);

  startAfreshForTest();
  chooseSettings(choice);
  const AllocationMeter meter;
  provideSymbols(choice);
  const bool isConverted = convert(recording.path(), choice, out);
  requireBoundedMemory(meter, size);
  if (isConverted) {
    requireDocument(document.text());
  } else {
    requireJson(document.text());
  }
  startAfreshForTest();
  return 0;
}
