// What a bundle may hold, and what is refused: archives made here with libarchive, entry by entry.
#include <archive.h>
#include <archive_entry.h>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prepare/Bundle.h"
#include "prepare/PrepareError.h"
#include "tests/support/TempDir.h"

using prepare::Bundle;
using prepare::PrepareError;
using testing::HasSubstr;

namespace {

constexpr char MANIFEST[] = R"({"version":1,"recording":"perf.data"})";

class ArchiveFile {
 public:
  explicit ArchiveFile(const std::string& path) : archive_(archive_write_new()) {
    archive_write_set_format_gnutar(archive_);
    archive_write_add_filter_zstd(archive_);
    archive_write_open_filename(archive_, path.c_str());
  }
  ~ArchiveFile() { archive_write_free(archive_); }

  ArchiveFile& add(const std::string& name, const std::string& content,
                   const std::function<void(archive_entry*)>& change = {}) {
    archive_entry* const entry = archive_entry_new();
    archive_entry_set_pathname(entry, name.c_str());
    archive_entry_set_filetype(entry, AE_IFREG);
    archive_entry_set_perm(entry, 0644);
    archive_entry_set_size(entry, static_cast<la_int64_t>(content.size()));
    if (change) {
      change(entry);
    }
    EXPECT_EQ(archive_write_header(archive_, entry), ARCHIVE_OK) << name;
    archive_write_data(archive_, content.data(), content.size());
    archive_entry_free(entry);
    return *this;
  }
  // What every bundle begins with.
  ArchiveFile& begin() { return add(Bundle::MANIFEST, MANIFEST).add("recording/perf.data", "r"); }

 private:
  archive* archive_;
};

class BundleReaderTest : public testing::Test {
 protected:
  std::string path() const { return temp_.file("b.tar.zst"); }
  std::string folder() const { return temp_.file("unpacked"); }
  Bundle unpack(bool recordingOnly = false) const {
    return Bundle::unpack(path(), folder(), recordingOnly);
  }
  std::string refusal() const {
    try {
      unpack();
    } catch (const PrepareError& error) {
      return error.what();
    }
    return "was taken";
  }
  // Nothing stands beside the bundle and the folder it was unpacked to.
  void expectNothingOutside() const {
    for (const auto& entry : std::filesystem::directory_iterator(temp_.path())) {
      EXPECT_TRUE(entry.path() == path() || entry.path() == folder()) << entry.path();
    }
  }

  const TempDir temp_;
};

// An archive with one entry more than a good one.
std::string refusalOf(const std::string& name,
                      const std::function<void(archive_entry*)>& change = {}) {
  const TempDir temp;
  ArchiveFile(temp.file("b.tar.zst")).begin().add(name, "x", change);
  try {
    Bundle::unpack(temp.file("b.tar.zst"), temp.file("folder"), false);
  } catch (const PrepareError& error) {
    return error.what();
  }
  return "was taken";
}

// A header by hand (tar(5), GNU tar), for more than is written here.
std::string tarHeader(const std::string& name, std::uint64_t size) {
  std::string header(512, '\0');
  header.replace(0, name.size(), name);
  header.replace(100, 8, std::string("0000644") + '\0');
  header[124] = '\x80';  // the size follows in binary
  for (unsigned byte = 0; byte < 8; ++byte) {
    header[135 - byte] = static_cast<char>(size >> 8 * byte);
  }
  header[156] = '0';
  header.replace(257, 7, "ustar  ");
  header.replace(148, 8, "        ");
  unsigned sum = 0;
  for (const char byte : header) {
    sum += static_cast<unsigned char>(byte);
  }
  char text[8];
  std::snprintf(text, sizeof text, "%06o", sum);
  return header.replace(148, 7, text, 7);
}

}  // namespace

