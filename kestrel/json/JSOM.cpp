#include "kestrel/json/JSOM.h"

#include <cstdio>
#include <cstring>

namespace kestrel {

// All usable from the constructors of other static objects.
constinit int JSOM::defaultPrecision = 4;
constinit const JSOM JSOM::BLANK(UNBOUND);
constinit JSOM JSOM::JERROR(NULL_REFERENCE);
// Not constinit, which clang 14 does not take for a string: first in the order of initialisation
// instead.
__attribute__((init_priority(101))) const std::string JSOM::EMPTY_STRING;

// A container that was made because a missing value was indexed. It joins the tree when something
// is written to it or below it, so that a search for a missing value leaves the tree as it is.
// Shared by the handles that were indexed from there.
struct JSOM::Place {
  Place() = default;
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;
  ~Place() {
    JSONData::release(container);
    JSONData::release(node);
  }

  void fill() {
    if (isElement) {
      container->setByIndex(index, node);
    } else {
      container->setByKey(key, node);
    }
    isFilled = true;
  }

  JSONData* container = nullptr;  // what `node` goes into; one reference each
  JSONData* node = nullptr;
  bool isElement = false;
  int index = 0;
  std::string key;  // a copy: the caller's need not outlive the handles indexed from the one it was
                    // given for
  std::shared_ptr<Place> outer;  // of `container`, if that has to wait too
  bool isFilled = false;
};

JSOM::JSOM(JSONData* node) : JSOM(node, static_cast<JSONData*>(nullptr)) {}

JSOM::JSOM(JSONData* node, JSONData* parent) : parent_(parent), infoType_(NULL_REFERENCE) {
  if (parent != nullptr) parent->retain();
  if (node != nullptr) _bind(node);
}

JSOM::JSOM(JSONData* parent, int index) : parent_(parent), infoType_(PENDING_INDEX) {
  if (parent != nullptr) parent->retain();
  info_.index = index;
}

JSOM::JSOM(JSONData* parent, const char* key)
    : parent_(parent), infoType_(key == nullptr ? NULL_REFERENCE : PENDING_KEY) {
  if (parent != nullptr) parent->retain();
  if (key != nullptr) info_.key = key;
}

JSOM::JSOM(JSONData* parent, const std::string& key)
    : parent_(parent), infoType_(PENDING_KEY_STRING) {
  if (parent != nullptr) parent->retain();
  info_.keyString = &key;
}

JSOM::JSOM(const JSOM& other)
    : parent_(other.parent_), infoType_(other.infoType_), info_(other.info_), place_(other.place_) {
  if (parent_ != nullptr) parent_->retain();
  if (infoType_ == BOUND) info_.node->retain();
}

JSOM::~JSOM() {
  JSONData::release(_node());
  JSONData::release(parent_);
  parent_ = nullptr;
  infoType_ = NULL_REFERENCE;
}

JSOM& JSOM::operator=(const JSOM& other) {
  if (&other != this && other._node() != nullptr) {
    makeInfoNode("operator[](int32_t)", other._node());  // kept: the name that readers know
  }
  return *this;
}

void JSOM::copy(const JSOM& other) {
  if (other._node() != nullptr) {
    makeInfoNode("copy()", other._node());
  } else if (JSONData* const node = makeInfoNode("copy()")) {
    node->setBoolean(false);
  }
}

bool JSOM::operator==(const JSOM& other) const {
  if (infoType_ != other.infoType_) return false;
  switch (infoType_) {
    case UNBOUND:
      return this == &other;
    case BOUND:
      return info_.node == other.info_.node;
    case PENDING_KEY:
      return parent_ == other.parent_ && std::strcmp(info_.key, other.info_.key) == 0;
    case PENDING_KEY_STRING:
      return parent_ == other.parent_ && *info_.keyString == *other.info_.keyString;
    case PENDING_INDEX:
      return parent_ == other.parent_ && info_.index == other.info_.index;
    case NULL_REFERENCE:
      break;
  }
  return true;
}

void JSOM::_reportError(const char* operation, const char* message) {
  std::fprintf(stderr, "JSOM::%s: %s\n", operation, message);
}

void JSOM::_bind(JSONData* node) {
  node->retain();
  info_.node = node;
  infoType_ = BOUND;
}

JSONData* JSOM::makeInfoNode(const char* operation, const JSONData* content) {
  if (infoType_ == NULL_REFERENCE) {
    _reportError(operation,
                 parent_ != nullptr ? "internal error, no info" : "null reference error");
    return nullptr;
  }
  if (infoType_ == BOUND) {
    if (content != nullptr) info_.node->copy(*content);
  } else {
    auto* const node = new JSONData;
    // Before it is stored, since the content may be the tree that it is stored in.
    if (content != nullptr) node->copy(*content);
    if (parent_ != nullptr) {
      if (infoType_ == PENDING_INDEX) {
        parent_->setByIndex(info_.index, node);
      } else if (infoType_ == PENDING_KEY) {
        parent_->setByKey(info_.key, node);
      } else {
        parent_->setByKey(*info_.keyString, node);
      }
    }
    _bind(node);
  }
  _fillPlaces();
  return info_.node;
}

JSONData* JSOM::_makeContainer(const char* operation, JSONData::Type type) {
  if (infoType_ == BOUND) return info_.node;
  if (infoType_ == NULL_REFERENCE || parent_ == nullptr) {
    JSONData* const node = makeInfoNode(operation);
    if (node != nullptr) node->setType(type);
    return node;
  }
  std::shared_ptr<Place> place = _placeOfPending();
  _bind(new JSONData);
  info_.node->setType(type);
  info_.node->retain();
  place->node = info_.node;
  place_ = place;
  return info_.node;
}

std::shared_ptr<JSOM::Place> JSOM::_placeOfPending() const {
  const auto place = std::make_shared<Place>();
  parent_->retain();
  place->container = parent_;
  if (infoType_ == PENDING_INDEX) {
    place->isElement = true;
    place->index = info_.index;
  } else {
    place->key = infoType_ == PENDING_KEY ? std::string(info_.key) : *info_.keyString;
  }
  place->outer = place_;
  return place;
}

// A place is filled together with all those around it.
void JSOM::_fillPlaces() {
  for (Place* place = place_.get(); place != nullptr && !place->isFilled;
       place = place->outer.get()) {
    place->fill();
  }
  place_.reset();
}

JSOM JSOM::operator[](int i) { return _elementAt(i, "operator[](int32_t)", "index out of bounds"); }

JSOM JSOM::operator[](const char* key) { return _memberAt(key, "operator[](char *)"); }

JSOM JSOM::operator[](const std::string& key) { return _memberAt(key, "operator[](string &)"); }

JSOM JSOM::at(int i) { return _elementAt(i, "at(int32_t)", "index out of range"); }

JSOM JSOM::at(const char* key) { return _memberAt(key, "at(char *)"); }

JSOM JSOM::at(const std::string& key) { return _memberAt(key, "at(string &)"); }

JSOM JSOM::_elementAt(int i, const char* operation, const char* message) {
  JSONData* const container = _makeContainer(operation, JSONData::ARRAY);
  if (container == nullptr) return JERROR;
  const int end = container->length();
  if (i < -1 || i > end) {
    _reportError(operation, message);
    return JERROR;
  }
  JSONData* const element = container->getByIndex(i);
  JSOM handle = element != nullptr ? JSOM(element, container) : JSOM(container, i == -1 ? end : i);
  handle.place_ = place_;
  return handle;
}

JSOM JSOM::_memberAt(const char* key, const char* operation) {
  JSONData* const container = _makeContainer(operation, JSONData::OBJECT);
  if (container == nullptr) return JERROR;
  if (key == nullptr) {
    _reportError(operation, "null key pointer");
    return JERROR;
  }
  JSONData* const member = container->getByKey(key);
  JSOM handle = member != nullptr ? JSOM(member, container) : JSOM(container, key);
  handle.place_ = place_;
  return handle;
}

JSOM JSOM::_memberAt(const std::string& key, const char* operation) {
  JSONData* const container = _makeContainer(operation, JSONData::OBJECT);
  if (container == nullptr) return JERROR;
  JSONData* const member = container->getByKey(key);
  JSOM handle = member != nullptr ? JSOM(member, container) : JSOM(container, key);
  handle.place_ = place_;
  return handle;
}

int JSOM::size() const {
  const JSONData* const node = _node();
  return node == nullptr ? 0 : node->length();
}

const std::string* JSOM::key(int i) const {
  const JSONData* const node = _node();
  return node == nullptr ? nullptr : node->getKeyAtIndex(i);
}

bool JSOM::isNull() const { return _isType(JSONData::NULL_VALUE); }
bool JSOM::isBoolean() const { return _isType(JSONData::BOOLEAN); }
bool JSOM::isNumber() const { return _isType(JSONData::LONG) || _isType(JSONData::DOUBLE); }
bool JSOM::isString() const { return _isType(JSONData::STRING); }
bool JSOM::isArray() const { return _isType(JSONData::ARRAY); }
bool JSOM::isObject() const { return _isType(JSONData::OBJECT); }

bool JSOM::_isType(int type) const {
  const JSONData* const node = _node();
  return node != nullptr && node->type() == type;
}

void JSOM::setLong(long long value) {
  if (JSONData* const node = makeInfoNode("setLong()")) node->setLong(value);
}

void JSOM::setBoolean(bool value) {
  if (JSONData* const node = makeInfoNode("setBoolean()")) node->setBoolean(value);
}

void JSOM::setDouble(long double value) {
  if (JSONData* const node = makeInfoNode("setDouble()")) node->setDouble(value);
}

void JSOM::setString(const char* value) {
  JSONData* const node = makeInfoNode("setString(char *)");
  if (node == nullptr) return;
  if (value == nullptr) {
    node->setNull();
  } else {
    node->setString(value);
  }
}

void JSOM::setString(const std::string& value) {
  if (JSONData* const node = makeInfoNode("setString(string &)")) node->setString(value);
}

void JSOM::clear() {
  if (JSONData* const node = _node()) node->clear();
}

void JSOM::erase(int i) {
  if (JSONData* const node = _node()) node->erase(i);
}

void JSOM::erase(const char* key) {
  if (JSONData* const node = _node()) node->erase(key);
}

void JSOM::erase(const std::string& key) {
  if (JSONData* const node = _node()) node->erase(key);
}

}  // namespace kestrel
