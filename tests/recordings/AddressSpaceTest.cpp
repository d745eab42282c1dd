#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "recordings/AddressSpace.h"
#include "recordings/MappedFiles.h"

using recordings::AddressSpace;
using recordings::MappedFile;
using recordings::Mapping;
using testing::ElementsAre;

namespace {

const MappedFile A{"a", MappedFile::Kind::FILE, {}, 0, {}, 0};
const MappedFile B{"b", MappedFile::Kind::FILE, {}, 0, {}, 1};

std::vector<std::string> mapsOf(const AddressSpace& space) {
  std::vector<std::string> lines;
  space.forEach([&](const Mapping& map) {
    char text[100];
    std::snprintf(text, sizeof text, "%s %llx-%llx@%llx", map.file->name.c_str(),
                  static_cast<unsigned long long>(map.start),
                  static_cast<unsigned long long>(map.end),
                  static_cast<unsigned long long>(map.fileOffset));
    lines.push_back(text);
  });
  return lines;
}

}  // namespace

TEST(AddressSpaceTest, RangesHoldTheirStartAndNotTheirEnd) {
  AddressSpace space;
  EXPECT_TRUE(space.isEmpty());
  space.add({0x1000, 0x2000, 0, &A});
  EXPECT_EQ(space.find(0xfff), nullptr);
  EXPECT_NE(space.find(0x1000), nullptr);
  EXPECT_NE(space.find(0x1fff), nullptr);
  EXPECT_EQ(space.find(0x2000), nullptr);
}

TEST(AddressSpaceTest, ANewMapCutsWhatItCovers) {
  const Mapping old{0x3000, 0x6000, 0x100, &A};
  struct Case {
    Mapping added;
    std::vector<std::string> expected;
  };
  const std::vector<Case> cases = {
      {{0x1000, 0x3000, 0, &B}, {"b 1000-3000@0", "a 3000-6000@100"}},   // touches
      {{0x2000, 0x4000, 0, &B}, {"b 2000-4000@0", "a 4000-6000@1100"}},  // over the head
      {{0x4000, 0x5000, 0, &B}, {"a 3000-4000@100", "b 4000-5000@0", "a 5000-6000@2100"}},
      {{0x5000, 0x9000, 0, &B}, {"a 3000-5000@100", "b 5000-9000@0"}},  // over the tail
      {{0x3000, 0x6000, 0, &B}, {"b 3000-6000@0"}},
      {{0x1000, 0x9000, 0, &B}, {"b 1000-9000@0"}},
      {{0x6000, 0x7000, 0, &B}, {"a 3000-6000@100", "b 6000-7000@0"}},
      {{0x4000, 0x4000, 0, &B}, {"a 3000-6000@100"}},  // empty
      {{0x5000, 0x4000, 0, &B}, {"a 3000-6000@100"}},  // senseless
  };
  for (const Case& each : cases) {
    AddressSpace space;
    space.add(old);
    space.add(each.added);
    EXPECT_EQ(each.expected, mapsOf(space));
  }
}

TEST(AddressSpaceTest, OneMapMayCoverMany) {
  AddressSpace space;
  for (uint64_t i = 1; i <= 9; ++i) {
    space.add({i * 0x1000, i * 0x1000 + 0x800, 0, &A});
  }
  space.add({0x2400, 0x8400, 0, &B});
  EXPECT_THAT(mapsOf(space), ElementsAre("a 1000-1800@0", "a 2000-2400@0", "b 2400-8400@0",
                                         "a 8400-8800@400", "a 9000-9800@0"));
  EXPECT_EQ(&B, space.find(0x3000)->file);
  EXPECT_EQ(space.find(0x1900), nullptr);
}

TEST(AddressSpaceTest, RemovingLeavesAHole) {
  AddressSpace space;
  space.add({0x1000, 0x4000, 0, &A});
  space.remove(0x2000, 0x3000);
  space.remove(0x9000, 0x8000);
  EXPECT_THAT(mapsOf(space), ElementsAre("a 1000-2000@0", "a 3000-4000@2000"));
  space.clear();
  EXPECT_TRUE(space.isEmpty());
}

TEST(AddressSpaceTest, ACopyStaysAsItWas) {
  AddressSpace space;
  space.add({0x1000, 0x4000, 0, &A});
  AddressSpace copy = space;
  space.add({0x2000, 0x3000, 0, &B});
  copy.remove(0x1000, 0x2000);
  EXPECT_THAT(mapsOf(copy), ElementsAre("a 2000-4000@1000"));
  EXPECT_THAT(mapsOf(space), ElementsAre("a 1000-2000@0", "b 2000-3000@0", "a 3000-4000@2000"));
  copy = space;
  space.clear();
  EXPECT_EQ(mapsOf(copy).size(), 3u);
}

TEST(AddressSpaceTest, TheHighestAddressesAreMappedToo) {
  AddressSpace space;
  space.add({0xfffffffffffff000, ~uint64_t{0}, 0, &A});
  EXPECT_NE(space.find(~uint64_t{0} - 1), nullptr);
}

// Against the plainest way: one entry for each address.
TEST(AddressSpaceTest, AnyHistoryGivesWhatIsThere) {
  AddressSpace space;
  std::map<uint64_t, std::pair<const MappedFile*, uint64_t>> plain;
  uint64_t state = 7;
  const auto next = [&state](uint64_t below) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    return (state >> 33) % below;
  };
  for (int i = 0; i < 3000; ++i) {
    const uint64_t start = next(200);
    const uint64_t end = start + 1 + next(40);
    const MappedFile* const file = next(2) == 0 ? &A : &B;
    const uint64_t offset = next(50);
    const bool isRemoved = next(5) == 0;
    isRemoved ? space.remove(start, end) : space.add({start, end, offset, file});
    for (uint64_t at = start; at < end; ++at) {
      if (isRemoved) {
        plain.erase(at);
      } else {
        plain[at] = {file, offset + at - start};
      }
    }
    for (uint64_t at = 0; at < 245; ++at) {
      const Mapping* const map = space.find(at);
      const auto known = plain.find(at);
      ASSERT_EQ(known == plain.end(), map == nullptr) << i << " " << at;
      if (map != nullptr) {
        ASSERT_EQ(known->second.first, map->file);
        ASSERT_EQ(known->second.second, map->fileOffset + at - map->start);
      }
    }
  }
}