TEST_F(BundleReaderTest, FilesAreBelowTheFolder) {
  ArchiveFile(path()).begin().add("root/usr/bin/a b\xff", "elf").add("kallsyms", "");
  const Bundle bundle = unpack();
  EXPECT_EQ(temp_.read("unpacked/recording/perf.data"), "r");
  EXPECT_EQ(bundle.recording, temp_.file("unpacked/recording/perf.data"));
  EXPECT_EQ(temp_.read("unpacked/root/usr/bin/a b\xff"), "elf");
  EXPECT_TRUE(std::filesystem::exists(bundle.kallsyms()));
}

TEST_F(BundleReaderTest, TheRecordingAloneIsUnpackedWhereItIsAllThatIsWanted) {
  ArchiveFile(path()).begin().add("root/usr/bin/a", "elf");
  unpack(true);
  EXPECT_TRUE(temp_.has("unpacked/recording/perf.data"));
  EXPECT_FALSE(temp_.has("unpacked/root"));
}

TEST_F(BundleReaderTest, NamesOutsideAreRefused) {
  for (const char* name : {"/root/x", "../x", "root/../../x", "root/..", "..", ".", "root/./x",
                           "./root/x", "root//x", "//x"}) {
    EXPECT_THAT(refusalOf(name), HasSubstr("names a file outside itself")) << name;
  }
}

TEST_F(BundleReaderTest, ANameOutsideWritesNothing) {
  ArchiveFile(path()).begin().add("../escaped", "x");
  EXPECT_THAT(refusal(), HasSubstr("'../escaped'"));
  expectNothingOutside();
}

TEST_F(BundleReaderTest, LinksAreRefused) {
  EXPECT_THAT(refusalOf("root/link",
                        [](archive_entry* entry) {
                          archive_entry_set_filetype(entry, AE_IFLNK);
                          archive_entry_set_size(entry, 0);
                          archive_entry_set_symlink(entry, "/etc");
                        }),
              HasSubstr("holds a link, 'root/link'"));
  EXPECT_THAT(refusalOf("root/hard",
                        [](archive_entry* entry) {
                          archive_entry_set_size(entry, 0);
                          archive_entry_set_hardlink(entry, "recording/perf.data");
                        }),
              HasSubstr("holds a link, 'root/hard'"));
}

TEST_F(BundleReaderTest, WhatIsNeitherFileNorFolderIsRefused) {
  for (const unsigned type : {AE_IFIFO, AE_IFCHR, AE_IFBLK}) {
    EXPECT_THAT(refusalOf("root/special",
                          [type](archive_entry* entry) {
                            archive_entry_set_filetype(entry, type);
                            archive_entry_set_size(entry, 0);
                          }),
                HasSubstr("neither file nor folder, 'root/special'"));
  }
}

TEST_F(BundleReaderTest, ANameThatComesTwiceIsRefused) {
  EXPECT_THAT(refusalOf("recording/perf.data"), HasSubstr("'recording/perf.data' twice"));
  // A file is no folder for others, and no folder a file.
  EXPECT_THAT(refusalOf("recording/perf.data/x"), HasSubstr("'recording/perf.data' twice"));
  EXPECT_THAT(refusalOf("recording"), HasSubstr("'recording' twice"));
}

TEST_F(BundleReaderTest, MoreThanReasonIsRefusedBeforeItIsWritten) {
  temp_.write("b.tar.zst", tarHeader(Bundle::MANIFEST, sizeof MANIFEST - 1) +
                               (MANIFEST + std::string(512 - (sizeof MANIFEST - 1), '\0')) +
                               tarHeader("root/large", std::uint64_t{64} << 30) +
                               std::string(4096, 'x'));
  EXPECT_THAT(refusal(), HasSubstr("holds more than 65 MiB, up to 'root/large'"));
  EXPECT_FALSE(temp_.has("unpacked/root"));
}

// Zeros take next to no room in it: 70 MiB of them make 2 KB.
TEST_F(BundleReaderTest, SmallArchivesOfVeryLargeFilesAreRefused) {
  ArchiveFile(path()).begin().add("root/zeros", std::string(std::size_t{70} << 20, '\0'));
  EXPECT_THAT(refusal(), HasSubstr("up to 'root/zeros', which is too much for its size"));
  EXPECT_FALSE(temp_.has("unpacked/root/zeros"));
}

