#include "kestrel/json/JSOM.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

namespace kestrel {

// All usable from the constructors of other static objects.
constinit int JSOM::defaultPrecision = 4;
constinit const JSOM JSOM::BLANK(UNBOUND);
constinit JSOM JSOM::JERROR(NULL_REFERENCE);
// Not constinit, which clang 14 does not take for a string: first in the order of initialisation
// instead.
__attribute__((init_priority(101))) const std::string JSOM::EMPTY_STRING;

// The place of a container that was made because a missing value was indexed. It joins the tree
// when something is written to it or below it, so that a search for a missing value leaves the tree
// as it is. Which node stands there is settled then, and not before: several handles may wait for
// one place, and all of them find the node that the first write has put there.
struct JSOM::Place {
  Place() = default;
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;
  ~Place() {
    JSONData::release(container);
    JSONData::release(node);
    // One after the other: a path may be longer than the thread's stack.
    while (outer != nullptr && outer.use_count() == 1) {
      std::shared_ptr<Place> next = std::move(outer->outer);
      outer = std::move(next);
    }
  }

  // The node that stands in the tree here now; otherwise an empty one that waits.
  JSONData* lookUp() {
    for (Place* place : _waitingPath()) {
      JSONData* const found = place->_findInTree();
      if (found == nullptr) {
        break;
      }
      place->_settle(found);
    }
    return node;
  }

  // As above; puts what waits into the tree.
  JSONData* fill() {
    for (Place* place : _waitingPath()) {
      JSONData* const found = place->_findInTree();
      if (found == nullptr) {
        place->_store();
      }
      place->_settle(found == nullptr ? place->node : found);
    }
    return node;
  }

  static bool areTheSame(const Place* one, const Place* other) {
    while (one != other && one != nullptr && other != nullptr &&
           one->isElement == other->isElement && one->index == other->index &&
           one->key == other->key) {
      if (one->outer == nullptr && other->outer == nullptr) {
        return one->container == other->container;
      }
      one = one->outer.get();
      other = other->outer.get();
    }
    return one == other;
  }

  JSONData* container = nullptr;  // what `node` goes into; one reference each
  JSONData* node = nullptr;       // empty until it stands in the tree
  bool isElement = false;
  int index = 0;
  std::string key;  // a copy: the caller's need not outlive the handles indexed from the one it was
                    // given for
  std::shared_ptr<Place> outer;  // of `container`, if that had to wait too
  bool isFilled = false;

