#include "tests/fuzz/FreshProcess.h"

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "kestrel/log/LogAdapter.h"
#include "kestrel/log/LogLevel.h"
#include "kestrel/log/Logger.h"
#include "tests/support/FreshStores.h"
#include "tests/support/TestAccess.h"

using kestrel::Logger;
using kestrel::LogLevel;
using kestrel::Singleton;

namespace {

class DroppingLogAdapter : public kestrel::LogAdapter {
 public:
  void log(const LogLevel&, std::string&, const char*, bool) override {}
  void log(const LogLevel&, std::string&, const std::string&, bool) override {}
  void flush() override {}
};

// So that the arguments of debug and trace lines are formatted, too.
class EverythingEnabler : public Logger::LoggerVisitor {
 public:
  void visit(Logger* logger) override { logger->setLevel(*LogLevel::LVL_ALL); }
};

}  // namespace

void startAfreshForTest() {
  makeStoresAnew();

  kestrel::TestAccess::resetLogging();
  Logger::setLogAdapter(new DroppingLogAdapter());
  Logger::setDefaultLogLevel(*LogLevel::LVL_ALL);
  EverythingEnabler enabler;
  Logger::visitLoggers(enabler);
}