TEST_F(BundleReaderTest, FilesWithHolesAreRefused) {
  archive* const made = archive_write_new();
  archive_write_set_format_pax(made);
  archive_write_open_filename(made, path().c_str());
  archive_entry* const entry = archive_entry_new();
  const auto add = [&](const char* name, const std::string& content, std::int64_t size) {
    archive_entry_clear(entry);
    archive_entry_set_pathname(entry, name);
    archive_entry_set_filetype(entry, AE_IFREG);
    archive_entry_set_size(entry, size);
    if (size != static_cast<std::int64_t>(content.size())) {
      archive_entry_sparse_add_entry(entry, size - 512, 512);
    }
    ASSERT_EQ(archive_write_header(made, entry), ARCHIVE_OK);
    archive_write_data(made, content.data(), content.size());
  };
  const std::string manifest = MANIFEST;
  add(Bundle::MANIFEST, manifest, static_cast<std::int64_t>(manifest.size()));
  add("root/holes", std::string(1 << 20, '\0'), 1 << 20 | 512);
  archive_entry_free(entry);
  archive_write_free(made);
  EXPECT_THAT(refusal(), HasSubstr("holds a file with holes, 'root/holes'"));
}

TEST_F(BundleReaderTest, ANameIsShownWithoutWhatSteersATerminal) {
  EXPECT_THAT(refusalOf("../\x1b[2J"), HasSubstr("'../?[2J'"));
}

TEST_F(BundleReaderTest, AnArchiveThatIsNoBundleIsRefused) {
  ArchiveFile(path()).add("perf.data", "r");
  EXPECT_THAT(refusal(), HasSubstr("no bundle of tracemill-prepare"));
}

TEST_F(BundleReaderTest, ACompressedFileThatIsNoArchiveIsRefused) {
  temp_.write("b.tar.zst", "\x28\xb5\x2f\xfd and then something else");
  EXPECT_TRUE(prepare::isBundle(path()));
  EXPECT_THAT(refusal(), HasSubstr("no bundle of tracemill-prepare"));
}

TEST_F(BundleReaderTest, ACutBundleIsRefused) {
  std::string noise;
  for (unsigned i = 0, value = 1; i < 300000; ++i) {
    value = value * 1103515245 + 12345;
    noise += static_cast<char>(value >> 16);
  }
  ArchiveFile(path()).begin().add("root/x", noise);
  const std::string whole = temp_.read("b.tar.zst");
  temp_.write("b.tar.zst", whole.substr(0, whole.size() / 2));
  EXPECT_THAT(refusal(), testing::AnyOf(HasSubstr("damaged"), HasSubstr("no bundle")));
}

TEST_F(BundleReaderTest, AnotherVersionIsRefused) {
  ArchiveFile(path())
      .add(Bundle::MANIFEST, R"({"version":2,"recording":"perf.data"})")
      .add("recording/perf.data", "r");
  EXPECT_THAT(refusal(), HasSubstr("another version"));
}

TEST_F(BundleReaderTest, TheRecordingIsOneOfTheBundles) {
  for (const char* name : {"../../x", "/etc/passwd", "..", "a/b", ""}) {
    const TempDir temp;
    ArchiveFile(temp.file("b.tar.zst"))
        .add(Bundle::MANIFEST, R"({"version":1,"recording":")" + std::string(name) + "\"}")
        .add("recording/perf.data", "r");
    EXPECT_THROW(Bundle::unpack(temp.file("b.tar.zst"), temp.file("folder"), false), PrepareError)
        << name;
  }
  ArchiveFile(path()).add(Bundle::MANIFEST, MANIFEST).add("root/x", "r");
  EXPECT_THAT(refusal(), HasSubstr("holds no recording"));
}
