#include "prepare/ConverterFiles.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <unistd.h>

#include "kestrel/json/JsomWriter.h"
#include "prepare/PrepareError.h"

namespace prepare {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t LONGEST_COMPONENT = 200;
constexpr std::size_t LONGEST_NAME = 3000;
// Shorter names are shown as *BlankName*.
constexpr std::size_t SHORTEST_NAME = 4;
constexpr std::size_t DEFAULT_BACK_TRACE = 16;

// Where the converter would split or expand it, the folder's own path cannot be written down.
void refuseUnwritable(const std::string& path) {
  for (const char* const text : {":", "${", "\\"}) {
    if (path.find(text) != std::string::npos) {
      throw PrepareError(path + ": a configuration cannot name a folder with '" + text +
                         "' in its path. Name another with -o.");
    }
  }
}

// Another spelling of the same path for each number from 1 on: its binary digits in front, as "/"
// and "/.", so that it stays short.
std::string respelled(const std::string& name, std::uint64_t number) {
  std::string prefix = name.front() == '/' ? "" : ".";
  for (; number > 1; number /= 2) {
    prefix += number % 2 == 0 ? "/" : "/.";
  }
  return prefix + "/" + name;
}

// The name with nothing in it that leads out of a folder or is too long for a file system.
std::string harmless(const std::string& name) {
  std::string result;
  std::size_t at = 0;
  while (at <= name.size() && result.size() < LONGEST_NAME) {
    const std::size_t slash = std::min(name.find('/', at), name.size());
    std::string component = name.substr(at, slash - at);
    if (component == "..") {
      component = "__";
    } else if (component.size() > LONGEST_COMPONENT) {
      component = component.substr(0, LONGEST_COMPONENT) + "~";
    }
    result += component;
    if (slash < name.size()) {
      result += '/';
    }
    at = slash + 1;
  }
  return result;
}

}  // namespace

ConverterFiles::ConverterFiles(const PreparedFolder& folder) : folder_(folder) {
  refuseUnwritable(folder_.finalPath());
  fs::create_directory(folder_.workPath(LISTS));
  fs::create_directory(folder_.workPath(STAND_INS));
}

std::string ConverterFiles::nameOf(const std::string& mapName) {
  // The converter cuts this itself, and looks for what is left.
  std::string name = harmless(mapName.substr(0, mapName.find(" (deleted)")));
  if (name.empty()) {
    name = "[unnamed]";
  }
  // More slashes, or ./, make another spelling of the same path. A brace in front means to the
  // converter that a map was made up.
  const std::string more = name.front() == '/' ? "/" : "./";
  while (name.size() < SHORTEST_NAME || name.front() == '{') {
    name.insert(0, more);
  }
  std::uint64_t& others = spellings_[name];
  std::string spelling = name;
  while (!names_.insert(spelling).second) {
    spelling = respelled(name, ++others);
  }
  return spelling;
}

void ConverterFiles::_makeStandIn(const std::string& writtenName) const {
  const std::string path = folder_.workPath(STAND_INS) + "/" + writtenName;
  std::error_code ignored;
  fs::create_directories(fs::path(path).parent_path(), ignored);
  const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
  if (descriptor != -1) {
    close(descriptor);
  } else if (!fs::exists(path, ignored)) {  // a folder of that name will do
    throw PrepareError(path + ": cannot be written: " +
                       std::error_code(errno, std::generic_category()).message() + ".");
  }
}

void ConverterFiles::addList(const std::string& writtenName, const std::string& listPath) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(listPath, error);
  if (error || size == 0) {
    return;
  }
  _makeStandIn(writtenName);
  lists_[writtenName] = {fs::path(listPath).filename().string(), size};
}

std::string ConverterFiles::addListText(const std::string& writtenName, const std::string& text) {
  const std::string name = std::string(LISTS) + "/code-" + std::to_string(lists_.size()) + ".nm";
  folder_.write(name, text);
  addList(writtenName, folder_.workPath(name));
  return folder_.workPath(name);
}

std::string ConverterFiles::addKernelList(const std::string& listPath) {
  std::error_code error;
  const std::string path = folder_.workPath(KERNEL_LIST);
  fs::rename(listPath, path, error);
  if (error) {
    throw PrepareError(path + ": cannot be written: " + error.message() + ".");
  }
  return path;
}

void ConverterFiles::_writeIndex() const {
  std::ostringstream text;
  kestrel::JsomWriter json(&text);
  json.startObject();
  for (const auto& [name, list] : lists_) {
    json.appendLabel((folder_.finalPath(STAND_INS) + "/" + name).c_str(), false);
    json.startObject();
    json.appendLabel("file", true);
    json.appendString(list.file, false);
    json.appendLabel("mtime", true);
    json.appendInt(0);
    json.appendLabel("size", true);
    json.appendUnsignedLong(list.size);
    json.endObject();
  }
  json.end();
  folder_.write(std::string(LISTS) + "/symbolcache.json", text.str());
}

void ConverterFiles::finish(const Settings& settings) {
  _writeIndex();
  std::ostringstream text;
  kestrel::JsomWriter json(&text);
  json.whitespace = true;
  const auto addText = [&json](const char* key, const std::string& value) {
    json.appendLabel(key, true);
    json.appendString(value, false);
  };
  const auto addNumber = [&json](const char* key, std::size_t value) {
    json.appendLabel(key, true);
    json.appendUnsignedLong(value);
  };
  json.startObject();
  addText("inputPerfFile", folder_.finalPath(RECORDING));
  json.appendLabel("onTargetMode", true);
  json.appendBoolean(false);
  addText("symbolFileSeachPath", folder_.finalPath(STAND_INS));
  addText("symbolCacheDir", folder_.finalPath(LISTS));
  json.appendLabel("freezeSymbolCache", true);
  json.appendBoolean(true);
  addText("kernelSymbolFile", folder_.finalPath(KERNEL_LIST));
  if (!settings.hasKernelList) {
    // No address is the kernel's then; its samples are in maps that are named after it.
    addNumber("kernelStartAddress", 0);
    addNumber("kernelEndAddress", 0);
  }
  addNumber("maxBackTrace", std::max(settings.maxBackTrace, DEFAULT_BACK_TRACE));
  addNumber("timePrecision", 9);
  json.appendLabel("log", true);
  json.startObject();
  json.appendLabel("adapter", true);
  json.startObject();
  addText("type", "file");
  addText("baseName", folder_.finalPath("tracemill.log"));
  json.end();
  folder_.write("tracemill.conf", text.str() + "\n");
}

}  // namespace prepare
