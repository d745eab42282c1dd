#include "kestrel/json/JSONDataParser.h"

#include "kestrel/json/TextSource.h"

namespace kestrel {

bool JSONData::setFromJsonString(const char*& p) {
  if (p == nullptr) {
    return false;
  }
  BufferSource in(p);
  return JSONDataParser<BufferSource>(in, "setFromJsonString()").parse(*this);
}

bool JSONData::setFromJsonStlString(const std::string& text) {
  const std::string kept = text;  // it may be part of this node
  const char* p = kept.c_str();
  return setFromJsonString(p);
}

bool JSONData::setFromStream(std::istream& in) {
  StreamSource source(in);
  return JSONDataParser<StreamSource>(source, "setFromStream()").parse(*this);
}

}  // namespace kestrel
