// Names as perf shows them.
#include <string>

#include <gtest/gtest.h>

#include "listing/Demangler.h"

namespace listing {
namespace {

struct Case {
  const char* symbol;
  const char* shown;
};

void expectAll(const Case* begin, const Case* end) {
  Demangler names(Demangler::Style::Names);
  Demangler whole(Demangler::Style::WithParameters);
  Demangler off(Demangler::Style::Off);
  for (const Case* one = begin; one != end; ++one) {
    EXPECT_EQ(names.demangle(one->symbol), one->shown);
    EXPECT_EQ(whole.demangle(one->symbol), one->shown);
    EXPECT_EQ(off.demangle(one->symbol), one->symbol);
  }
}

// libiberty/testsuite/rust-demangle-expected: without the hash at the end, as rustc's users know
// them.
TEST(DemanglerTest, RustOfTheFirstMangling) {
  static constexpr Case CASES[] = {
      {"_ZN4main4main17he714a2e23ed7db23E", "main::main"},
      {"_ZN10parse_tsan4main17hdbbfdf1c6a7e27d9E", "parse_tsan::main"},
      {"_ZN65_$LT$std..env..Args$u20$as$u20$core..iter..iterator..Iterator$GT$4next17h420a7c8d0c7eef40E",
       "<std::env::Args as core::iter::iterator::Iterator>::next"},
      {"_ZN71_$LT$Test$u20$$u2b$$u20$$u27$static$u20$as$u20$foo..Bar$LT$Test$GT$$GT$3bar17h930b740aa94f1d3aE",
       "<Test + 'static as foo::Bar<Test>>::bar"},
  };
  expectAll(std::begin(CASES), std::end(CASES));
}

// The same file, and rust-lang's RFC 2603.
TEST(DemanglerTest, RustOfTheSecondMangling) {
  static constexpr Case CASES[] = {
      {"_RNvC6_123foo3bar", "123foo::bar"},
      {"_RINbNbCskIICzLVDPPb_5alloc5alloc8box_freeDINbNiB4_5boxed5FnBoxuEp6OutputuEL_ECs1iopQbuBiw2_3std",
       "alloc::alloc::box_free::<dyn alloc::boxed::FnBox<(), Output = ()>>"},
  };
  expectAll(std::begin(CASES), std::end(CASES));
}

// tools/perf/tests/demangle-ocaml-test.c
TEST(DemanglerTest, Ocaml) {
  static constexpr Case CASES[] = {
      {"camlStdlib__array__map_154", "Stdlib.array.map_154"},
      {"camlStdlib__anon_fn$5bstdlib$2eml$3a334$2c0$2d$2d54$5d_1453",
       "Stdlib.anon_fn[stdlib.ml:334,0--54]_1453"},
      {"camlStdlib__bytes__$2b$2b_2205", "Stdlib.bytes.++_2205"},
  };
  expectAll(std::begin(CASES), std::end(CASES));
}

TEST(DemanglerTest, WhatIsNotMangledStays) {
  static constexpr Case CASES[] = {{"main", "main"},   {"", ""},     {"_Z", "_Z"},
                                   {"camlx", "camlx"}, {"_R", "_R"}, {"$x", "$x"}};
  expectAll(std::begin(CASES), std::end(CASES));
}

}  // namespace
}  // namespace listing
