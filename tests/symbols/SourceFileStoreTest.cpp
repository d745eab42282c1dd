#include <string>

#include <gtest/gtest.h>

#include "kestrel/json/JsomWriter.h"
#include "model/KeyGenerator.h"
#include "symbols/FunctionInfo.h"
#include "symbols/SourceFileStore.h"
#include "tests/support/JsonText.h"
#include "tests/support/TableTexts.h"

namespace {

class SourceFileStoreTest : public testing::Test {
 protected:
  std::string rows(bool writeAll) {
    return jsonObjectText(
        [&](kestrel::JsomWriter& writer) { store.writeLegacyJsonObject(writer, writeAll); });
  }
  static std::string expected(const std::string& rows) { return tableText("files", rows); }

  const bool countsFromZero = (KeyGenerator::counter = 0, true);
  FunctionInfo functions[4];  // keys 0 to 3
  SourceFileStore store;
};

TEST_F(SourceFileStoreTest, WithoutSamplesTheTableHasDescriptionsAndAnEmptyDataArray) {
  EXPECT_EQ(rows(false), expected(""));
  EXPECT_EQ(rows(true), expected(""));
}

TEST_F(SourceFileStoreTest, FileWhoseFunctionsWereAllMissedIsAbsentEvenIfAllAreWritten) {
  store.add("/src/a.c", &functions[0]);
  store.add("/src/a.c", &functions[1]);
  EXPECT_EQ(rows(false), expected(""));
  EXPECT_EQ(rows(true), expected(""));
}

TEST_F(SourceFileStoreTest, FileWithOneHitFunctionListsOnlyThatUnlessAllAreWritten) {
  store.add("/src/a.c", &functions[0]);
  store.add("/src/a.c", &functions[1]);
  store.add("/src/a.c", &functions[2]);
  functions[1].refCount = 1;
  EXPECT_EQ(rows(false), expected(R"([1,"/src/a.c",[[1,0]]])"));
  EXPECT_EQ(rows(true), expected(R"([1,"/src/a.c",[[0,0],[1,0],[2,0]]])"));
}

TEST_F(SourceFileStoreTest, PairsStandInTheOrderAddedNotByKeyAndDuplicatesStay) {
  for (const int i : {2, 0, 2}) {
    functions[i].refCount = 1;
    store.add("/src/a.c", &functions[i]);
  }
  EXPECT_EQ(rows(false), expected(R"([1,"/src/a.c",[[2,0],[0,0],[2,0]]])"));
}

TEST_F(SourceFileStoreTest, PairHasTheFunctionsKeyAndLineNumber) {
  KeyGenerator::counter = 0xFFFFFFFFFFFFFFFF;
  FunctionInfo function;
  function.refCount = 1;
  function.lineNumber = 0xFFFFFFFF;
  store.add("/src/a.c", &function);
  EXPECT_EQ(rows(false), expected(R"([1,"/src/a.c",[[18446744073709551615,4294967295]]])"));
}

TEST_F(SourceFileStoreTest, FilesAreNumberedFromOneInTheByteOrderOfTheirNames) {
  for (FunctionInfo& function : functions) {
    function.refCount = 1;
  }
  store.add("/src/\xC3\xA4.c", &functions[0]);
  store.add("/src/b.c", &functions[1]);
  store.add("/src/B.c", &functions[2]);
  store.add("/src/a.c", &functions[3]);
  EXPECT_EQ(rows(false),
            expected("[1,\"/src/B.c\",[[2,0]]],[2,\"/src/a.c\",[[3,0]]],[3,\"/src/b.c\",[[1,0]]],"
                     "[4,\"/src/\xC3\xA4.c\",[[0,0]]]"));
}

TEST_F(SourceFileStoreTest, FunctionsOfAFileThatIsNamedAgainJoinTheFirstOnes) {
  functions[3].refCount = 1;
  store.add("/src/b.c", &functions[2]);
  store.add("/src/a.c", &functions[0]);
  store.add("/src/b.c", &functions[3]);
  store.add("/src/b.c", &functions[1]);
  EXPECT_EQ(rows(false), expected(R"([1,"/src/b.c",[[3,0]]])"));
  EXPECT_EQ(rows(true), expected(R"([1,"/src/b.c",[[2,0],[3,0],[1,0]]])"));
}

TEST_F(SourceFileStoreTest, SkippedFilesTakeNoNumber) {
  functions[1].refCount = 1;
  functions[2].refCount = 1;
  functions[3].refCount = 1;
  store.add("", &functions[3]);
  store.add("/src/a.c", &functions[0]);
  store.add("/src/b.c", &functions[1]);
  store.add("/src/c.c", &functions[0]);
  store.add("/src/d.c", &functions[2]);
  EXPECT_EQ(rows(false), expected(R"([1,"/src/b.c",[[1,0]]],[2,"/src/d.c",[[2,0]]])"));
}

TEST_F(SourceFileStoreTest, FileWithAnEmptyNameIsNeverWritten) {
  functions[0].refCount = 1;
  store.add("", &functions[0]);
  EXPECT_EQ(rows(false), expected(""));
  EXPECT_EQ(rows(true), expected(""));
}

TEST_F(SourceFileStoreTest, FileNamesAreEscaped) {
  functions[0].refCount = 1;
  store.add("a\"b\\c", &functions[0]);
  EXPECT_EQ(rows(false), expected(R"([1,"a\"b\\c",[[0,0]]])"));
}

TEST_F(SourceFileStoreTest, FileKeysDrawNothingFromTheKeyCounterAndAreNumberedAnewEachTime) {
  functions[0].refCount = 1;
  store.add("/src/a.c", &functions[0]);
  const std::string once = rows(false);
  EXPECT_EQ(once, rows(false));
  EXPECT_EQ(KeyGenerator::counter, 4u);
}

TEST_F(SourceFileStoreTest, FunctionsHaveReferencesWhenAnyHasAUse) {
  EXPECT_FALSE(store._functionsHaveReferences({}));
  EXPECT_FALSE(store._functionsHaveReferences({&functions[0], &functions[1]}));
  functions[1].refCount = 1;
  EXPECT_TRUE(store._functionsHaveReferences({&functions[0], &functions[1]}));
  EXPECT_TRUE(store._functionsHaveReferences({&functions[1], &functions[0]}));
}

}  // namespace
