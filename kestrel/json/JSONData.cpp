#include "kestrel/json/JSONData.h"

#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace kestrel {

JSONData::~JSONData() {
  try {
    reset();
  } catch (const std::bad_alloc&) {
    // What could not be listed stays in memory: better than the end of the program.
  }
}

void JSONData::retain() {
  if (refCount_ < MAX_REFERENCES) {
    ++refCount_;
  }
}

void JSONData::release(JSONData* node) {
  if (node != nullptr && node->_giveUpReference()) {
    delete node;
  }
}

// Whether it was the last one.
bool JSONData::_giveUpReference() {
  if (refCount_ == MAX_REFERENCES) {
    return false;
  }
  if (refCount_ > 0) {
    --refCount_;
  }
  return refCount_ == 0;
}

void JSONData::setType(int type) {
  const auto code = static_cast<std::uint16_t>(type);
  if (type_ == code) {
    return;
  }
  reset();
  switch (code) {
    case OBJECT:
      content_.members = new Members;
      break;
    case ARRAY:
      content_.elements = new Elements;
      break;
    case STRING:
      content_.text = new std::string;
      break;
    default:
      break;
  }
  type_ = code;
}

void JSONData::setBoolean(bool value) {
  setType(BOOLEAN);
  content_.boolean = value ? 1 : 0;
}

void JSONData::setLong(long long value) {
  setType(LONG);
  content_.number = value;
}

void JSONData::setDouble(long double value) {
  setType(DOUBLE);
  content_.real = static_cast<double>(value);
}

void JSONData::setString(const std::string& value) {
  std::string text = value;  // it may be part of the content that goes
  setType(STRING);
  content_.text->swap(text);
}

void JSONData::setString(const char* value) {
  setString(std::string(value == nullptr ? "" : value));
}

void JSONData::reset() {
  std::vector<JSONData*> dropped;
  _dropContent(dropped);
  while (!dropped.empty()) {
    JSONData* const node = dropped.back();
    dropped.pop_back();
    if (!node->_giveUpReference()) {
      continue;
    }
    node->_dropContent(dropped);
    delete node;
  }
}

// Leaves a fresh node; the references on its children become the caller's.
void JSONData::_dropContent(std::vector<JSONData*>& children) {
  switch (type_) {
    case OBJECT:
      for (const std::unique_ptr<Member>& member : *content_.members) {
        children.push_back(member->value);
      }
      delete content_.members;
      break;
    case ARRAY:
      children.insert(children.end(), content_.elements->begin(), content_.elements->end());
      delete content_.elements;
      break;
    case STRING:
      delete content_.text;
      break;
    default:
      break;
  }
  type_ = NONE;
  content_ = Content();
}

void JSONData::clear() {
  const int type = type_;
  reset();
  setType(type);
}

int JSONData::length() const {
  switch (type_) {
    case OBJECT:
      return static_cast<int>(content_.members->size());
    case ARRAY:
      return static_cast<int>(content_.elements->size());
    default:
      return 0;
  }
}

JSONData* JSONData::getByIndex(int i) const {
  if (i < 0 || i >= length()) {
    return nullptr;
  }
  const auto at = static_cast<std::size_t>(i);
  return type_ == OBJECT ? (*content_.members)[at]->value : (*content_.elements)[at];
}

JSONData* JSONData::getByKey(const std::string& key) const { return getByIndex(_findMember(key)); }

JSONData* JSONData::getByKey(const char* key) const {
  return key == nullptr ? nullptr : getByIndex(_findMember(key));
}

const std::string* JSONData::getKeyAtIndex(int i) const {
  if (type_ != OBJECT || i < 0 || i >= length()) {
    return nullptr;
  }
  return &(*content_.members)[static_cast<std::size_t>(i)]->key;
}

// The last member of that key, or -1.
int JSONData::_findMember(std::string_view key) const {
  if (type_ != OBJECT) {
    return -1;
  }
  int i = length() - 1;
  while (i >= 0 && (*content_.members)[static_cast<std::size_t>(i)]->key != key) {
    --i;
  }
  return i;
}

bool JSONData::booleanValue() const {
  unsigned char byte;
  std::memcpy(&byte, &content_, 1);
  return byte != 0;
}

