#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "kestrel/json/JSOM.h"
#include "tests/kestrel/json/JsonTexts.h"
#include "tests/support/OrdinaryUser.h"
#include "tests/support/StreamCapture.h"
#include "tests/support/TempDir.h"

using kestrel::JSOM;

// With the address sanitizer, a request for too much memory must fail as it does without.
extern "C" const char* __asan_default_options();  // NOLINT(bugprone-reserved-identifier): its name
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

TEST(JSOMText, TextsAreAppended) {
  JSOM handle;
  ASSERT_FALSE(handle.fromString(R"({"a":[0.123456]})").isError());
  std::string out = "x";
  handle.toCompactString(out, 2);
  EXPECT_EQ(out, R"(x{"a":[0.12]})");
  handle.toString(out, 3);
  EXPECT_EQ(out, "x{\"a\":[0.12]}{\n \"a\": [\n  0.123\n ]\n}");
}

TEST(JSOMText, HandlesThatAreNotBoundAppendNothing) {
  std::string out = "x";
  JSOM().toString(out, 2);
  JSOM::JERROR.toCompactString(out, 2);
  EXPECT_EQ(out, "x");
}

TEST(JSOMText, FromStringReturnsTheHandleOrTheNullReference) {
  JSOM handle;
  EXPECT_EQ(&handle, &handle.fromString("1 and more"));
  EXPECT_EQ(&handle, &handle.fromString(std::string("[2]")));
  EXPECT_EQ(compact(handle), "[2]");
  StderrCapture errors;
  EXPECT_EQ(&JSOM::JERROR, &handle.fromString("[3,"));
  EXPECT_EQ(errors.stop(), "JSONData::setFromJsonString(): syntax error: array not closed\n");
  EXPECT_EQ(compact(handle), "[2,3]");
}

TEST(JSOMText, FromStringOfANullTextFails) {
  JSOM handle;
  EXPECT_EQ(&JSOM::JERROR, &handle.fromString(static_cast<const char*>(nullptr)));
  EXPECT_EQ(compact(handle), "");
}

TEST(JSOMText, FromStringOfAPendingHandleCreatesTheMember) {
  JSOM root;
  EXPECT_FALSE(root["a"]["b"].fromString("[1]").isError());
  EXPECT_EQ(compact(root), R"({"a":{"b":[1]}})");
}

TEST(JSOMText, FromStringOfTheHandlesOwnText) {
  JSOM handle;
  handle.setString(R"(["a text that is too long for a short buffer"])");
  EXPECT_FALSE(handle.fromString(handle.stringValue(JSOM::EMPTY_STRING)).isError());
  EXPECT_EQ(compact(handle), R"(["a text that is too long for a short buffer"])");
}

TEST(JSOMText, Streams) {
  JSOM handle;
  std::istringstream in(R"({"a":0.12345678})");
  EXPECT_EQ(&handle, &handle.fromStream(in));
  std::ostringstream out;
  handle.toStream(out);
  EXPECT_EQ(out.str(), R"({"a":0.123457})");
  JSOM().toStream(out);
  EXPECT_EQ(out.str(), R"({"a":0.123457})");
  std::istringstream wrong("{x");
  std::istringstream right("1");
  StderrCapture errors;
  EXPECT_EQ(&JSOM::JERROR, &handle.fromStream(wrong));
  EXPECT_TRUE(JSOM::JERROR.fromStream(right).isError());
  EXPECT_EQ(errors.stop(),
            "JSONData::setFromStream(): syntax error: object not closed\n"
            "JSOM::fromStream(): null reference error\n");
}

TEST(JSOMText, FileIsRead) {
  TempDir dir;
  const std::string path = dir.write("a.json", "// comment\r\n{\"a\":1}\n");
  JSOM handle;
  EXPECT_EQ(&handle, &handle.fromFile(path.c_str()));
  EXPECT_EQ(compact(handle), R"({"a":1})");
}

