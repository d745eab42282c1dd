#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "kestrel/OutputFile.h"
#include "tests/support/TempDir.h"

namespace {

constexpr std::size_t BUFFER = 128 * 1024;
const char* const FULL_DEVICE = "/dev/full";

std::string pattern(std::size_t bytes) {
  std::string text(bytes, 0);
  for (std::size_t i = 0; i < bytes; ++i) {
    text[i] = static_cast<char>(i * 31 + i / 256);
  }
  return text;
}

std::uintmax_t sizeOf(const std::string& path) { return std::filesystem::file_size(path); }

}  // namespace

TEST(OutputFileTest, IsClosedAtFirst) {
  const kestrel::OutputFile file;
  EXPECT_FALSE(file.is_open());
}

TEST(OutputFileTest, ReplacesWhatIsThere) {
  const TempDir folder;
  const std::string path = folder.write("text", "something long");
  kestrel::OutputFile file;
  file.open(path, false);
  file << "new";
  file.close();
  EXPECT_TRUE(file.good());
  EXPECT_EQ(folder.read("text"), "new");
}

TEST(OutputFileTest, AppendsToWhatIsThere) {
  const TempDir folder;
  const std::string path = folder.write("text", "old,");
  kestrel::OutputFile file;
  file.open(path, true);
  file << "new";
  file.close();
  EXPECT_EQ(folder.read("text"), "old,new");
}

TEST(OutputFileTest, AppendingMakesTheFile) {
  const TempDir folder;
  kestrel::OutputFile file;
  file.open(folder.file("text"), true);
  EXPECT_TRUE(file.is_open());
  file.put('x');
  file.close();
  EXPECT_EQ(folder.read("text"), "x");
}

TEST(OutputFileTest, CannotOpenAFolder) {
  const TempDir folder;
  kestrel::OutputFile file;
  file.open(folder.path(), false);
  EXPECT_FALSE(file.is_open());
  EXPECT_TRUE(file.fail());
}

TEST(OutputFileTest, OpensAgainAfterAFailure) {
  const TempDir folder;
  kestrel::OutputFile file;
  file.open(folder.file("missing/text"), false);
  EXPECT_TRUE(file.fail());
  file.open(folder.file("text"), false);
  EXPECT_TRUE(file.good());
  file << "a";
  file.close();
  file.open(folder.file("text"), true);
  file << "b";
  file.close();
  EXPECT_TRUE(file.good());
  EXPECT_EQ(folder.read("text"), "ab");
}

TEST(OutputFileTest, WritesOfSizesAroundTheBuffersAreWhole) {
  const TempDir folder;
  for (const std::size_t before :
       {std::size_t{0}, std::size_t{1}, BUFFER - 2, BUFFER - 1, BUFFER}) {
    for (const std::size_t size :
         {std::size_t{1}, std::size_t{2}, BUFFER - 1, BUFFER, BUFFER + 1, 5 * BUFFER}) {
      const std::string one = pattern(before);
      const std::string two = pattern(size);
      kestrel::OutputFile file;
      file.open(folder.file("text"), false);
      file.write(one.data(), static_cast<std::streamsize>(one.size()));
      file.write(two.data(), static_cast<std::streamsize>(two.size()));
      file.put('.');
      file.close();
      EXPECT_TRUE(file.good());
      EXPECT_TRUE(folder.read("text") == one + two + ".") << before << " " << size;
    }
  }
}

TEST(OutputFileTest, ManySmallWritesAreWhole) {
  const TempDir folder;
  std::string expected;
  kestrel::OutputFile file;
  file.open(folder.file("text"), false);
  for (std::size_t i = 0; expected.size() < 4 * BUFFER; ++i) {
    const std::string text = pattern(i % 97);
    if (i % 3 == 0) {
      file << text << 'x' << i;
    } else {
      file.write(text.data(), static_cast<std::streamsize>(text.size()));
      file.put('x');
      file << i;
    }
    expected += text + "x" + std::to_string(i);
  }
  file.close();
  EXPECT_TRUE(folder.read("text") == expected);
}

TEST(OutputFileTest, OneHugeWriteIsWhole) {
  const TempDir folder;
  const std::string text = pattern(40 * BUFFER + 12345);
  kestrel::OutputFile file;
  file.open(folder.file("text"), false);
  file.put('<');
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  file.put('>');
  file.close();
  EXPECT_TRUE(file.good());
  EXPECT_TRUE(folder.read("text") == "<" + text + ">");
}

TEST(OutputFileTest, NoBytesAreNoWrite) {
  const TempDir folder;
  kestrel::OutputFile file;
  file.open(folder.file("text"), false);
  file.write("abc", 0);
  EXPECT_TRUE(file.good());
  file << ""
       << "x";
  file.write("abc", 0);
  file.close();
  EXPECT_TRUE(file.good());
  EXPECT_EQ(folder.read("text"), "x");
}

