#include "tests/fuzz/PerfFileChoices.h"

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"

namespace {

constexpr std::size_t CHOICE_OFFSET = 7;
constexpr unsigned char NO_CHOICE = '2';

}  // namespace

unsigned char choicesIn(const uint8_t* data, std::size_t size) {
  return static_cast<unsigned char>(size > CHOICE_OFFSET ? data[CHOICE_OFFSET] ^ NO_CHOICE : 0);
}

void chooseSettings(unsigned char choices) {
  PerfSettings& settings = *kestrel::Singleton<PerfSettings>::Instance();
  settings.onTargetMode = false;
  settings.freezeSymbolCache = true;
  settings.symbolCacheDir = "/dev/null/none";
  settings.symbolFileSeachPath = "/dev/null/none";
  if ((choices & NO_BACK_TRACE) != 0) {
    settings.maxBackTrace = 0;
  } else if ((choices & WHOLE_BACK_TRACE) != 0) {
    settings.maxBackTrace = UINT32_MAX;
  }
}

kestrel::TimeConverter chooseTimes(unsigned char choices) {
  const bool hasWindow = (choices & WINDOW) != 0;
  const double skew = (choices & NEGATIVE_SKEW) != 0 ? -1.5 : 1.0;
  kestrel::TimeConverter times;
  times.setup(hasWindow ? 1.0 : 0.0, hasWindow ? 2.0 : 0.0, skew, 0.0, 0.0);
  return times;
}
