// Names as programmers wrote them: C++ (Itanium ABI), Rust (both manglings), D and OCaml. What perf
// shows of the same symbol: it asks libiberty in the same way. Where libiberty was not there to
// build with, the C++ library demangles: C++ only, always with parameters. One thread. Keeps every
// name that it made, so asking again is cheap; the views it hands out live as long as it does.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

namespace listing {

class Demangler {
 public:
  enum class Style {
    Off,            // names as they stand in the file
    Names,          // `perf script`: without the parameters of functions
    WithParameters  // `perf script -v`, `nm -C`
  };
  explicit Demangler(Style style) : style_(style) {}

  // The name itself if it is not mangled. A name that is kept has to live as long as this object.
  std::string_view demangle(std::string_view name);

  // Forgets all names, and with them all views.
  void clear() { names_.clear(); }

 private:
  Style style_;
  std::unordered_map<std::string_view, std::string> names_;
};

}  // namespace listing
