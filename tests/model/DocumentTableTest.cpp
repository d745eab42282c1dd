#include <gtest/gtest.h>

#include "model/DocumentTable.h"
#include "tests/support/JsonText.h"
#include "tests/support/StreamCapture.h"

namespace {

TEST(DocumentTableTest, TableWithoutRowsHasDescriptionsInTheirOrderAndAnEmptyDataArray) {
  EXPECT_EQ(jsonObjectText([](kestrel::JsomWriter& writer) {
              openDocumentTable(writer, "things", {{"key", "what it is"}, {"a.b", "a \"thing\""}});
              closeDocumentTable(writer);
            }),
            R"({"things":{"descriptions":{"key":"what it is","a.b":"a \"thing\""},"data":[]}})");
}

TEST(DocumentTableTest, RowsGoIntoTheOpenDataArray) {
  EXPECT_EQ(jsonObjectText([](kestrel::JsomWriter& writer) {
              openDocumentTable(writer, "things", {{"key", "k"}});
              writer.appendUnsignedInt(1);
              writer.appendUnsignedInt(2);
              closeDocumentTable(writer);
            }),
            R"({"things":{"descriptions":{"key":"k"},"data":[1,2]}})");
}

TEST(DocumentTableTest, TwoTablesFollowEachOtherInTheSameObject) {
  const StderrCapture errors;
  EXPECT_EQ(jsonObjectText([](kestrel::JsomWriter& writer) {
              openDocumentTable(writer, "a", {});
              closeDocumentTable(writer);
              openDocumentTable(writer, "b", {});
              closeDocumentTable(writer);
            }),
            R"({"a":{"descriptions":{},"data":[]},"b":{"descriptions":{},"data":[]}})");
  EXPECT_EQ(errors.text(), "");
}

TEST(DocumentTableTest, IndentedTable) {
  EXPECT_EQ(jsonObjectText(
                [](kestrel::JsomWriter& writer) {
                  openDocumentTable(writer, "a", {{"key", "k"}});
                  writer.appendUnsignedInt(7);
                  closeDocumentTable(writer);
                },
                true),
            "{\n"
            " \"a\": {\n"
            "  \"descriptions\": {\n"
            "   \"key\": \"k\"\n"
            "  },\n"
            "  \"data\": [\n"
            "   7\n"
            "  ]\n"
            " }\n"
            "}");
}

}  // namespace
