#include "kestrel/log/LogAdapterStore.h"

namespace kestrel {

LogAdapterStore* LogAdapterStore::Instance() {
  static LogAdapterStore* const instance = new LogAdapterStore();
  return instance;
}

void LogAdapterStore::addFactory(const std::string& name, LogAdapterFactory* factory) {
  factories_.put(name, factory);
}

LogAdapter* LogAdapterStore::createLogAdapter(const std::string& type, const JSOM& config) {
  LogAdapterFactory* const factory = factories_.get(type);
  return factory == nullptr ? nullptr : factory->createLogAdapter(config);
}

}  // namespace kestrel
