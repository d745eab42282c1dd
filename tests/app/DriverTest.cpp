// The driver: input, output and the kernel's range.
#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/Driver.h"
#include "tests/app/DriverRun.h"
#include "tests/app/GoldenDocument.h"

namespace {

using testing::ElementsAre;

constexpr const char* BEFORE = "what stood there\n";

std::string failedToLoad(const std::string& size, const std::string& range) {
  return "INFO [main] Failed to load kernel symbols.  size:" + size + " range:" + range +
         " from kernel.syms";
}

std::string loaded(const std::string& size, const std::string& range) {
  return "INFO [main] Loaded kernel symbols.  size:" + size + " range:" + range +
         " from kernel.syms";
}

// What the driver says of the kernel's list with these settings and this list (none: no file).
std::string kernelLine(const std::string& settings, const std::string& list) {
  const DriverRun driver;
  driver.configure(settings);
  if (!list.empty()) {
    driver.folder().write("kernel.syms", list);
  }
  driver.convert();
  const LogTexts log = driver.log();
  EXPECT_EQ(log.size(), 2U);
  return log.empty() ? "" : log.front();
}

// A run over an output file that exists: what it holds afterwards.
std::string rewritten(const std::string& settings, const std::vector<std::string>& words) {
  const DriverRun driver;
  driver.configure("\"inputPerfFile\": \"recording.perf\"" + settings);
  driver.folder().write("document.json", BEFORE);
  std::vector<std::string> all{"-c", "test.conf"};
  all.insert(all.end(), words.begin(), words.end());
  EXPECT_EQ(driver.run(all).status, 0);
  return driver.folder().read("document.json");
}

std::string truncated() { return goldenDocument("simple"); }
std::string appended() { return BEFORE + goldenDocument("simple"); }

using DriverTest = DriverFixture;

}  // namespace

TEST_F(DriverTest, NoInputName) {
  driver_.configure();
  EXPECT_EQ(driver_.run({"-c", "test.conf", "-o", "document.json"}).status, 1);
  EXPECT_THAT(driver_.log(),
              ElementsAre(NO_KERNEL, "ERROR [main] No input file specified, aborting.."));
  EXPECT_FALSE(driver_.folder().has("document.json"));
}

