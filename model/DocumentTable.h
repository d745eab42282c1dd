// The frame that all tables of the document share: a labelled member of the top-level object with
// "descriptions" (column name to sentence) and "data" (an array of rows).
#pragma once

#include <initializer_list>
#include <utility>

namespace kestrel {
class JsomWriter;
}

// A column's name and the sentence that describes it.
using DocumentColumn = std::pair<const char*, const char*>;

// Writes label and descriptions into the writer's open object and leaves the "data" array open for
// the rows.
void openDocumentTable(kestrel::JsomWriter& writer, const char* name,
                       std::initializer_list<DocumentColumn> columns);
// Closes the "data" array and the table.
void closeDocumentTable(kestrel::JsomWriter& writer);
