// What a piece of code writes into an object that a JSON writer has open.
#pragma once

#include <functional>
#include <sstream>
#include <string>

#include "kestrel/json/JsomWriter.h"

// The whole text, with the object's own brackets.
inline std::string jsonObjectText(const std::function<void(kestrel::JsomWriter&)>& write,
                                  bool whitespace = false) {
  std::ostringstream out;
  kestrel::JsomWriter writer(&out);
  writer.whitespace = whitespace;
  writer.startObject();
  write(writer);
  writer.endObject();
  return out.str();
}