TEST_F(DriverTest, WithoutAdapterTheLinesGoToStandardOutput) {
  driver_.folder().write("test.conf", "{\"kernelSymbolFile\": \"kernel.syms\"}");
  const ProgramResult result = driver_.run({"-c", "test.conf"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(readLog(result.out),
              ElementsAre("INFO [SymbolCache] Skipping..., source file does not exist 'kernel'",
                          NO_KERNEL, "ERROR [main] No input file specified, aborting.."));
}

TEST_F(DriverTest, MissingInputLeavesTheOutputAlone) {
  driver_.configure();
  driver_.folder().write("document.json", BEFORE);
  EXPECT_EQ(driver_.run({"-c", "test.conf", "-i", "nowhere.perf", "-o", "document.json"}).status,
            1);
  EXPECT_THAT(driver_.log(), ElementsAre(NO_KERNEL,
                                         "ERROR [main] Cannot open nowhere.perf for reading, "
                                         "aborting.."));
  EXPECT_EQ(driver_.folder().read("document.json"), BEFORE);
}

TEST_F(DriverTest, EmptyInputName) {
  driver_.configure();
  EXPECT_EQ(driver_.run({"-c", "test.conf", "-i", "", "-o", "document.json"}).status, 1);
  EXPECT_FALSE(driver_.folder().has("document.json"));
}

TEST_F(DriverTest, DirectoryAsInput) {
  driver_.configure();
  std::filesystem::create_directory(driver_.folder().file("folder"));
  EXPECT_EQ(driver_.run({"-c", "test.conf", "-i", "folder", "-o", "document.json"}).status, 1);
  EXPECT_THAT(driver_.log(),
              ElementsAre(NO_KERNEL, "ERROR [main] Cannot open folder for reading, aborting.."));
}

TEST_F(DriverTest, DeviceAsInputIsOfInsufficientSize) {
  driver_.configure();
  EXPECT_EQ(driver_.run({"-c", "test.conf", "-i", "/dev/null", "-o", "document.json"}).status, 0);
  EXPECT_TRUE(matchesGolden("no-rows", driver_.folder().read("document.json")));
}

TEST_F(DriverTest, OutputThatCannotBeOpened) {
  driver_.configure();
  const ProgramResult result =
      driver_.run({"-c", "test.conf", "-i", "recording.perf", "-o", "nowhere/document.json"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(driver_.log(), ElementsAre(NO_KERNEL,
                                         "ERROR [main] Cannot open nowhere/document.json for "
                                         "writing, aborting.."));
}

TEST_F(DriverTest, DirectoryAsOutput) {
  driver_.configure();
  EXPECT_EQ(driver_.run({"-c", "test.conf", "-i", "recording.perf", "-o", "."}).status, 1);
  EXPECT_THAT(driver_.log(),
              ElementsAre(NO_KERNEL, "ERROR [main] Cannot open . for writing, aborting.."));
}

TEST_F(DriverTest, WithoutOutputNameTheDocumentGoesToStandardOutput) {
  driver_.configure();
  const ProgramResult result = driver_.run({"-c", "test.conf", "-i", "recording.perf"});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(matchesGolden("simple", result.out));
  EXPECT_THAT(driver_.log(), ElementsAre(NO_KERNEL, COMPLETED));
}

TEST_F(DriverTest, DocumentAndLogShareStandardOutputInProgramOrder) {
  driver_.folder().write("test.conf",
                         "{\"kernelSymbolFile\": \"kernel.syms\", \"symbolCacheDir\": \"cache\", "
                         "\"log\": {\"categories\": {\"SymbolCache\": \"OFF\"}}}");
  driver_.folder().write("text.perf", std::string(1000, 'x'));
  const ProgramResult result = driver_.run({"-c", "test.conf", "-i", "text.perf"});
  EXPECT_EQ(result.status, 0);
  const std::string document = goldenDocument("no-rows");
  // The object is opened before pass 1 complains, its first table before pass 2 does.
  const std::size_t opened = result.out.find('{');
  ASSERT_NE(opened, std::string::npos);
  EXPECT_THAT(readLog(result.out.substr(0, opened)), ElementsAre(NO_KERNEL));
  const std::size_t samples = result.out.find("\"samples\"");
  EXPECT_THAT(readLog(result.out.substr(opened + 1, samples - opened - 1)),
              ElementsAre("ERROR [PerfRecordFileReader] Invalid header size recorded in perf file "
                          "header.  Perf file corrupt."));
  const std::size_t table = document.find("]},\"libraries\"");
  EXPECT_EQ(result.out.substr(samples, table - 1), document.substr(1, table - 1));
  const std::size_t rest = result.out.find("]},\"libraries\"");
  EXPECT_THAT(readLog(result.out.substr(samples + table - 1, rest - samples - table + 1)),
              ElementsAre("ERROR [PerfRecordFileReader] Invalid header size recorded in perf file "
                          "header.  Perf file corrupt."));
  EXPECT_EQ(result.out.substr(rest, document.size() - table), document.substr(table));
  EXPECT_THAT(readLog(result.out.substr(rest + document.size() - table)), ElementsAre(COMPLETED));
}

TEST_F(DriverTest, InputFromTheConfigurationUnlessGivenOnTheCommandLine) {
  driver_.configure("\"inputPerfFile\": \"recording.perf\"");
  driver_.folder().write("empty.perf", recordingOf(IP_TID_TIME_CPU).bytes());
  EXPECT_TRUE(matchesGolden("simple", driver_.run({"-c", "test.conf"}).out));
  EXPECT_TRUE(matchesGolden("no-rows", driver_.run({"-c", "test.conf", "-i", "empty.perf"}).out));
}

TEST_F(DriverTest, OutputFromTheConfigurationUnlessGivenOnTheCommandLine) {
  driver_.configure("\"inputPerfFile\": \"recording.perf\", \"outputFile\": \"configured.json\"");
  EXPECT_EQ(driver_.run({"-c", "test.conf", "-o", "given.json"}).status, 0);
  EXPECT_FALSE(driver_.folder().has("configured.json"));
  EXPECT_TRUE(matchesGolden("simple", driver_.folder().read("given.json")));
  EXPECT_EQ(driver_.run({"-c", "test.conf"}).out, "");
  EXPECT_TRUE(matchesGolden("simple", driver_.folder().read("configured.json")));
}

TEST_F(DriverTest, AppendOptionCountsWithTheOutputOption) {
  EXPECT_EQ(rewritten("", {"-o", "document.json"}), truncated());
  EXPECT_EQ(rewritten("", {"-o", "document.json", "-a"}), appended());
  EXPECT_EQ(rewritten("", {"-a", "-o", "document.json"}), appended());
}

TEST_F(DriverTest, AppendOutputDoesNotCountWithTheOutputOption) {
  EXPECT_EQ(rewritten(", \"appendOutput\": true", {"-o", "document.json"}), truncated());
  EXPECT_EQ(rewritten(", \"appendOutput\": false", {"-o", "document.json", "-a"}), appended());
}

TEST_F(DriverTest, AppendOutputReplacesTheAppendOptionWithTheConfiguredName) {
  const std::string name = ", \"outputFile\": \"document.json\"";
  EXPECT_EQ(rewritten(name, {}), truncated());
  EXPECT_EQ(rewritten(name, {"-a"}), truncated());
  EXPECT_EQ(rewritten(name + ", \"appendOutput\": false", {"-a"}), truncated());
  EXPECT_EQ(rewritten(name + ", \"appendOutput\": true", {}), appended());
  EXPECT_EQ(rewritten(name + ", \"appendOutput\": \"yes\"", {}), appended());
}

TEST_F(DriverTest, KernelAddressesKeepTheirLow32Bits) {
  EXPECT_EQ(kernelLine("\"kernelStartAddress\": 4294967296", ""), failedToLoad("0", "0-cf000000"));
  EXPECT_EQ(kernelLine("\"kernelStartAddress\": 81985529216486895, \"kernelEndAddress\": -1", ""),
            failedToLoad("0", "89abcdef-ffffffff"));
  EXPECT_EQ(kernelLine("\"kernelStartAddress\": \"4096\", \"kernelEndAddress\": \"many\"", ""),
            failedToLoad("0", "1000-cf000000"));
}

TEST_F(DriverTest, TextReplacesTheKernelRange) {
  EXPECT_EQ(kernelLine("", "c0008000 T _text\nc0008100 T foo\nc0100000 t last\n"),
            loaded("3", "c0008000-c0100001"));
  EXPECT_EQ(kernelLine("", "c0000000 T stext\nc0008000 T _text\nc0008100 T foo\n"),
            loaded("3", "c0008000-c0008101"));
  EXPECT_EQ(kernelLine("", "ffffffff81000000 T _text\nffffffff82000000 T _etext\n"),
            loaded("2", "ffffffff81000000-ffffffff82000001"));
}

TEST_F(DriverTest, StextStandsInForText) {
  EXPECT_EQ(kernelLine("", "c0000000 T before\nc0008000 T stext\nc0100000 t last\n"),
            loaded("3", "c0008000-c0100001"));
}

TEST_F(DriverTest, ListWithoutEitherLeavesTheRange) {
  EXPECT_EQ(kernelLine("", "c0008000 T _stext\nc0100000 t last\n"),
            failedToLoad("2", "bf000000-cf000000"));
  EXPECT_EQ(kernelLine("\"kernelEndAddress\": 3221225472", "c0008000 T _stext\n"),
            failedToLoad("1", "bf000000-c0000000"));
}

TEST_F(DriverTest, RestrictedListLeavesTheRange) {
  EXPECT_EQ(kernelLine("", "0000000000000000 T _text\n0000000000000000 T do_work\n"),
            failedToLoad("0", "bf000000-cf000000"));
}

TEST_F(DriverTest, EmptyListLeavesTheRange) {
  EXPECT_EQ(kernelLine("", "\n"), failedToLoad("0", "bf000000-cf000000"));
}

TEST_F(DriverTest, UnusableKernelListsAreNotFatal) {
  driver_.configure();
  std::filesystem::create_directory(driver_.folder().file("kernel.syms"));
  EXPECT_EQ(driver_.convert().status, 0);
  EXPECT_THAT(driver_.log(), ElementsAre(NO_KERNEL, COMPLETED));
}

TEST_F(DriverTest, TheConfiguredRangeClassifiesAddresses) {
  driver_.configure("\"kernelStartAddress\": 32768, \"kernelEndAddress\": 32800");
  EXPECT_EQ(driver_.convert().status, 0);
  EXPECT_THAT(driver_.folder().read("document.json"),
              testing::HasSubstr("\"data\":[[0,0,\"kernel\",32768,32],"));
}

TEST_F(DriverTest, RunsInProcessToo) {
  driver_.configure("\"inputPerfFile\": \"" + driver_.folder().file("recording.perf") +
                    "\", \"outputFile\": \"" + driver_.folder().file("document.json") + "\"");
  std::filesystem::current_path(driver_.folder().path());
  std::string program = "tracemill";
  std::string option = "-ctest.conf";
  const std::array<char*, 3> argv{program.data(), option.data(), nullptr};
  EXPECT_EQ(Driver().run(2, argv.data()), 0);
  EXPECT_TRUE(matchesGolden("simple", driver_.folder().read("document.json")));
  std::filesystem::current_path("/");
}