// The last byte of a block waits for the next one, in a write of its own or at the end of another.
TEST(OutputFileTest, HandsOverWholeBlocksAtTheirOffsets) {
  const TempDir folder;
  for (const std::size_t piece :
       {std::size_t{1}, std::size_t{1000}, BUFFER - 1, BUFFER, 3 * BUFFER}) {
    SCOPED_TRACE(piece);
    kestrel::OutputFile file;
    file.open(folder.file("text"), false);
    const std::string text = pattern(piece);
    std::size_t given = 0;
    while (given < 3 * BUFFER + 5) {
      file.write(text.data(), static_cast<std::streamsize>(text.size()));
      given += piece;
      ASSERT_EQ(sizeOf(folder.file("text")), given / BUFFER * BUFFER) << given;
    }
    file.close();
    EXPECT_EQ(sizeOf(folder.file("text")), given);
  }
}

TEST(OutputFileTest, FlushInBetweenKeepsTheOrder) {
  const TempDir folder;
  for (const std::size_t before : {std::size_t{1}, BUFFER - 1, BUFFER, BUFFER + 1}) {
    for (const std::size_t behind : {std::size_t{1}, BUFFER - 1, BUFFER, BUFFER + 1, 2 * BUFFER}) {
      const std::string text = pattern(before + behind);
      kestrel::OutputFile file;
      file.open(folder.file("text"), false);
      file.write(text.data(), static_cast<std::streamsize>(before));
      file.flush();
      EXPECT_TRUE(folder.read("text") == text.substr(0, before));
      file.write(text.data() + before, static_cast<std::streamsize>(behind));
      file.flush();
      file.flush();
      EXPECT_TRUE(folder.read("text") == text);
      file.put('.');
      file.close();
      EXPECT_TRUE(file.good());
      EXPECT_TRUE(folder.read("text") == text + ".") << before << " " << behind;
    }
  }
}

TEST(OutputFileTest, AppendsMoreThanABlock) {
  const TempDir folder;
  const std::string text = pattern(2 * BUFFER + 7);
  const std::string path = folder.write("text", "old,");
  for (int i = 0; i < 2; ++i) {
    kestrel::OutputFile file;
    file.open(path, true);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.close();
    EXPECT_TRUE(file.good());
  }
  EXPECT_TRUE(folder.read("text") == "old," + text + text);
}

TEST(OutputFileTest, FlushHandsOverWhatIsBuffered) {
  const TempDir folder;
  kestrel::OutputFile file;
  file.open(folder.file("text"), false);
  file << "abc";
  EXPECT_EQ(folder.read("text"), "");
  file.flush();
  EXPECT_EQ(folder.read("text"), "abc");
}

TEST(OutputFileTest, DestructionHandsOverWhatIsBuffered) {
  const TempDir folder;
  {
    kestrel::OutputFile file;
    file.open(folder.file("text"), false);
    file << "abc";
  }
  EXPECT_EQ(folder.read("text"), "abc");
}

TEST(OutputFileTest, FullDeviceFailsTheFlush) {
  kestrel::OutputFile file;
  file.open(FULL_DEVICE, false);
  ASSERT_TRUE(file.is_open());
  file << "abc";
  EXPECT_TRUE(file.good());
  file.flush();
  EXPECT_TRUE(file.fail());
}

TEST(OutputFileTest, FullDeviceFailsTheClose) {
  kestrel::OutputFile file;
  file.open(FULL_DEVICE, false);
  file << "abc";
  file.close();
  EXPECT_TRUE(file.fail());
}

TEST(OutputFileTest, FullDeviceFailsAWriteThatDoesNotFitTheBuffer) {
  kestrel::OutputFile file;
  file.open(FULL_DEVICE, false);
  const std::string text = pattern(3 * BUFFER);
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  EXPECT_TRUE(file.bad());
}

TEST(OutputFileTest, FullDeviceFailsAtExactlyOneBlock) {
  const std::string text = pattern(BUFFER);
  for (const bool isInOnePiece : {true, false}) {
    kestrel::OutputFile file;
    file.open(FULL_DEVICE, false);
    file.write(text.data(), static_cast<std::streamsize>(BUFFER - 1));
    EXPECT_TRUE(file.good());
    file.put('x');
    EXPECT_TRUE(file.bad());
    file.close();
    EXPECT_TRUE(file.fail());

    kestrel::OutputFile other;
    other.open(FULL_DEVICE, false);
    if (isInOnePiece) {
      other.write(text.data(), static_cast<std::streamsize>(BUFFER));
    } else {
      for (const char byte : text) {
        other.put(byte);
      }
    }
    EXPECT_TRUE(other.bad());
  }
}

TEST(OutputFileTest, AfterAFailureNothingMoreIsTaken) {
  kestrel::OutputFile file;
  file.open(FULL_DEVICE, false);
  const std::string text = pattern(2 * BUFFER);
  for (int i = 0; i < 5; ++i) {
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file << "some more";
    file.put('x');
    file.flush();
    EXPECT_TRUE(file.bad());
  }
  file.close();
  EXPECT_TRUE(file.fail());
}

TEST(OutputFileTest, WritesToWhatIsNotOpenFail) {
  const std::string text = pattern(BUFFER);
  kestrel::OutputFile file;
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  EXPECT_TRUE(file.bad());
  kestrel::OutputFile other;
  other << "x";
  EXPECT_TRUE(other.bad());
}

TEST(OutputFileTest, ClosingWhatIsNotOpenFails) {
  kestrel::OutputFile file;
  file.close();
  EXPECT_TRUE(file.fail());
}
