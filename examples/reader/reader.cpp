// Counts the samples of a recording by thread and prints them as one JSON object: tid to count.
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <map>
#include <string>

#include "kestrel/json/JSOM.h"
#include "kestrel/json/JsomWriter.h"
#include "kestrel/log/Logger.h"
#include "perfevents/PerfEventDataListener.h"
#include "perfevents/PerfEventDataSample.h"
#include "perfevents/PerfRecordFileReader.h"

namespace {

// Gets every record of the file in its order; a record is borrowed for the call.
class SampleCounter : public perfevents::PerfEventDataListener {
 public:
  void onEventData(const perfevents::PerfEventData& record) override {
    if (record.getType() == perfevents::PerfEventData::Type::Sample) {
      ++counts_[static_cast<const perfevents::PerfEventDataSample&>(record).getTid()];
    }
  }
  void onClose() override {}

  void print(std::ostream& out) const {
    kestrel::JsomWriter writer(&out);
    writer.startObject();
    for (const auto& [tid, count] : counts_) {
      writer.appendLabel(std::to_string(tid).c_str(), true);
      writer.appendUnsignedInt(count);
    }
    writer.endObject();
  }

 private:
  std::map<unsigned, unsigned> counts_;  // by tid
};

// Log lines go to standard output; only errors are of interest beside the object.
void silenceLog() {
  kestrel::JSOM settings;
  settings.fromString(R"({"level": "ERROR"})");
  kestrel::Logger::useConfig(settings);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "Usage: reader RECORDING\n";
    return EXIT_FAILURE;
  }
  silenceLog();
  std::string path = argv[1];
  std::ifstream file;
  if (!perfevents::PerfRecordFileReader::openPerfRecordFile(file, path)) {
    std::cerr << "reader: cannot open " << path << "\n";
    return EXIT_FAILURE;
  }
  try {
    SampleCounter counter;
    perfevents::PerfRecordFileReader reader(file, true);
    reader.parseEvents(counter);
    counter.print(std::cout);
    std::cout << "\n";
  } catch (const std::exception& problem) {
    std::cerr << "reader: " << problem.what() << "\n";
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
