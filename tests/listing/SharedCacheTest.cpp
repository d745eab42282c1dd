// Several runs at once that share one cache, and files that are too much.
#include <cstdlib>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "listing/Listing.h"
#include "tests/support/TempDir.h"

namespace listing {
namespace {

constexpr int FILES = 6;
constexpr int RUNS = 5;
constexpr int ROUNDS = 8;

class SharedCacheTest : public testing::Test {
 protected:
  SharedCacheTest() {
    std::filesystem::create_directories(temp.file("root/bin"));
    options.sysroots = {temp.file("root")};
    options.perfBuildIdDir = temp.file("perf");
    options.cacheDir = temp.file("cache");
    options.jobs = 2;
    ::unsetenv("DEBUGINFOD_URLS");
  }

  // Each of another content, so of another entry.
  void makeFiles() {
    for (int i = 0; i < FILES; ++i) {
      const std::string place = temp.file("root/bin/" + std::to_string(i));
      const std::string line =
          "objcopy --remove-section=.note.gnu.build-id --add-symbol function_" + std::to_string(i) +
          "=.text:1,function " FIXTURES "/functions " + place;
      ASSERT_EQ(std::system(line.c_str()), 0);
      File file;
      file.name = "/bin/" + std::to_string(i);
      files.push_back(file);
    }
  }

  // The texts of all lists; "none" for what has none.
  std::vector<std::string> listAll(const std::string& work) const {
    std::filesystem::create_directories(temp.file(work));
    std::vector<std::string> texts;
    for (const Result& result : listFiles(files, options, temp.file(work), {})) {
      std::ifstream list(result.list);
      texts.emplace_back(std::istreambuf_iterator<char>(list), std::istreambuf_iterator<char>());
      texts.back() = result.list.empty() ? "none" : texts.back();
    }
    return texts;
  }

  std::uint64_t cacheSize() const {
    std::uint64_t size = 0;
    for (const auto& entry : std::filesystem::directory_iterator(temp.file("cache/lists"))) {
      size += entry.file_size();
    }
    return size;
  }

  TempDir temp;
  Options options;
  std::vector<File> files;
};

// The bound holds two or three of the six lists, so that each run takes away what others want.
TEST_F(SharedCacheTest, RunsAtOnceGetWhatOneGets) {
  makeFiles();
  const std::vector<std::string> expected = listAll("alone");
  for (int i = 0; i < FILES; ++i) {
    EXPECT_THAT(expected[static_cast<std::size_t>(i)],
                testing::HasSubstr("function_" + std::to_string(i)));
  }
  options.cacheSize = cacheSize() / 2;
  std::vector<pid_t> runs;
  for (int run = 0; run < RUNS; ++run) {
    const pid_t pid = fork();
    if (pid == 0) {
      bool isSame = true;
      for (int round = 0; round < ROUNDS; ++round) {
        const std::string work = "work" + std::to_string(run) + "-" + std::to_string(round);
        isSame = isSame && listAll(work) == expected;
      }
      _exit(isSame ? 0 : 1);
    }
    runs.push_back(pid);
  }
  for (const pid_t pid : runs) {
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(listAll("afterwards"), expected);
  EXPECT_LE(cacheSize(), options.cacheSize);
  EXPECT_GT(cacheSize(), 0U);
  for (const auto& entry : std::filesystem::directory_iterator(temp.file("cache/lists"))) {
    EXPECT_FALSE(entry.path().filename().native().starts_with("new-")) << entry.path();
  }
}

// A symbol table of 6 GiB, which takes no room on the disk: memory or time ends before.
TEST_F(SharedCacheTest, AFileThatIsTooMuchCostsItsOwnNamesOnly) {
  makeFiles();
  const std::string slow = temp.file("root/bin/1");
  const auto size = static_cast<off_t>(sizeof(void*) == 8 ? std::uint64_t{6} << 30 : 1u << 30);
  {
    std::fstream file(slow, std::ios::in | std::ios::out | std::ios::binary);
    const auto change = [&file, size](auto header, auto section) {
      file.seekg(0);
      file.read(reinterpret_cast<char*>(&header), sizeof header);
      for (unsigned i = 0; i < header.e_shnum; ++i) {
        const auto at = static_cast<std::streamoff>(header.e_shoff + i * sizeof section);
        file.seekg(at);
        file.read(reinterpret_cast<char*>(&section), sizeof section);
        if (section.sh_type == SHT_SYMTAB) {
          section.sh_offset = 1 << 20;
          section.sh_size = static_cast<decltype(section.sh_size)>(size);
          file.seekp(at);
          file.write(reinterpret_cast<const char*>(&section), sizeof section);
        }
      }
    };
    if (sizeof(void*) == 8) {
      change(Elf64_Ehdr{}, Elf64_Shdr{});
    } else {
      change(Elf32_Ehdr{}, Elf32_Shdr{});
    }
  }
  ASSERT_EQ(truncate(slow.c_str(), size + (1 << 20)), 0);
  options.timeout = std::chrono::milliseconds(700);
  std::filesystem::create_directories(temp.file("work"));
  const auto start = std::chrono::steady_clock::now();
  const std::vector<Result> results = listFiles(files, options, temp.file("work"), {});
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
  for (std::size_t i = 0; i < results.size(); ++i) {
    EXPECT_EQ(results[i].outcome == Outcome::Named, i != 1) << i;
  }
  EXPECT_EQ(results[1].outcome, Outcome::Failed);
  EXPECT_THAT(results[1].cure, testing::HasSubstr("--listing-timeout"));
  EXPECT_FALSE(std::filesystem::exists(temp.file("work/1.list")));
}

}  // namespace
}  // namespace listing
