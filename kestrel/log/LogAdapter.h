// Takes over the output of every logger. Adapters are made by named factories from the "adapter"
// member of the logging configuration.
#pragma once

#include <string>

namespace kestrel {

class JSOM;
class LogLevel;

class LogAdapter {
 public:
  virtual ~LogAdapter() = default;
  // Writes one line; with `buffering` false it has reached its destination on return. Called from
  // any thread, several at once: an adapter does its own locking.
  virtual void log(const LogLevel& level, std::string& loggerName, const char* message,
                   bool buffering) = 0;
  virtual void log(const LogLevel& level, std::string& loggerName, const std::string& message,
                   bool buffering) = 0;
  virtual void flush() = 0;
};

class LogAdapterFactory {
 public:
  explicit LogAdapterFactory(const std::string& type) : type_(type) {}
  virtual ~LogAdapterFactory() = default;

  // The "type" that names this factory in a configuration.
  const std::string& getType() const { return type_; }
  // A new adapter, owned by the caller. `config` is the "adapter" member.
  virtual LogAdapter* createLogAdapter(const JSOM& config) = 0;

 private:
  const std::string type_;
};

}  // namespace kestrel
