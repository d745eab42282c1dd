#include "kestrel/log/FileLogAdapter.h"

#include <algorithm>
#include <charconv>
#include <dirent.h>
#include <limits>
#include <new>
#include <string_view>
#include <unistd.h>

#include "kestrel/FileUtils.h"
#include "kestrel/json/JSOM.h"
#include "kestrel/log/LogLevel.h"
#include "kestrel/log/LogStamp.h"

namespace kestrel {

namespace {

// Up to so many numbered files are renamed by trying each number; above, by listing the directory.
constexpr std::uint32_t FEW_FILES = 100;

// The name of a numbered file.
class NumberedName {
 public:
  NumberedName(const std::string& baseName, std::uint32_t number) {
    const int length = snprintf(text_, sizeof text_, "%s.%u", baseName.c_str(), number);
    fits_ = length >= 0 && static_cast<std::size_t>(length) < sizeof text_;
  }
  bool fits() const { return fits_; }
  const char* text() const { return text_; }

 private:
  char text_[256];
  bool fits_;
};

long long _memberOf(const JSOM& config, const char* key, long long def) {
  return JSOM(config)[key].longValue(def);
}

std::string _textMemberOf(const JSOM& config, const char* key, const char* def) {
  return JSOM(config)[key].stringValuePtr(def);
}

template <typename T>
T _clamped(long long value, T least, T most) {
  return static_cast<T>(
      std::clamp(value, static_cast<long long>(least), static_cast<long long>(most)));
}

// The number at the end of a name "<prefix><number>"; 0 if it is no such name. Leading zeros do no
// harm: the number then names another file, which is moved anyway or does not exist.
std::uint32_t _numberOf(std::string_view name, std::string_view prefix) {
  if (name.size() <= prefix.size() || name.substr(0, prefix.size()) != prefix) {
    return 0;
  }
  const std::string_view digits = name.substr(prefix.size());
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(digits.begin(), digits.end(), number);
  return error == std::errc() && end == digits.end() ? number : 0;
}

}  // namespace

FileLogAdapter::FileLogAdapter(const JSOM& config)
    : maxSize_(_clamped(_memberOf(config, "maxSize", 0), std::numeric_limits<std::int32_t>::min(),
                        std::numeric_limits<std::int32_t>::max())),
      fileCount_(_clamped(_memberOf(config, "fileCount", 1), std::uint32_t{1},
                          std::numeric_limits<std::uint32_t>::max())),
      baseName_(_textMemberOf(config, "baseName", "log")) {}

FileLogAdapter::~FileLogAdapter() {
  const ScopedLock guard(lock_);
  _closeFile();
}

void FileLogAdapter::log(const LogLevel& level, std::string& loggerName, const char* message,
                         bool buffering) {
  const ScopedLock guard(lock_);
  if (!_hasRoom() && !_openFile()) {
    return;
  }
  const LogStamp stamp = LogStamp::now();
  fprintf(file_, "%s.%03ld [%s]: %s %s\n", stamp.text, stamp.milliseconds, loggerName.c_str(),
          level.getName().c_str(), message);
  if (!buffering) {
    fflush(file_);
  }
}

void FileLogAdapter::log(const LogLevel& level, std::string& loggerName, const std::string& message,
                         bool buffering) {
  log(level, loggerName, message.c_str(), buffering);
}

void FileLogAdapter::flush() {
  const ScopedLock guard(lock_);
  if (file_ != nullptr) {
    fflush(file_);
  }
}

// A file is open, and the next line goes into it.
bool FileLogAdapter::_hasRoom() {
  return file_ != nullptr && (maxSize_ == 0 || maxSize_ > ftello(file_));
}

bool FileLogAdapter::_openFile() {
  _closeFile();
  try {
    if (_rotate()) {
      file_ = fopen(baseName_.c_str(), "we");
      if (file_ == nullptr) {
        FileUtils::mkpath(baseName_, false);
        file_ = fopen(baseName_.c_str(), "we");
      }
    }
  } catch (const std::bad_alloc&) {
    // The line is lost, but not whoever logs it: destructors do, and threads of a group.
  }
  if (file_ == nullptr) {
    fprintf(stderr, "FileLogAdapter: Cannot create log file %s\n", baseName_.c_str());
  }
  return file_ != nullptr;
}

void FileLogAdapter::_closeFile() {
  if (file_ != nullptr) {
    fclose(file_);
    file_ = nullptr;
  }
}

// Moves every file one number up; the last one is deleted. False if the names are too long to be
// built: then nothing has been moved. A file that cannot be moved stays.
bool FileLogAdapter::_rotate() {
  if (fileCount_ <= 1) {
    return true;
  }
  const NumberedName last(baseName_, fileCount_ - 1);  // the longest name
  if (!last.fits()) {
    return false;
  }
  unlink(last.text());
  for (const std::uint32_t number : _numbersToMove()) {
    rename(NumberedName(baseName_, number).text(), NumberedName(baseName_, number + 1).text());
  }
  rename(baseName_.c_str(), NumberedName(baseName_, 1).text());
  return true;
}

// From the highest to the lowest, all numbers of files that may exist and are not the last.
std::vector<std::uint32_t> FileLogAdapter::_numbersToMove() const {
  const std::uint32_t highest = fileCount_ - 2;
  std::vector<std::uint32_t> numbers;
  const std::size_t slash = baseName_.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : baseName_.substr(0, slash + 1);
  DIR* const listing = highest > FEW_FILES ? opendir(directory.c_str()) : nullptr;
  if (listing == nullptr) {  // few files, or a directory that can be searched but not listed
    for (std::uint32_t number = std::min(highest, FEW_FILES); number > 0; --number) {
      numbers.push_back(number);
    }
    return numbers;
  }
  const std::string prefix =
      (slash == std::string::npos ? baseName_ : baseName_.substr(slash + 1)) + ".";
  while (const dirent* entry = readdir(listing)) {
    const std::uint32_t number = _numberOf(entry->d_name, prefix);
    if (number > 0 && number <= highest) {
      numbers.push_back(number);
    }
  }
  closedir(listing);
  std::sort(numbers.rbegin(), numbers.rend());
  return numbers;
}

LogAdapter* FileLogAdapterFactory::createLogAdapter(const JSOM& config) {
  return new FileLogAdapter(config);
}

}  // namespace kestrel