TEST(JSOMText, MissingFileCannotBeOpened) {
  TempDir dir;
  const std::string path = dir.file("missing");
  JSOM handle;
  StderrCapture errors;
  EXPECT_EQ(&JSOM::JERROR, &handle.fromFile(path.c_str()));
  EXPECT_TRUE(handle.fromFile(nullptr).isError());
  EXPECT_EQ(errors.stop(), "JSOM::fromFile(): could not open file '" + path +
                               "'\n"
                               "JSOM::fromFile(): could not open file ''\n");
  EXPECT_EQ(compact(handle), "");
}

TEST(JSOMText, DirectoryCannotBeOpened) {
  TempDir dir;
  JSOM handle;
  StderrCapture errors;
  EXPECT_TRUE(handle.fromFile(dir.path().c_str()).isError());
  EXPECT_EQ(errors.stop(), "JSOM::fromFile(): could not open file '" + dir.path() + "'\n");
}

TEST(JSOMText, UnreadableFileCannotBeOpened) {
  TempDir dir;
  const std::string path = dir.write("a.json", "{}");
  ASSERT_EQ(chmod(path.c_str(), 0), 0);
  ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
  JSOM handle;
  StderrCapture errors;
  const OrdinaryUser user;
  EXPECT_TRUE(handle.fromFile(path.c_str()).isError());
  EXPECT_EQ(errors.stop(), "JSOM::fromFile(): could not open file '" + path + "'\n");
}

TEST(JSOMText, EmptyFileFailsSilently) {
  TempDir dir;
  const std::string path = dir.write("a.json", "");
  JSOM handle;
  StderrCapture errors;
  EXPECT_TRUE(handle.fromFile(path.c_str()).isError());
  EXPECT_EQ(errors.stop(), "");
}

TEST(JSOMText, FileCutInHalfFailsInTheParser) {
  TempDir dir;
  const std::string path = dir.write("a.json", R"({"log":{"level":"INFO")");
  JSOM handle;
  StderrCapture errors;
  EXPECT_TRUE(handle.fromFile(path.c_str()).isError());
  EXPECT_EQ(errors.stop(),
            "JSONData::setFromJsonString(): syntax error: object comma or end expected\n");
}

TEST(JSOMText, BinaryFileFailsInTheParser) {
  TempDir dir;
  const std::string path = dir.write("a.json", std::string("\x7f"
                                                           "ELF\0\1",
                                                           6));
  JSOM handle;
  StderrCapture errors;
  EXPECT_TRUE(handle.fromFile(path.c_str()).isError());
  EXPECT_EQ(errors.stop(), "JSONData::setFromJsonString(): syntax error: missing value\n");
}

TEST(JSOMText, FileEndsAtItsFirstZeroByte) {
  TempDir dir;
  const std::string whole = dir.write("whole.json", std::string("[1]\0{", 5));
  const std::string cut = dir.write("cut.json", std::string("[1,\0"
                                                            "2]",
                                                            6));
  JSOM handle;
  EXPECT_FALSE(handle.fromFile(whole.c_str()).isError());
  EXPECT_EQ(compact(handle), "[1]");
  StderrCapture errors;
  EXPECT_TRUE(handle.fromFile(cut.c_str()).isError());
  EXPECT_EQ(errors.stop(), "JSONData::setFromJsonString(): syntax error: array not closed\n");
}

TEST(JSOMText, HundredMegabytesOfNestingFailQuickly) {
  TempDir dir;
  const std::string path = dir.write("a.json", std::string(100000000, '['));
  JSOM handle;
  StderrCapture errors;
  EXPECT_TRUE(handle.fromFile(path.c_str()).isError());
  EXPECT_EQ(errors.stop(), "JSONData::setFromJsonString(): syntax error: nested too deeply\n");
}

