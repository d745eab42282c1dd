// The shipped recording of the demo, converted as scripts/demo does, with the real symbol lister.
#include <filesystem>
#include <map>
#include <string>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/json/JSOM.h"
#include "tests/app/Conversion.h"
#include "tests/app/ProgramRun.h"
#include "tests/support/TempDir.h"

namespace {

using kestrel::JSOM;
using testing::Contains;
using testing::Key;

class DemoTest : public testing::Test {
 protected:
  // A link under a name without blanks: other names would not reach the lister whole.
  DemoTest() { std::filesystem::create_directory_symlink(DEMO_FOLDER, folder_.file("demo")); }

  ProgramResult convert() const {
    return ProgramRun(folder_.path())
        .arguments({"-c", "demo/demo.conf"})
        .variable("TRACEMILL_DEMO", "demo")
        .variable("TRACEMILL_DEMO_OUTPUT", "output")
        .run();
  }

  // The functions of the document, and how many samples fell into each.
  std::map<std::string, int> sampledFunctions() const {
    JSOM document;
    EXPECT_TRUE(document.fromFile(folder_.file("output/demo.json").c_str()).isObject());
    std::map<long long, std::string> names;
    JSOM functions = document["functions"]["data"];
    for (int i = 0; i < functions.size(); ++i) {
      names[functions[i][0].longValue(-1)] = functions[i][1].stringValue(JSOM::EMPTY_STRING);
    }
    std::map<std::string, int> counts;
    JSOM samples = document["samples"]["data"];
    EXPECT_GT(samples.size(), 1000);
    for (int i = 0; i < samples.size(); ++i) {
      const auto function = names.find(samples[i][2].longValue(-1));
      ++counts[function == names.end() ? "" : function->second];
    }
    return counts;
  }

  const TempDir folder_;
};

}  // namespace

TEST_F(DemoTest, ConvertsWithoutAWordAndNamesTheProgramsFunctions) {
  if (access("/usr/bin/nm", X_OK) != 0) {
    GTEST_SKIP() << "there is no /usr/bin/nm";
  }
  std::filesystem::create_directory(folder_.file("output"));
  const ProgramResult result = convert();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
  const std::map<std::string, int> counts = sampledFunctions();
  for (const char* hot : {"waves::stepRow(waves::Grid const&, waves::Grid&, unsigned long)",
                          "waves::dotProduct(float const*, float const*, unsigned long)",
                          "waves::blurRows(waves::Grid&, unsigned long)",
                          "waves::blurColumns(waves::Grid&, unsigned long)",
                          "ripples::mixHash(unsigned int, ripples::Message const&)"}) {
    ASSERT_THAT(counts, Contains(Key(hot)));
    EXPECT_GT(counts.at(hot), 100) << hot;
  }
  int all = 0;
  for (const auto& [name, count] : counts) {
    all += count;
  }
  EXPECT_LT(counts.contains("") ? counts.at("") : 0, all / 10) << "samples without a function";
}

TEST_F(DemoTest, SecondRunUsesTheCacheAndGivesTheSameDocument) {
  std::filesystem::create_directory(folder_.file("output"));
  EXPECT_EQ(convert().status, 0);
  const std::string first = folder_.read("output/demo.json");
  EXPECT_EQ(convert().status, 0);
  EXPECT_EQ(folder_.read("output/demo.json"), first);
  EXPECT_THAT(readLog(folder_.read("output/tracemill.log")),
              testing::Not(Contains(testing::HasSubstr("Created new"))));
}

TEST_F(DemoTest, DocumentIsIndentedAndHasTheFiveTables) {
  std::filesystem::create_directory(folder_.file("output"));
  EXPECT_EQ(convert().status, 0);
  const std::string document = folder_.read("output/demo.json");
  EXPECT_TRUE(document.starts_with("{\n \"samples\": {\n  \"descriptions\": {\n"));
  EXPECT_TRUE(document.ends_with("\n  ]\n }\n}"));
  for (const char* table : {"libraries", "functions", "processes", "files"}) {
    EXPECT_THAT(document, testing::HasSubstr(std::string("\n },\n \"") + table + "\": {\n"));
  }
}
