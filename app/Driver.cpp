#include "app/Driver.h"

#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <new>

#include "app/PerfInputRunnerPass1.h"
#include "app/PerfInputRunnerPass2.h"
#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "kestrel/StandardStreams.h"
#include "kestrel/WallClock.h"
#include "kestrel/exec/PipeSignal.h"
#include "kestrel/json/JsomWriter.h"
#include "kestrel/log/FileLogAdapter.h"
#include "kestrel/log/LogAdapterStore.h"
#include "kestrel/log/Logger.h"
#include "model/MMapStore.h"
#include "model/ThreadStore.h"
#include "perfevents/PerfRecordFileReader.h"
#include "symbols/SourceFileStore.h"
#include "symbols/SymbolCache.h"
#include "symbols/SymbolTableStore.h"

using kestrel::Singleton;

namespace {

constexpr std::size_t RESERVE_BYTES = 32768;

}  // namespace

void Driver::FreeReserve::operator()(void* reserve) const { std::free(reserve); }

int Driver::run(int argc, char* const* argv) {
  // Not with new, which throws inside even when it is asked not to: where this is not to be had,
  // there may be no room for an exception either.
  reserve_.reset(std::malloc(RESERVE_BYTES));
  if (reserve_ == nullptr) {
    _reportOutOfMemory();
    return EXIT_FAILURE;
  }
  try {
    return _run(argc, argv);
  } catch (const std::bad_alloc&) {
    _reportOutOfMemory();
  } catch (const std::exception& problem) {
    _reportEnd(problem.what());
  }
  return EXIT_FAILURE;
}

void Driver::_reportEnd(const char* why) {
  if (log_ != nullptr) {
    log_->errorf("%s", why);
  } else {
    std::cerr << why << std::endl;
  }
}

void Driver::_reportOutOfMemory() {
  reserve_.reset();
  _reportEnd("Out of memory, aborting..");
}

int Driver::_run(int argc, char* const* argv) {
  kestrel::StandardStreams::reserveDescriptors();
  kestrel::PipeSignal::ignore();
  const double startTime = kestrel::getNow();
  settings_ = Singleton<PerfSettings>::Instance();
  if (const std::optional<int> status = options_.parse(argc, argv)) {
    return *status;
  }
  _registerFileLogAdapter();
  if (!_loadConfiguration()) {
    return EXIT_FAILURE;
  }
  _configureLogging();
  log_ = kestrel::Logger::getLogger("main");
  _readSettings();
  _registerKernelSymbols();
  _loadKernelSymbols();
  _chooseFiles();
  if (!_openInput() || !_openOutput()) {
    return EXIT_FAILURE;
  }
  timeConverter_.setup(options_.clockStart, options_.clockDuration, options_.skew, options_.offset,
                       options_.base);
  const bool isConverted = _writeDocument();
  const bool isWritten = _finishOutput();
  if (!isConverted || !isWritten) {
    return EXIT_FAILURE;
  }
  log_->infof("Conversion completed in %f seconds.", kestrel::getNow() - startTime);
  return EXIT_SUCCESS;
}

void Driver::_registerFileLogAdapter() {
  kestrel::LogAdapterStore::Instance()->addFactory("file", new kestrel::FileLogAdapterFactory());
}

bool Driver::_loadConfiguration() {
  if (config_.fromFile(options_.configFile.c_str()).isError()) {
    std::cerr << "Could not load configuration file " << options_.configFile << std::endl;
    return false;
  }
  config_.expandValues();
  return true;
}

void Driver::_configureLogging() {
  const kestrel::JSOM logging = config_["log"];
  if (logging.isObject()) {
    kestrel::Logger::useConfig(logging);
  }
}

void Driver::_readSettings() {
  const auto number = [this](const char* key, uint64_t value) {
    return config_[key].longValue(static_cast<long long>(value));
  };
  const auto text = [this](const char* key, std::string& value) {
    value = std::string(config_[key].stringValue(value));
  };
  // Kernel addresses keep their low 32 bits only, deliberately; the kernel's symbol list gives the
  // others.
  settings_->kernelStartAddress =
      static_cast<uint32_t>(number("kernelStartAddress", settings_->kernelStartAddress));
  settings_->kernelEndAddress =
      static_cast<uint32_t>(number("kernelEndAddress", settings_->kernelEndAddress));
  settings_->maxBackTrace = static_cast<uint32_t>(number("maxBackTrace", settings_->maxBackTrace));
  settings_->timePrecision =
      static_cast<uint32_t>(number("timePrecision", settings_->timePrecision));
  text("symbolCacheDir", settings_->symbolCacheDir);
  text("symbolFileSeachPath", settings_->symbolFileSeachPath);
  text("kernelSymbolFile", settings_->kernelSymbolFile);
  settings_->freezeSymbolCache =
      config_["freezeSymbolCache"].booleanValue(settings_->freezeSymbolCache);
  settings_->onTargetMode = config_["onTargetMode"].booleanValue(settings_->onTargetMode);
}

// The kernel's list is read as it stands, instead of listing a file of the kernel map's name.
void Driver::_registerKernelSymbols() {
  const PerfSettings* const settings = Singleton<PerfSettings>::Instance();
  Singleton<SymbolCache>::Instance()->setOverride(settings->kernelMapName,
                                                  settings->kernelSymbolFile);
  Singleton<SymbolTableStore>::Instance()->setLocation(settings->kernelMapName,
                                                       settings->kernelMapName);
}

