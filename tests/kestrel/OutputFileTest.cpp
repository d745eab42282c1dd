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

class OutputFileTest : public testing::Test {
 protected:
  TempDir folder_;
  kestrel::OutputFile file_;
};

std::uintmax_t sizeOf(const std::string& path) { return std::filesystem::file_size(path); }

}  // namespace

TEST_F(OutputFileTest, IsClosedAtFirst) { EXPECT_FALSE(file_.is_open()); }

TEST_F(OutputFileTest, ReplacesWhatIsThere) {
  const std::string path = folder_.write("text", "something long");
  file_.open(path, false);
  file_ << "new";
  file_.close();
  EXPECT_TRUE(file_.good());
  EXPECT_EQ(folder_.read("text"), "new");
}

TEST_F(OutputFileTest, AppendsToWhatIsThere) {
  const std::string path = folder_.write("text", "old,");
  file_.open(path, true);
  file_ << "new";
  file_.close();
  EXPECT_EQ(folder_.read("text"), "old,new");
}

TEST_F(OutputFileTest, AppendingMakesTheFile) {
  file_.open(folder_.file("text"), true);
  EXPECT_TRUE(file_.is_open());
  file_.put('x');
  file_.close();
  EXPECT_EQ(folder_.read("text"), "x");
}

TEST_F(OutputFileTest, CannotOpenAFolder) {
  file_.open(folder_.path(), false);
  EXPECT_FALSE(file_.is_open());
  EXPECT_TRUE(file_.fail());
}

TEST_F(OutputFileTest, OpensAgainAfterAFailure) {
  file_.open(folder_.file("missing/text"), false);
  EXPECT_TRUE(file_.fail());
  file_.open(folder_.file("text"), false);
  EXPECT_TRUE(file_.good());
  file_ << "a";
  file_.close();
  file_.open(folder_.file("text"), true);
  file_ << "b";
  file_.close();
  EXPECT_TRUE(file_.good());
  EXPECT_EQ(folder_.read("text"), "ab");
}

TEST_F(OutputFileTest, WritesOfSizesAroundTheBuffersAreWhole) {
  for (const std::size_t before :
       {std::size_t{0}, std::size_t{1}, BUFFER - 2, BUFFER - 1, BUFFER}) {
    for (const std::size_t size :
         {std::size_t{1}, std::size_t{2}, BUFFER - 1, BUFFER, BUFFER + 1, 5 * BUFFER}) {
      const std::string one = pattern(before);
      const std::string two = pattern(size);
      kestrel::OutputFile file;
      file.open(folder_.file("text"), false);
      file.write(one.data(), static_cast<std::streamsize>(one.size()));
      file.write(two.data(), static_cast<std::streamsize>(two.size()));
      file.put('.');
      file.close();
      EXPECT_TRUE(file.good());
      EXPECT_TRUE(folder_.read("text") == one + two + ".") << before << " " << size;
    }
  }
}

TEST_F(OutputFileTest, ManySmallWritesAreWhole) {
  std::string expected;
  file_.open(folder_.file("text"), false);
  for (std::size_t i = 0; expected.size() < 4 * BUFFER; ++i) {
    const std::string text = pattern(i % 97);
    if (i % 3 == 0) {
      file_ << text << 'x' << i;
    } else {
      file_.write(text.data(), static_cast<std::streamsize>(text.size()));
      file_.put('x');
      file_ << i;
    }
    expected += text + "x" + std::to_string(i);
  }
  file_.close();
  EXPECT_TRUE(folder_.read("text") == expected);
}

TEST_F(OutputFileTest, OneHugeWriteIsWhole) {
  const std::string text = pattern(40 * BUFFER + 12345);
  file_.open(folder_.file("text"), false);
  file_.put('<');
  file_.write(text.data(), static_cast<std::streamsize>(text.size()));
  file_.put('>');
  file_.close();
  EXPECT_TRUE(file_.good());
  EXPECT_TRUE(folder_.read("text") == "<" + text + ">");
}

TEST_F(OutputFileTest, NoBytesAreNoWrite) {
  file_.open(folder_.file("text"), false);
  file_.write("abc", 0);
  EXPECT_TRUE(file_.good());
  file_ << ""
        << "x";
  file_.write("abc", 0);
  file_.close();
  EXPECT_TRUE(file_.good());
  EXPECT_EQ(folder_.read("text"), "x");
}

