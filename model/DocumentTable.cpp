#include "model/DocumentTable.h"

#include "kestrel/json/JsomWriter.h"

void openDocumentTable(kestrel::JsomWriter& writer, const char* name,
                       std::initializer_list<DocumentColumn> columns) {
  writer.appendLabel(name, true);
  writer.startObject();
  writer.appendLabel("descriptions", true);
  writer.startObject();
  for (const auto& [column, sentence] : columns) {
    writer.appendLabel(column, true);
    writer.appendString(sentence, false);
  }
  writer.endObject();
  writer.appendLabel("data", true);
  writer.startArray();
}

void closeDocumentTable(kestrel::JsomWriter& writer) {
  writer.endArray();
  writer.endObject();
}