void Driver::_loadKernelSymbols() {
  MMapInfo& kernel = Singleton<MMapStore>::Instance()->kernelMap();
  const SymbolTable* const table = Singleton<SymbolTableStore>::Instance()->getSymbolTable(&kernel);
  const FunctionInfo* text = table->findFunction("_text");
  if (text == nullptr) {
    text = table->findFunction("stext");
  }
  uint64_t& start = settings_->kernelStartAddress;
  uint64_t& end = settings_->kernelEndAddress;
  if (text != nullptr) {
    const FunctionInfo* const last = table->lastFunction();
    start = text->start;
    end = last == nullptr ? 0 : last->start + last->size;
    kernel.start = start;
    kernel.size = end - start + 1;
  }
  const auto size = static_cast<unsigned int>(table->items().size());
  const char* const from = settings_->kernelSymbolFile.c_str();
  if (text != nullptr) {
    log_->infof("Loaded kernel symbols.  size:%u range:%" PRIx64 "-%" PRIx64 " from %s", size,
                start, end, from);
  } else {
    log_->infof("Failed to load kernel symbols.  size:%u range:%" PRIx64 "-%" PRIx64 " from %s",
                size, start, end, from);
  }
}

// The command line wins. -a counts only together with -o.
void Driver::_chooseFiles() {
  inputName_ = options_.inputFile;
  if (!inputName_) {
    if (const char* const name = config_["inputPerfFile"].stringValuePtr(nullptr)) {
      inputName_ = name;
    }
  }
  outputName_ = options_.outputFile;
  append_ = options_.append;
  if (!outputName_) {
    if (const char* const name = config_["outputFile"].stringValuePtr(nullptr)) {
      outputName_ = name;
      append_ = config_["appendOutput"].booleanValue(false);
    }
  }
}

bool Driver::_openInput() {
  if (!inputName_) {
    log_->errorf("No input file specified, aborting..");
    return false;
  }
  if (!perfevents::PerfRecordFileReader::openPerfRecordFile(input_, *inputName_)) {
    log_->errorf("Cannot open %s for reading, aborting..", inputName_->c_str());
    return false;
  }
  return true;
}

bool Driver::_openOutput() {
  if (!outputName_) {
    output_ = &std::cout;
    if (!_sharesOutputWithLog()) {
      kestrel::StandardStreams::writeOutputInBlocks();
    }
    return true;
  }
  outputFile_.emplace().open(*outputName_, append_);
  if (!outputFile_->is_open()) {
    log_->errorf("Cannot open %s for writing, aborting..", outputName_->c_str());
    input_.close();
    return false;
  }
  output_ = &*outputFile_;
  return true;
}

// False after an ERROR line when the system refuses. What has no places, as a pipe, the reader
// refuses by itself.
bool Driver::_rewindInput() {
  input_.clear();  // pass 1 may have left an end of file behind
  if (input_.seekg(0) || errno == ESPIPE) {
    return true;
  }
  log_->errorf("Error reading %s: %s", inputName_->c_str(), std::strerror(errno));
  input_.clear();
  return false;
}

bool Driver::_sharesOutputWithLog() const {
  return !outputName_ && kestrel::Logger::usesStandardOutput();
}

// False when something else than the recording stopped the conversion; the document is valid JSON
// all the same.
bool Driver::_writeDocument() {
  kestrel::JsomWriter writer(output_);
  writer.whitespace = config_["whitespace"].booleanValue(false);
  writer.startObject();
  bool isReadable = true;
  try {
    const PerfInputRunnerPass1 pass1(&input_, &timeConverter_, &writer);
    isReadable = !input_.bad();
    isReadable = _rewindInput() && isReadable;
    const PerfInputRunnerPass2 pass2(
        &input_, &timeConverter_, &writer,
        _sharesOutputWithLog() ? SampleWriter::Mode::AtOnce : SampleWriter::Mode::InBackground);
    isReadable = isReadable && !input_.bad();
    _writeTables(writer);
  } catch (const std::bad_alloc&) {
    _reportOutOfMemory();
    writer.end();
    return false;
  } catch (const std::exception& problem) {
    log_->errorf("%s", problem.what());
    writer.end();
    return false;
  }
  writer.endObject();
  if (!isReadable) {
    log_->errorf("Cannot read %s, the document is incomplete.", inputName_->c_str());
  }
  return isReadable;
}

// The order matters: writing the maps counts uses of the processes.
void Driver::_writeTables(kestrel::JsomWriter& writer) {
  constexpr bool WRITE_ALL = false;
  Singleton<MMapStore>::Instance()->writeLegacyJsonObject(writer, WRITE_ALL);
  Singleton<SymbolTableStore>::Instance()->writeLegacyJsonObject(writer, WRITE_ALL);
  Singleton<ThreadStore>::Instance()->writeLegacyJsonObject(writer, WRITE_ALL);
  Singleton<SourceFileStore>::Instance()->writeLegacyJsonObject(writer, WRITE_ALL);
}

// A document that did not reach its place whole (full disk, closed pipe) is never called complete.
bool Driver::_finishOutput() {
  input_.close();
  output_->flush();
  bool isWritten = true;
  if (outputName_) {
    outputFile_->close();
  } else {
    isWritten = kestrel::StandardStreams::flushOutput();
  }
  isWritten = isWritten && !output_->fail();
  if (!isWritten) {
    log_->errorf("Cannot write %s, the document is incomplete.",
                 outputName_ ? outputName_->c_str() : "standard output");
  }
  return isWritten;
}