// The last byte of a block waits for the next one, in a write of its own or at the end of another.
TEST_F(OutputFileTest, HandsOverWholeBlocksAtTheirOffsets) {
  for (const std::size_t piece :
       {std::size_t{1}, std::size_t{1000}, BUFFER - 1, BUFFER, 3 * BUFFER}) {
    SCOPED_TRACE(piece);
    kestrel::OutputFile file;
    file.open(folder_.file("text"), false);
    const std::string text = pattern(piece);
    std::size_t given = 0;
    while (given < 3 * BUFFER + 5) {
      file.write(text.data(), static_cast<std::streamsize>(text.size()));
      given += piece;
      ASSERT_EQ(sizeOf(folder_.file("text")), given / BUFFER * BUFFER) << given;
    }
    file.close();
    EXPECT_EQ(sizeOf(folder_.file("text")), given);
  }
}

TEST_F(OutputFileTest, FlushInBetweenKeepsTheOrder) {
  for (const std::size_t before : {std::size_t{1}, BUFFER - 1, BUFFER, BUFFER + 1}) {
    for (const std::size_t behind : {std::size_t{1}, BUFFER - 1, BUFFER, BUFFER + 1, 2 * BUFFER}) {
      const std::string text = pattern(before + behind);
      kestrel::OutputFile file;
      file.open(folder_.file("text"), false);
      file.write(text.data(), static_cast<std::streamsize>(before));
      file.flush();
      EXPECT_TRUE(folder_.read("text") == text.substr(0, before));
      file.write(text.data() + before, static_cast<std::streamsize>(behind));
      file.flush();
      file.flush();
      EXPECT_TRUE(folder_.read("text") == text);
      file.put('.');
      file.close();
      EXPECT_TRUE(file.good());
      EXPECT_TRUE(folder_.read("text") == text + ".") << before << " " << behind;
    }
  }
}

TEST_F(OutputFileTest, AppendsMoreThanABlock) {
  const std::string text = pattern(2 * BUFFER + 7);
  const std::string path = folder_.write("text", "old,");
  for (int i = 0; i < 2; ++i) {
    kestrel::OutputFile file;
    file.open(path, true);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.close();
    EXPECT_TRUE(file.good());
  }
  EXPECT_TRUE(folder_.read("text") == "old," + text + text);
}

TEST_F(OutputFileTest, FlushHandsOverWhatIsBuffered) {
  file_.open(folder_.file("text"), false);
  file_ << "abc";
  EXPECT_EQ(folder_.read("text"), "");
  file_.flush();
  EXPECT_EQ(folder_.read("text"), "abc");
}

TEST_F(OutputFileTest, DestructionHandsOverWhatIsBuffered) {
  {
    kestrel::OutputFile file;
    file.open(folder_.file("text"), false);
    file << "abc";
  }
  EXPECT_EQ(folder_.read("text"), "abc");
}

TEST_F(OutputFileTest, FullDeviceFailsTheFlush) {
  file_.open(FULL_DEVICE, false);
  ASSERT_TRUE(file_.is_open());
  file_ << "abc";
  EXPECT_TRUE(file_.good());
  file_.flush();
  EXPECT_TRUE(file_.fail());
}

TEST_F(OutputFileTest, FullDeviceFailsTheClose) {
  file_.open(FULL_DEVICE, false);
  file_ << "abc";
  file_.close();
  EXPECT_TRUE(file_.fail());
}

TEST_F(OutputFileTest, FullDeviceFailsAWriteThatDoesNotFitTheBuffer) {
  file_.open(FULL_DEVICE, false);
  const std::string text = pattern(3 * BUFFER);
  file_.write(text.data(), static_cast<std::streamsize>(text.size()));
  EXPECT_TRUE(file_.bad());
}

TEST_F(OutputFileTest, FullDeviceFailsAtExactlyOneBlock) {
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

TEST_F(OutputFileTest, AfterAFailureNothingMoreIsTaken) {
  file_.open(FULL_DEVICE, false);
  const std::string text = pattern(2 * BUFFER);
  for (int i = 0; i < 5; ++i) {
    file_.write(text.data(), static_cast<std::streamsize>(text.size()));
    file_ << "some more";
    file_.put('x');
    file_.flush();
    EXPECT_TRUE(file_.bad());
  }
  file_.close();
  EXPECT_TRUE(file_.fail());
}

TEST_F(OutputFileTest, WritesToWhatIsNotOpenFail) {
  const std::string text = pattern(BUFFER);
  file_.write(text.data(), static_cast<std::streamsize>(text.size()));
  EXPECT_TRUE(file_.bad());
  kestrel::OutputFile other;
  other << "x";
  EXPECT_TRUE(other.bad());
}

TEST_F(OutputFileTest, ClosingWhatIsNotOpenFails) {
  file_.close();
  EXPECT_TRUE(file_.fail());
}
