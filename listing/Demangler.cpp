#include "listing/Demangler.h"

#include <cctype>
#include <cstdlib>
#include <cxxabi.h>
#include <memory>

#ifdef TRACEMILL_LIBIBERTY
#include <libiberty/demangle.h>
#endif

namespace listing {

namespace {

// Longer ones are left as they are: what they stand for can be exponentially longer.
constexpr std::size_t MAX_MANGLED = 1 << 15;
constexpr std::size_t MAX_DEMANGLED = 1 << 16;

struct Free {
  void operator()(char* text) const { std::free(text); }
};
using Text = std::unique_ptr<char, Free>;

// Spares most names of C programs the work.
bool _mayBeMangled(std::string_view name) {
  return name.size() > 2 && name[0] == '_' &&
         (name[1] == 'Z' || name[1] == 'R' || name[1] == 'D' || name.starts_with("_GLOBAL_"));
}

Text _demangle(const std::string& name, [[maybe_unused]] bool withParameters) {
#ifdef TRACEMILL_LIBIBERTY
  return Text(
      cplus_demangle(name.c_str(), withParameters ? DMGL_PARAMS | DMGL_ANSI : DMGL_NO_OPTS));
#else
  return Text(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, nullptr));
#endif
}

// OCaml: "caml", a module of a capital letter, "__" where a path has ".", "$xx" for a byte in
// hexadecimal. Source: tools/perf/util/demangle-ocaml.c.
bool _isOcaml(std::string_view name) {
  return name.size() > 5 && name.starts_with("caml") &&
         std::isupper(static_cast<unsigned char>(name[4])) != 0;
}

int _digit(char c) {
  return c >= '0' && c <= '9'   ? c - '0'
         : c >= 'a' && c <= 'f' ? c - 'a' + 10
         : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                : -1;
}

std::string _demangleOcaml(std::string_view name) {
  std::string text;
  for (std::size_t at = 4; at < name.size(); ++at) {
    if (name.substr(at, 2) == "__") {
      text += '.';
      ++at;
    } else if (name[at] == '$' && at + 2 < name.size() && _digit(name[at + 1]) >= 0 &&
               _digit(name[at + 2]) >= 0) {
      text += static_cast<char>(_digit(name[at + 1]) << 4 | _digit(name[at + 2]));
      at += 2;
    } else {
      text += name[at];
    }
  }
  return text;
}

}  // namespace

std::string_view Demangler::demangle(std::string_view name) {
  if (style_ == Style::Off || name.size() > MAX_MANGLED) {
    return name;
  }
  const bool isOcaml = _isOcaml(name);
  if (!isOcaml && !_mayBeMangled(name)) {
    return name;
  }
  const auto [place, isNew] = names_.try_emplace(name);
  if (isNew && isOcaml) {
    place->second = _demangleOcaml(name);
  } else if (isNew) {
    const Text text = _demangle(std::string(name), style_ == Style::WithParameters);
    if (text && std::string_view(text.get()).size() <= MAX_DEMANGLED) {
      place->second = text.get();
    }
  }
  return place->second.empty() ? name : place->second;
}

}  // namespace listing
