#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/json/JSOM.h"
#include "kestrel/log/LogAdapterStore.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SilentAdapter : public kestrel::LogAdapter {
 public:
  void log(const kestrel::LogLevel&, std::string&, const char*, bool) override {}
  void log(const kestrel::LogLevel&, std::string&, const std::string&, bool) override {}
  void flush() override {}
};

class Factory : public kestrel::LogAdapterFactory {
 public:
  Factory(const std::string& name, std::vector<std::string>& notes)
      : LogAdapterFactory("silent"), name_(name), notes_(notes) {}
  ~Factory() override { notes_.push_back(name_ + " destroyed"); }
  kestrel::LogAdapter* createLogAdapter(const kestrel::JSOM& config) override {
    notes_.push_back(name_ + " asked for " + std::to_string(config.size()) + " members");
    return new SilentAdapter();
  }

 private:
  const std::string name_;
  std::vector<std::string>& notes_;
};

class LogAdapterStoreTest : public testing::Test {
 protected:
  LogAdapterStoreTest() { config_.fromString(R"({"type": "x", "more": 1})"); }

  bool makes(kestrel::LogAdapterStore& store, const std::string& type) {
    const std::unique_ptr<kestrel::LogAdapter> adapter(store.createLogAdapter(type, config_));
    return adapter != nullptr;
  }

  kestrel::JSOM config_;
  std::vector<std::string> notes_;
};

TEST_F(LogAdapterStoreTest, AsksTheFactoryOfThatNameAndHandsItTheConfiguration) {
  kestrel::LogAdapterStore store;
  store.addFactory("a", new Factory("A", notes_));
  store.addFactory("b", new Factory("B", notes_));
  EXPECT_TRUE(makes(store, "a"));
  EXPECT_THAT(notes_, ElementsAre("A asked for 2 members"));
}

TEST_F(LogAdapterStoreTest, UnknownNameGivesNull) {
  kestrel::LogAdapterStore store;
  store.addFactory("a", new Factory("A", notes_));
  EXPECT_FALSE(makes(store, "A"));
  EXPECT_FALSE(makes(store, ""));
  EXPECT_THAT(notes_, IsEmpty());
}

TEST_F(LogAdapterStoreTest, AnotherFactoryOfANameReplacesAndDestroysTheFirst) {
  kestrel::LogAdapterStore store;
  store.addFactory("a", new Factory("A1", notes_));
  store.addFactory("a", new Factory("A2", notes_));
  EXPECT_TRUE(makes(store, "a"));
  EXPECT_THAT(notes_, ElementsAre("A1 destroyed", "A2 asked for 2 members"));
}

TEST_F(LogAdapterStoreTest, SameFactoryAgainChangesNothing) {
  kestrel::LogAdapterStore store;
  Factory* const factory = new Factory("A", notes_);
  store.addFactory("a", factory);
  store.addFactory("a", factory);
  EXPECT_THAT(notes_, IsEmpty());
  EXPECT_TRUE(makes(store, "a"));
}

TEST_F(LogAdapterStoreTest, EmptySlotGivesNullAndTakesAFactory) {
  kestrel::LogAdapterStore store;
  store.addFactory("a", nullptr);
  EXPECT_FALSE(makes(store, "a"));
  store.addFactory("a", new Factory("A", notes_));
  EXPECT_TRUE(makes(store, "a"));
}

TEST_F(LogAdapterStoreTest, DestroysItsFactories) {
  {
    kestrel::LogAdapterStore store;
    store.addFactory("a", new Factory("A", notes_));
  }
  EXPECT_THAT(notes_, ElementsAre("A destroyed"));
}

TEST_F(LogAdapterStoreTest, InstanceIsOne) {
  EXPECT_EQ(kestrel::LogAdapterStore::Instance(), kestrel::LogAdapterStore::Instance());
}

}  // namespace