long long JSONData::longValue() const {
  constexpr double BEYOND_LONG = 9223372036854775808.0;  // 2^63
  switch (type_) {
    case BOOLEAN:
      return content_.boolean;
    case LONG:
      return content_.number;
    case DOUBLE:
      if (content_.real != content_.real) {
        return 0;  // not a number
      }
      if (content_.real >= BEYOND_LONG) {
        return std::numeric_limits<long long>::max();
      }
      if (content_.real < -BEYOND_LONG) {
        return std::numeric_limits<long long>::min();
      }
      return static_cast<long long>(content_.real);
    default:
      return 0;
  }
}

double JSONData::doubleValue() const {
  switch (type_) {
    case BOOLEAN:
      return content_.boolean;
    case LONG:
      return static_cast<double>(content_.number);
    case DOUBLE:
      return content_.real;
    default:
      return 0;
  }
}

const std::string* JSONData::stringValue() const {
  return type_ == STRING ? content_.text : nullptr;
}

void JSONData::setByKey(const std::string& key, JSONData* value) {
  std::string name = key;  // it may be part of the content that goes,
  if (value != nullptr) {
    value->retain();  // and so may the value
  }
  setType(OBJECT);
  const int i = _findMember(name);
  if (value == nullptr) {
    erase(i);
  } else if (i < 0) {
    _appendMember(std::move(name), value);
  } else {
    JSONData*& slot = (*content_.members)[static_cast<std::size_t>(i)]->value;
    release(std::exchange(slot, value));
  }
}

void JSONData::setByKey(const char* key, JSONData* value) {
  if (key != nullptr) {
    setByKey(std::string(key), value);
  }
}

// Takes over the caller's reference on the value.
void JSONData::_appendMember(std::string&& key, JSONData* value) {
  content_.members->push_back(std::make_unique<Member>(Member{std::move(key), value}));
}

void JSONData::setByIndex(int i, JSONData* value) {
  const int end = type_ == ARRAY ? length() : 0;
  if (value == nullptr) {
    if (type_ == ARRAY) {
      erase(i);
    }
    return;
  }
  if (i < 0 || (i > end && i - end > MAX_PADDING)) {
    return;
  }
  value->retain();  // first: it may be part of the content that goes
  setType(ARRAY);
  Elements& elements = *content_.elements;
  if (i < end) {
    release(std::exchange(elements[static_cast<std::size_t>(i)], value));
    return;
  }
  while (length() < i) {
    auto* const padding = new JSONData;
    padding->setNull();
    padding->retain();
    elements.push_back(padding);
  }
  elements.push_back(value);
}

void JSONData::erase(int i) {
  if (i < 0 || i >= length()) {
    return;
  }
  JSONData* const value = getByIndex(i);
  if (type_ == OBJECT) {
    content_.members->erase(content_.members->begin() + i);
  } else {
    content_.elements->erase(content_.elements->begin() + i);
  }
  release(value);
}

void JSONData::erase(const char* key) {
  if (key != nullptr) {
    erase(_findMember(key));
  }
}

void JSONData::erase(const std::string& key) { erase(_findMember(key)); }

JSONData* JSONData::clone() const {
  auto* const twin = new JSONData;
  twin->_copyContent(*this);
  return twin;
}

void JSONData::copy(const JSONData& other) {
  if (&other == this) {
    return;
  }
  JSONData twin;  // whole before anything goes: the other may hold this node or be held by it
  twin._copyContent(other);
  std::swap(type_, twin.type_);
  std::swap(content_, twin.content_);
}

// Only into a fresh node.
void JSONData::_copyContent(const JSONData& other) {
  struct Pair {
    const JSONData* from;
    JSONData* to;
  };
  std::vector<Pair> open = {{&other, this}};
  while (!open.empty()) {
    const Pair pair = open.back();
    open.pop_back();
    pair.to->_copyFlat(*pair.from);
    for (int i = 0; i < pair.from->length(); ++i) {
      auto* const child = new JSONData;
      child->retain();
      if (pair.from->type_ == OBJECT) {
        pair.to->_appendMember(std::string(*pair.from->getKeyAtIndex(i)), child);
      } else {
        pair.to->content_.elements->push_back(child);
      }
      open.push_back({pair.from->getByIndex(i), child});
    }
  }
}

// Type and scalar content; a container stays empty.
void JSONData::_copyFlat(const JSONData& other) {
  setType(other.type_);
  switch (type_) {
    case OBJECT:
    case ARRAY:
      break;
    case STRING:
      *content_.text = *other.content_.text;
      break;
    default:
      content_ = other.content_;
      break;
  }
}

}  // namespace kestrel
