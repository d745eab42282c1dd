#include "kestrel/exec/EnvironmentBuilder.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace kestrel {

namespace {

constexpr std::array<std::string_view, 9> MINIMAL_NAMES = {
    "HOME", "LANG", "LOGNAME", "PATH", "SHELL", "TERM", "TMPDIR", "TZ", "USER"};

bool _isMinimal(std::string_view name) {
  return name.substr(0, 3) == "LC_" ||
         std::find(MINIMAL_NAMES.begin(), MINIMAL_NAMES.end(), name) != MINIMAL_NAMES.end();
}

// Splits "NAME=VALUE" at its first "="; false when there is no name.
bool _split(std::string_view entry, std::string& name, std::string& value) {
  const std::size_t equals = entry.find('=');
  if (equals == std::string_view::npos || equals == 0) {
    return false;
  }
  name = entry.substr(0, equals);
  value = entry.substr(equals + 1);
  return true;
}

}  // namespace

void EnvironmentBuilder::setVariable(const std::string& name, const std::string& value) {
  if (name.empty() || name.find('=') != std::string::npos || name.find('\0') != std::string::npos) {
    return;
  }
  variables_[name] = value.substr(0, value.find('\0'));
}

void EnvironmentBuilder::copyEnv(const char* const* envp) {
  std::map<std::string, std::string> copy;
  std::string name;
  std::string value;
  for (; envp != nullptr && *envp != nullptr; ++envp) {
    if (_split(*envp, name, value)) {
      copy[name] = value;
    }
  }
  variables_ = std::move(copy);
}

void EnvironmentBuilder::appendCurrentEnvironnment() { _append(false); }

void EnvironmentBuilder::appendMinimalEnvironnment() { _append(true); }

std::vector<std::string> EnvironmentBuilder::toStrings() const {
  std::vector<std::string> entries;
  entries.reserve(variables_.size());
  for (const auto& [name, value] : variables_) {
    entries.push_back(name + "=" + value);
  }
  return entries;
}

void EnvironmentBuilder::_append(bool minimalOnly) {
  std::string name;
  std::string value;
  for (const char* const* entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    if (_split(*entry, name, value) && (!minimalOnly || _isMinimal(name))) {
      variables_.emplace(name, value);
    }
  }
}

}  // namespace kestrel
