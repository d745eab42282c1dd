#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/exec/FileTie.h"
#include "kestrel/exec/LinuxPipe.h"
#include "kestrel/exec/PortableFileProcessor.h"
#include "tests/kestrel/exec/ExecSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

namespace {

using kestrel::FileTie;
using kestrel::LinuxPipe;
using kestrel::PortableFile;
using testing::ElementsAre;

struct Source {
  LinuxPipe* reader = new LinuxPipe();  // the tie's once it is tied
  std::unique_ptr<LinuxPipe> writer{reader->openAnonymousPipe()};

  void write(const std::string& bytes) const {
    for (std::size_t at = 0; at < bytes.size();) {
      const int count = writer->write(bytes.data() + at, static_cast<unsigned>(bytes.size() - at));
      ASSERT_GT(count, 0);
      at += static_cast<std::size_t>(count);
    }
  }
  // All that there is, to its end on the other side.
  void sendAll(const std::string& bytes, FileTie& tie) const {
    write(bytes);
    writer->close();
    ASSERT_NE(tie.getFileProcessor(), nullptr);
    EXPECT_TRUE(tie.getFileProcessor()->waitTilDone(10000));
    tie.close();
  }
};

// Takes at most three bytes at a time, and in all no more than `room`.
class SlowFile : public LinuxPipe {
 public:
  explicit SlowFile(std::size_t room) : room_(room) {}
  int write(const void* data, unsigned size) override {
    const std::size_t count = std::min<std::size_t>({size, 3, room_ - taken.size()});
    if (count == 0) {
      return WOULD_BLOCK;
    }
    taken.append(static_cast<const char*>(data), count);
    return static_cast<int>(count);
  }

  std::string taken;