TEST(JSOMText, FileTooLargeForMemoryIsNotRead) {
  TempDir dir;
  const std::string path = dir.write("a.json", "[");
  if (truncate(path.c_str(), off_t{1} << 43) != 0) {
    GTEST_SKIP() << "no such file can be made here";
  }
  JSOM handle;
  StderrCapture errors;
  EXPECT_TRUE(handle.fromFile(path.c_str()).isError());
  const std::string text = errors.stop();
  EXPECT_NE(std::string::npos, text.find("JSOM::fromFile(): could not allocate memory\n")) << text;
}

TEST(JSOMText, FileWithoutAnEndCannotBeRead) {
  TempDir dir;
  const std::string path = dir.file("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  std::FILE* const keepsItOpen = std::fopen(path.c_str(), "r+");
  ASSERT_NE(keepsItOpen, nullptr);
  JSOM handle;
  StderrCapture errors;
  EXPECT_TRUE(handle.fromFile(path.c_str()).isError());
  EXPECT_EQ(errors.stop(), "JSOM::fromFile(): could not read file\n");
  std::fclose(keepsItOpen);
}

TEST(JSOMText, FilesAreWrittenWithoutAFinalLineFeed) {
  TempDir dir;
  JSOM handle;
  ASSERT_FALSE(handle.fromString(R"({"a":[0.123456]})").isError());
  EXPECT_TRUE(handle.toFile(dir.file("pretty").c_str(), 3));
  EXPECT_EQ(dir.read("pretty"), "{\n \"a\": [\n  0.123\n ]\n}");
  EXPECT_TRUE(handle.toCompactFile(dir.file("compact").c_str(), 2));
  EXPECT_EQ(dir.read("compact"), R"({"a":[0.12]})");
  EXPECT_TRUE(handle.toCompactFile(dir.file("pretty").c_str(), 2));  // over an older file
  EXPECT_EQ(dir.read("pretty"), R"({"a":[0.12]})");
}

TEST(JSOMText, UnboundHandleWritesAnEmptyFile) {
  TempDir dir;
  EXPECT_TRUE(JSOM().toFile(dir.file("a").c_str(), 3));
  EXPECT_TRUE(dir.has("a"));
  EXPECT_EQ(dir.read("a"), "");
}

TEST(JSOMText, FileThatCannotBeOpenedIsReported) {
  TempDir dir;
  JSOM handle;
  ASSERT_FALSE(handle.fromString("1").isError());
  StderrCapture errors;
  EXPECT_FALSE(handle.toFile(dir.file("no/such/folder").c_str(), 3));
  EXPECT_FALSE(handle.toCompactFile(dir.path().c_str(), 3));
  EXPECT_FALSE(handle.toFile(nullptr, 3));
  EXPECT_EQ(errors.stop(),
            "JSOM::toFile(): could not write file\n"
            "JSOM::toCompactFile(): could not write file\n"
            "JSOM::toFile(): could not write file\n");
}

TEST(JSOMText, FullDiskIsReported) {
  if (access("/dev/full", W_OK) != 0) {
    GTEST_SKIP() << "no device that is always full";
  }
  JSOM handle;
  ASSERT_FALSE(handle.fromString("1").isError());  // stays in the buffer until the file is closed
  StderrCapture errors;
  EXPECT_FALSE(handle.toFile("/dev/full", 3));
  handle.setString(std::string(100000, 'x'));
  EXPECT_FALSE(handle.toCompactFile("/dev/full", 3));
  EXPECT_EQ(errors.stop(),
            "JSOM::toFile(): could not write file\n"
            "JSOM::toCompactFile(): could not write file\n");
}

TEST(JSOMText, WhatIsWrittenCanBeReadAgain) {
  TempDir dir;
  JSOM handle;
  handle["a"][0]["b"].setString("line\nfeed \\ \"quoted\"");
  handle["a"][-1].setDouble(0.5);
  ASSERT_TRUE(handle.toFile(dir.file("a").c_str(), 6));
  JSOM again;
  ASSERT_FALSE(again.fromFile(dir.file("a").c_str()).isError());
  EXPECT_EQ(compact(handle), compact(again));
}