 private:
  // The outermost first; empty when there is nothing to wait for.
  std::vector<Place*> _waitingPath() {
    std::vector<Place*> path;
    for (Place* place = this; place != nullptr && !place->isFilled; place = place->outer.get()) {
      path.push_back(place);
    }
    std::reverse(path.begin(), path.end());
    return path;
  }
  JSONData* _container() const { return outer == nullptr ? container : outer->node; }
  JSONData* _findInTree() const {
    return isElement ? _elementOf(*_container(), index) : _container()->getByKey(key);
  }
  void _store() {
    if (isElement) {
      _container()->setByIndex(index, node);
    } else {
      _container()->setByKey(key, node);
    }
  }
  void _settle(JSONData* settled) {
    settled->retain();
    JSONData::release(std::exchange(node, settled));
    isFilled = true;
  }
};

JSOM::JSOM(JSONData* node) : JSOM(node, static_cast<JSONData*>(nullptr)) {}

JSOM::JSOM(JSONData* node, JSONData* parent) : parent_(parent), infoType_(NULL_REFERENCE) {
  if (parent != nullptr) {
    parent->retain();
  }
  if (node != nullptr) {
    _bind(node);
  }
}

JSOM::JSOM(JSONData* parent, int index) : parent_(parent), infoType_(PENDING_INDEX) {
  if (parent != nullptr) {
    parent->retain();
  }
  info_.index = index;
}

JSOM::JSOM(JSONData* parent, const char* key)
    : parent_(parent), infoType_(key == nullptr ? NULL_REFERENCE : PENDING_KEY) {
  if (parent != nullptr) {
    parent->retain();
  }
  if (key != nullptr) {
    info_.key = key;
  }
}

JSOM::JSOM(JSONData* parent, const std::string& key)
    : parent_(parent), infoType_(PENDING_KEY_STRING) {
  if (parent != nullptr) {
    parent->retain();
  }
  info_.keyString = &key;
}

JSOM::JSOM(const JSOM& other)
    : parent_(other.parent_), infoType_(other.infoType_), info_(other.info_), place_(other.place_) {
  if (parent_ != nullptr) {
    parent_->retain();
  }
  if (infoType_ == BOUND) {
    info_.node->retain();
  }
}

JSOM::~JSOM() {
  if (infoType_ == BOUND) {
    JSONData::release(info_.node);
  }
  JSONData::release(parent_);
  parent_ = nullptr;
  infoType_ = NULL_REFERENCE;
}

JSOM& JSOM::operator=(const JSOM& other) {
  if (&other != this && other._node() != nullptr) {
    _copyFrom(*other._node(), "operator[](int32_t)");  // kept: the name that readers know
  }
  return *this;
}

void JSOM::copy(const JSOM& other) {
  if (other._node() != nullptr) {
    _copyFrom(*other._node(), "copy()");
  } else if (JSONData* const node = makeInfoNode("copy()")) {
    node->setBoolean(false);
  }
}

void JSOM::_copyFrom(const JSONData& content, const char* operation) {
  if (infoType_ == BOUND && place_ == nullptr) {
    info_.node->copy(content);
    return;
  }
  JSONData twin;  // the content may be the tree that the node is about to be stored in
  twin.copy(content);
  if (JSONData* const node = makeInfoNode(operation)) {
    node->copy(twin);
  }
}

bool JSOM::operator==(const JSOM& other) const {
  if (infoType_ != other.infoType_) {
    return false;
  }
  switch (infoType_) {
    case UNBOUND:
      return this == &other;
    case BOUND:
      return _node() == other._node();
    case PENDING_KEY:
      return _isInSameContainer(other) && std::strcmp(info_.key, other.info_.key) == 0;
    case PENDING_KEY_STRING:
      return _isInSameContainer(other) && *info_.keyString == *other.info_.keyString;
    case PENDING_INDEX:
      return _isInSameContainer(other) && info_.index == other.info_.index;
    case NULL_REFERENCE:
      break;
  }
  return true;
}

void JSOM::_reportError(const char* operation, const char* message) {
  std::fprintf(stderr, "JSOM::%s: %s\n", operation, message);
}

bool JSOM::_isInSameContainer(const JSOM& other) const {
  return place_ == nullptr || other.place_ == nullptr
             ? parent_ == other.parent_
             : Place::areTheSame(place_.get(), other.place_.get());
}

JSONData* JSOM::_node() const {
  if (infoType_ != BOUND) {
    return nullptr;
  }
  return place_ == nullptr ? info_.node : place_->lookUp();
}

void JSOM::_bind(JSONData* node) {
  node->retain();
  if (infoType_ == BOUND) {
    JSONData::release(info_.node);
  }
  info_.node = node;
  infoType_ = BOUND;
}

JSONData* JSOM::_elementOf(const JSONData& container, int index) {
  return container.type() == JSONData::ARRAY ? container.getByIndex(index) : nullptr;
}

// Only of a pending handle.
JSONData* JSOM::_findPendingIn(const JSONData& container) const {
  switch (infoType_) {
    case PENDING_INDEX:
      return _elementOf(container, info_.index);
    case PENDING_KEY:
      return container.getByKey(info_.key);
    default:
      return container.getByKey(*info_.keyString);
  }
}

void JSOM::_storePendingIn(JSONData& container, JSONData* node) const {
  switch (infoType_) {
    case PENDING_INDEX:
      container.setByIndex(info_.index, node);
      break;
    case PENDING_KEY:
      container.setByKey(info_.key, node);
      break;
    default:
      container.setByKey(*info_.keyString, node);
      break;
  }
}

JSONData* JSOM::makeInfoNode(const char* operation) {
  if (infoType_ == NULL_REFERENCE) {
    _reportError(operation,
                 parent_ != nullptr ? "internal error, no info" : "null reference error");
    return nullptr;
  }
  JSONData* const settled = place_ == nullptr ? nullptr : place_->fill();
  if (infoType_ == BOUND) {
    if (settled != nullptr) {
      _bind(settled);
    }
  } else {
    JSONData* const container = settled == nullptr ? parent_ : settled;
    JSONData* node = container == nullptr ? nullptr : _findPendingIn(*container);
    if (node == nullptr) {
      node = new JSONData;
      if (container != nullptr) {
        _storePendingIn(*container, node);
      }
    }
    _setParent(container);
    _bind(node);
  }
  place_.reset();
  return info_.node;
}

void JSOM::_setParent(JSONData* parent) {
  if (parent != nullptr) {
    parent->retain();
  }
  JSONData::release(std::exchange(parent_, parent));
}

JSONData* JSOM::_makeContainer(const char* operation, JSONData::Type type) {
  if (infoType_ == BOUND) {
    return _node();
  }
  if (infoType_ == NULL_REFERENCE || parent_ == nullptr) {
    JSONData* const node = makeInfoNode(operation);
    if (node != nullptr) {
      node->setType(type);
    }
    return node;
  }
  JSONData* const container = place_ == nullptr ? parent_ : place_->node;
  if (JSONData* const present = _findPendingIn(*container)) {
    _setParent(container);
    _bind(present);
    place_.reset();
    return present;
  }
  std::shared_ptr<Place> place = _placeOfPending();
  _bind(place->node);
  place->node->setType(type);
  place_ = place;
  return place->node;
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
  place->node = new JSONData;
  place->node->retain();
  return place;
}

// What is found stands in the tree as its container does; what is missing waits for the container,
// too.
JSOM JSOM::_waitingToo(JSOM handle) const {
  if (handle.infoType_ != BOUND) {
    handle.place_ = place_;
  }
  return handle;
}

JSOM JSOM::operator[](int i) { return _elementAt(i, "operator[](int32_t)", "index out of bounds"); }

JSOM JSOM::operator[](const char* key) { return _memberAt(key, "operator[](char *)"); }

JSOM JSOM::operator[](const std::string& key) { return _memberAt(key, "operator[](string &)"); }

JSOM JSOM::at(int i) { return _elementAt(i, "at(int32_t)", "index out of range"); }

JSOM JSOM::at(const char* key) { return _memberAt(key, "at(char *)"); }

JSOM JSOM::at(const std::string& key) { return _memberAt(key, "at(string &)"); }

JSOM JSOM::_elementAt(int i, const char* operation, const char* message) {
  JSONData* const container = _makeContainer(operation, JSONData::ARRAY);
  if (container == nullptr) {
    return JERROR;
  }
  const int end = container->length();
  if (i < -1 || i > end) {
    _reportError(operation, message);
    return JERROR;
  }
  JSONData* const element = container->getByIndex(i);
  return _waitingToo(element != nullptr ? JSOM(element, container)
                                        : JSOM(container, i == -1 ? end : i));
}

JSOM JSOM::_memberAt(const char* key, const char* operation) {
  JSONData* const container = _makeContainer(operation, JSONData::OBJECT);
  if (container == nullptr) {
    return JERROR;
  }
  if (key == nullptr) {
    _reportError(operation, "null key pointer");
    return JERROR;
  }
  JSONData* const member = container->getByKey(key);
  return _waitingToo(member != nullptr ? JSOM(member, container) : JSOM(container, key));
}

JSOM JSOM::_memberAt(const std::string& key, const char* operation) {
  JSONData* const container = _makeContainer(operation, JSONData::OBJECT);
  if (container == nullptr) {
    return JERROR;
  }
  JSONData* const member = container->getByKey(key);
  return _waitingToo(member != nullptr ? JSOM(member, container) : JSOM(container, key));
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
  if (JSONData* const node = makeInfoNode("setLong()")) {
    node->setLong(value);
  }
}

void JSOM::setBoolean(bool value) {
  if (JSONData* const node = makeInfoNode("setBoolean()")) {
    node->setBoolean(value);
  }
}

void JSOM::setDouble(long double value) {
  if (JSONData* const node = makeInfoNode("setDouble()")) {
    node->setDouble(value);
  }
}

void JSOM::setString(const char* value) {
  JSONData* const node = makeInfoNode("setString(char *)");
  if (node == nullptr) {
    return;
  }
  if (value == nullptr) {
    node->setNull();
  } else {
    node->setString(value);
  }
}

void JSOM::setString(const std::string& value) {
  if (JSONData* const node = makeInfoNode("setString(string &)")) {
    node->setString(value);
  }
}

void JSOM::clear() {
  if (JSONData* const node = _node()) {
    node->clear();
  }
}

void JSOM::erase(int i) {
  if (JSONData* const node = _node()) {
    node->erase(i);
  }
}

void JSOM::erase(const char* key) {
  if (JSONData* const node = _node()) {
    node->erase(key);
  }
}

void JSOM::erase(const std::string& key) {
  if (JSONData* const node = _node()) {
    node->erase(key);
  }
}

}  // namespace kestrel