 private:
  const std::size_t room_;
};

TEST(FileTieTest, CopiesIntoAStream) {
  std::ostringstream target;
  Source source;
  FileTie tie;
  EXPECT_TRUE(tie.tie(source.reader, &target));
  source.sendAll("some bytes", tie);
  EXPECT_EQ(target.str(), "some bytes");
  EXPECT_EQ(tie.getError(), 0);
}

TEST(FileTieTest, CopiesIntoAFile) {
  LinuxPipe reader;
  const std::unique_ptr<LinuxPipe> target(reader.openAnonymousPipe());
  Source source;
  FileTie tie;
  EXPECT_TRUE(tie.tie(source.reader, target.get()));
  source.sendAll("some bytes", tie);
  target->close();
  EXPECT_EQ(readAll(reader), "some bytes");
}

TEST(FileTieTest, AFileThatTakesBlocksInPiecesGetsAllOfThem) {
  SlowFile target(100);
  Source source;
  FileTie tie;
  EXPECT_TRUE(tie.tie(source.reader, &target));
  source.sendAll("0123456789", tie);
  EXPECT_EQ(target.taken, "0123456789");
}

TEST(FileTieTest, AFileThatIsFullLosesTheRestAndTheTieGoesOn) {
  SlowFile target(5);
  Source source;
  FileTie tie;
  EXPECT_TRUE(tie.tie(source.reader, &target));
  source.sendAll("0123456789", tie);
  EXPECT_EQ(target.taken, "01234");
  EXPECT_EQ(tie.getError(), EIO);  // the file does not say why
}

TEST(FileTieTest, AStreamThatIsFullIsToldWithItsReason) {
  std::ofstream target("/dev/full", std::ios::binary);
  Source source;
  FileTie tie;
  EXPECT_TRUE(tie.tie(source.reader, &target));
  for (int i = 0; i < 20; ++i) {
    source.write(std::string(1000, 'x'));
  }
  source.writer->close();
  EXPECT_TRUE(tie.getFileProcessor()->waitTilDone(10000));
  tie.close();
  EXPECT_EQ(tie.getError(), ENOSPC);
}

TEST(FileTieTest, ASourceThatCannotBeReadIsToldWithItsReason) {
  const TempDir temp;
  std::ostringstream target;
  auto* const source = new LinuxPipe();  // of a descriptor whose reads fail
  source->setFd(open(temp.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  FileTie tie;
  ASSERT_TRUE(tie.tie(source, &target));
  EXPECT_TRUE(tie.getFileProcessor()->waitTilDone(10000));
  tie.close();
  EXPECT_EQ(tie.getError(), EISDIR);
}

TEST(FileTieTest, EveryByteOfALargeStreamArrives) {
  const TempDir temp;
  std::ofstream target(temp.file("copy"), std::ios::binary);
  Source source;
  FileTie tie;
  EXPECT_TRUE(tie.tie(source.reader, &target));
  std::string block(1 << 20, '\0');
  for (std::size_t i = 0; i < block.size(); ++i) {
    block[i] = static_cast<char>(static_cast<unsigned char>(i * 7 % 256));
  }
  std::string all;
  for (int i = 0; i < 10; ++i) {
    source.write(block);
    all += block;
  }
  source.writer->close();
  EXPECT_TRUE(tie.getFileProcessor()->waitTilDone(60000));
  tie.close();
  target.close();
  EXPECT_TRUE(temp.read("copy") == all);
}

TEST(FileTieTest, TyingAgainClosesTheTieThatExists) {
  std::ostringstream first;
  std::ostringstream second;
  Source source;
  Source other;
  FileTie tie;
  EXPECT_TRUE(tie.tie(source.reader, &first));
  EXPECT_TRUE(tie.tie(other.reader, &second));
  other.write("x");
  other.writer->close();
  EXPECT_TRUE(tie.getFileProcessor()->waitTilDone(10000));
  tie.close();
  EXPECT_EQ(first.str(), "");
  EXPECT_EQ(second.str(), "x");
}

TEST(FileTieTest, ClosingGivesUpASourceThatHasNotEnded) {
  const std::size_t before = countDescriptors();
  std::ostringstream target;
  const Source source;
  {
    FileTie tie;
    EXPECT_TRUE(tie.tie(source.reader, &target));
    tie.close();
    EXPECT_EQ(tie.getFileProcessor(), nullptr);
    EXPECT_EQ(tie.getError(), ECANCELED);
    tie.close();
  }
  EXPECT_EQ(countDescriptors(), before + 1);  // the writing end
}

TEST(FileTieTest, ASourceThatIsRefusedStaysTheCallers) {
  std::ostringstream target;
  LinuxPipe closed;
  FileTie tie;
  EXPECT_FALSE(tie.tie(&closed, &target));
  EXPECT_EQ(tie.getFileProcessor(), nullptr);
  EXPECT_FALSE(tie.tie(nullptr, &target));
  LinuxPipe open;
  const std::unique_ptr<LinuxPipe> writer(open.openAnonymousPipe());
  EXPECT_FALSE(tie.tie(&open, static_cast<std::ostream*>(nullptr)));
  EXPECT_FALSE(tie.tie(&open, static_cast<PortableFile*>(nullptr)));
  tie.close();
  EXPECT_NE(open.getFd(), -1);
}

TEST(FileTieTest, LogsItsLife) {
  const LogCapture log;
  std::ostringstream stream;
  LinuxPipe file;
  const Source source;
  const Source other;
  std::string self;
  {
    FileTie tie;
    self = text(&tie);
    tie.tie(source.reader, &stream);
    tie.tie(other.reader, &file);
  }
  EXPECT_THAT(
      log.messages("FileTie", "TRACE"),
      ElementsAre(self + " tie(" + text(source.reader) + ", " +
                      text(static_cast<std::ostream*>(&stream)) + ") <-- ostream",
                  self + " close()",
                  self + " tie(" + text(other.reader) + ", " + text(&file) + ") <-- PortableFile",
                  self + " close()", self + " close()"));
}

TEST(FileTieTest, BlocksAreAtMost3072Bytes) {
  // Counts the blocks by their length.
  class BlockFile : public LinuxPipe {
   public:
    int write(const void* /*data*/, unsigned size) override {
      longest = std::max(longest, size);
      total += size;
      return static_cast<int>(size);
    }
    unsigned longest = 0;
    unsigned total = 0;
  };
  BlockFile target;
  Source source;
  source.write(std::string(10000, 'x'));
  source.writer->close();
  FileTie tie;
  EXPECT_TRUE(tie.tie(source.reader, &target));
  EXPECT_TRUE(tie.getFileProcessor()->waitTilDone(10000));
  tie.close();
  EXPECT_EQ(target.longest, 3072U);
  EXPECT_EQ(target.total, 10000U);
}

}  // namespace
