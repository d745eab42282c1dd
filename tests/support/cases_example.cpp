// Cases that end in every way, for cases_test.py.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

int runs = 0;

void expectFirstRun() { EXPECT_EQ(++runs, 1) << "another case ran in this process"; }

}  // namespace

TEST(CasesExample, Passes) { expectFirstRun(); }
TEST(CasesExample, PassesInAProcessOfItsOwn) { expectFirstRun(); }
TEST(CasesExample, Fails) { FAIL() << "as it is to"; }
TEST(CasesExample, IsKilled) { std::raise(SIGKILL); }
TEST(CasesExample, EndsTheProcess) { std::exit(3); }
TEST(CasesExample, TakesTooLong) {
  alarm(1);  // as if it had taken minutes
  pause();
}
TEST(CasesExample, IsSkipped) { GTEST_SKIP() << "with a reason"; }
TEST(SkippedExample, First) { GTEST_SKIP(); }
TEST(SkippedExample, Second) { GTEST_SKIP(); }
TEST(SingleExample, RunsWhereItIsStarted) { std::printf("pid %d\n", static_cast<int>(getpid())); }
TEST(DISABLED_Example, WouldFail) { FAIL(); }

class NumberedExample : public testing::TestWithParam<int> {};
TEST_P(NumberedExample, IsOdd) { EXPECT_EQ(GetParam() % 2, 1); }
INSTANTIATE_TEST_SUITE_P(Few, NumberedExample, testing::Values(1, 2, 3));
