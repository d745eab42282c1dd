#include <gtest/gtest.h>

#include "report/ProfileBuilder.h"

namespace report {

namespace {

struct KindCase {
  const char* name;
  uint32_t pidkey;
  uint64_t start;
  LibraryKind kind;
};

// A sample of a chain, innermost call first, as rows of its own.
void add(ProfileBuilder& builder, int64_t time, std::vector<uint64_t> mapkeys, uint32_t pidkey,
         uint32_t cpu) {
  SampleRows rows;
  rows.rows.push_back({time, cpu, pidkey, mapkeys.size()});
  rows.mapkeys = std::move(mapkeys);
  builder.addSamples(rows);
}

// A profile of one sample in a map of that name.
Profile profileIn(const char* name, uint32_t pidkey, uint64_t start) {
  ProfileBuilder builder;
  add(builder, 0, {1}, 5, 0);
  builder.addLibrary(1, pidkey, name, start);
  return builder.build();
}

}  // namespace

TEST(ProfileBuilderTest, KindsOfLibraries) {
  const KindCase cases[] = {
      {"kernel", 0, 0xFFFFFFFF80000000, LibraryKind::KERNEL},
      {"[nfs]", 5, 0xFFFFFFFFC0000000, LibraryKind::KERNEL},
      {"kernel", 0, 0xC0000000, LibraryKind::KERNEL},
      {"/usr/bin/app", 5, 0x400000, LibraryKind::PROGRAM},
      {"/usr/lib/libc.so.6", 5, 0x7F0000000000, LibraryKind::LIBRARY},
      {"/opt/a.b/libx.so", 5, 0x7F0000000000, LibraryKind::LIBRARY},
      {"[vdso]", 5, 0x7FF000000000, LibraryKind::LIBRARY},
      {"/tmp/perf-12.map", 5, 0x7F0000000000, LibraryKind::JIT},
      {"//anon", 5, 0x7F0000000000, LibraryKind::JIT},
      {"/tmp/jitted-12-3.so", 5, 0x7F0000000000, LibraryKind::JIT},
      {"{app-7f120000}", 5, 0x7F120000, LibraryKind::UNKNOWN},
      {"{stack:b0000000-beffffff}", 0, 0xB0000000, LibraryKind::UNKNOWN},
  };
  for (const KindCase& one : cases) {
    EXPECT_EQ(profileIn(one.name, one.pidkey, one.start).libraries[0].kind, one.kind) << one.name;
  }
}

TEST(ProfileBuilderTest, NamesOfWhatHasNoFunction) {
  EXPECT_EQ(profileIn("/usr/lib/libc.so.6", 5, 1).frames[0].name, "[libc.so.6]");
  EXPECT_EQ(profileIn("[vdso]", 5, 1).frames[0].name, "[vdso]");
  EXPECT_EQ(profileIn("{app-7f120000}", 5, 1).frames[0].name, "{app}");
  EXPECT_EQ(profileIn("{my-app-7f120000}", 5, 1).frames[0].name, "{my-app}");
  EXPECT_EQ(profileIn("{app-interrupt}", 5, 1).frames[0].name, "{app-interrupt}");
  EXPECT_EQ(profileIn("{stack:b0000000-beffffff}", 0, 1).frames[0].name,
            "{stack:b0000000-beffffff}");
}

TEST(ProfileBuilderTest, MapsOfOneFileAreOneLibrary) {
  ProfileBuilder builder;
  add(builder, 0, {1}, 5, 0);
  add(builder, 1, {2}, 6, 0);
  builder.addLibrary(1, 5, "/lib/a.so", 1);
  builder.addLibrary(2, 6, "/lib/a.so", 1);
  const Profile profile = builder.build();
  EXPECT_EQ(profile.libraries.size(), 1U);
  EXPECT_EQ(profile.samples.stacks[0], profile.samples.stacks[1]);
}

TEST(ProfileBuilderTest, AKeyThatNoTableHas) {
  ProfileBuilder builder;
  add(builder, 0, {~0ULL}, 9, NONE);
  const Profile profile = builder.build();
  EXPECT_EQ(profile.frames[0].name, "{unknown}");
  EXPECT_EQ(profile.threads[0].tid, 9U);
  EXPECT_EQ(profile.threads[0].pid, NONE);
}

// The keys of a sample's chain, innermost call first: what has no name is called by its library.
std::vector<std::string> chainOf(const Profile& profile, std::size_t sample) {
  std::vector<std::string> names;
  for (uint32_t node = profile.samples.stacks[sample]; node != StackTree::ROOT;
       node = profile.stacks.parent(node)) {
    names.push_back(profile.frames[profile.stacks.frame(node)].name);
  }
  return names;
}

TEST(ProfileBuilderTest, AChainThatBeginsLikeTheOneBefore) {
  using Keys = std::vector<uint64_t>;
  // Innermost first: longer, shorter, elsewhere, the outermost alone, empty, and the first again.
  const std::vector<Keys> chains = {{3, 2, 1}, {4, 3, 2, 1}, {2, 1}, {3, 5, 1}, {1}, {}, {3, 2, 1}};
  // All on one CPU, in turn on two, and on two that share what is remembered.
  for (const auto& cpus : {std::pair{0U, 0U}, std::pair{0U, 1U}, std::pair{1U, 65U}}) {
    ProfileBuilder builder;
    SampleRows rows;
    for (std::size_t i = 0; i < chains.size(); ++i) {
      rows.mapkeys.insert(rows.mapkeys.end(), chains[i].begin(), chains[i].end());
      rows.rows.push_back(
          {static_cast<int64_t>(i), i % 2 == 0 ? cpus.first : cpus.second, 5, rows.mapkeys.size()});
    }
    builder.addSamples(rows);
    for (uint64_t key = 1; key <= 5; ++key) {
      builder.addFunction(key, "f" + std::to_string(key), 0, 0);
    }
    const Profile profile = builder.build();
    for (std::size_t i = 0; i < chains.size(); ++i) {
      std::vector<std::string> expected;
      for (const uint64_t key : chains[i]) {
        expected.push_back("f" + std::to_string(key));
      }
      EXPECT_EQ(chainOf(profile, i), expected) << i;
    }
    EXPECT_EQ(profile.stacks.size(), 7U) << "each chain once";
  }
}

TEST(ProfileBuilderTest, SamplesThatAreSortedStayAsTheyAre) {
  ProfileBuilder builder;
  uint32_t cpu = 0;
  for (const int64_t time : {int64_t{10}, int64_t{20}, int64_t{20}, ProfileBuilder::NO_TIME}) {
    add(builder, time, {7}, 5, ++cpu);
  }
  const Profile profile = builder.build();
  EXPECT_EQ(profile.samples.times, (std::vector<int64_t>{10, 20, 20, 20}));
  EXPECT_EQ(profile.samples.cpus, (std::vector<uint32_t>{1, 2, 3, 4}));
}

TEST(ProfileBuilderTest, SamplesAreSortedByTime) {
  ProfileBuilder builder;
  for (const int64_t time : {30, 10, 20}) {
    add(builder, time, {static_cast<uint64_t>(time)}, 5, 0);
  }
  const Profile profile = builder.build();
  EXPECT_EQ(profile.samples.times, (std::vector<int64_t>{10, 20, 30}));
}

TEST(ProfileBuilderTest, ABaselineMeetsTheSameFunctionInAnotherFolder) {
  const auto make = [](const char* library, const char* function) {
    ProfileBuilder builder;
    add(builder, 0, {7}, 5, 0);
    add(builder, 2000000000, {7}, 5, 0);
    builder.addLibrary(1, 5, library, 1);
    builder.addFunction(7, function, 1, 1);
    return builder.build();
  };
  Profile after = make("/new/app", "run()");
  addBaseline(after, make("/old/app", "run()"));
  EXPECT_EQ(after.baselineCounts, (std::vector<uint32_t>{0, 2}));
  EXPECT_EQ(after.baselineSamples, 2U);
  EXPECT_EQ(after.baselineSeconds, 2);
  Profile other = make("/new/app", "run()");
  addBaseline(other, make("/old/app", "walk()"));
  EXPECT_EQ(other.frames.size(), 2U);
  EXPECT_EQ(other.baselineCounts[other.samples.stacks[0]], 0U);
}

}  // namespace report
