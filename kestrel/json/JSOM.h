// The handle through which JSON trees are read and edited: the configuration, the symbol cache
// index, any document that is loaded or saved. A handle is bound to a node, or stands for a place
// that does not exist yet (a missing member, the slot after the last element), or is the null
// reference. Reading never fails: what is missing gives the caller's default. A place that does not
// exist turns into a node of the tree only when something is written to it or below it, so looking
// for a missing value adds nothing. The node is made once: every handle that waits for the place
// writes to the one that is there by then.
//
//   JSOM config;
//   if (config.fromFile("tracemill.conf").isError()) ...
//   const long long size = config["cache"]["size"].longValue(16);
//
// Copies of a handle share its node. Assignment is different: it makes the node on the left a deep
// copy of the one on the right. Typed reads of a value of another type convert the node in place,
// as told at each. A pending handle does not copy its key: the key must outlive it (not the handles
// indexed from it).
//
// Errors print one line on standard error, "JSOM::<operation>: <message>", and give JERROR, false
// or nothing; nothing is thrown. Not thread-safe, as the nodes.
#pragma once

#include <istream>
#include <memory>
#include <ostream>
#include <string>

#include "kestrel/json/JSONData.h"

namespace kestrel {

class JSOM {
 public:
  // Fraction digits of a number that stringValue() turns into text.
  static int defaultPrecision;
  // Unbound: to be copied.
  static const JSOM BLANK;
  // The null reference that failed operations return; it takes no value.
  static JSOM JERROR;
  // The usual default for stringValue().
  static const std::string EMPTY_STRING;

  JSOM() = default;  // unbound: a root to be written to
  // Bound to the node, or a null reference. The handle takes references of its own on node and
  // parent.
  explicit JSOM(JSONData* node);
  JSOM(JSONData* node, JSONData* parent);
  // Pending: the element or member of `parent` that a write creates. The key is borrowed.
  JSOM(JSONData* parent, int index);
  JSOM(JSONData* parent, const char* key);
  JSOM(JSONData* parent, const std::string& key);
  JSOM(const JSOM& other);
  ~JSOM();

  // Deep copy of the other's value into this handle's node; nothing if the other is not bound or is
  // this handle.
  JSOM& operator=(const JSOM& other);
  // The same, but a value that is not bound makes this the boolean false.
  void copy(const JSOM& other);
  // Whether both are bound to the same node, stand for the same missing value, or are null
  // references.
  bool operator==(const JSOM& other) const;

  // Element i, or the value of member i; -1 or size() is the slot after the last one. JERROR
  // beyond. An unbound handle becomes an array first.
  JSOM operator[](int i);
  // Member `key`, pending if it is missing. JERROR for a null key. An unbound handle becomes an
  // object first.
  JSOM operator[](const char* key);
  JSOM operator[](const std::string& key);
  // The same as the index operators.
  JSOM at(int i);
  JSOM at(const char* key);
  JSOM at(const std::string& key);
  int size() const;  // members or elements; 0 unless bound to an object or array
  // The key of member i, borrowed, valid as long as the member; null if there is none.
  const std::string* key(int i) const;

  // All false unless the handle is bound.
  bool isNull() const;
  bool isBoolean() const;
  bool isNumber() const;
  bool isString() const;
  bool isArray() const;
  bool isObject() const;
  // Whether this is the null reference, as JERROR and its copies are.
  bool isError() const { return infoType_ == NULL_REFERENCE; }

  // Number or boolean, or a string of an optional '-' and digits, which becomes the number.
  long long longValue(long long def) const;
  // Number or boolean, or a string that is a number, which becomes that double. Stored values are
  // doubles.
  long double doubleValue(long double def) const;
  // Boolean or number, or one of the strings true, yes, on, t, y, 1, off, f, n, 0 in any case,
  // which becomes the boolean. "false" and "no" are not recognised, deliberately.
  bool booleanValue(bool def) const;
  // String, boolean or number; the latter two become their text. The reference is to the node's
  // text or to `def`, and lives as long as that: never pass a temporary that the result outlives.
  const std::string& stringValue(const std::string& def) const;
  const char* stringValuePtr(const char* def) const;

  // Each creates the node of a pending handle first; a null reference takes nothing.
  void setLong(long long value);
  void setBoolean(bool value);
  void setDouble(long double value);
  void setString(const char* value);  // a null pointer sets null
  void setString(const std::string& value);
  // Of a bound handle only; see JSONData.
  void clear();
  void erase(int i);
  void erase(const char* key);
  void erase(const std::string& key);

  // Append to `out`; nothing for a handle that is not bound.
  void toString(std::string& out, int precision) const;         // indented
  void toCompactString(std::string& out, int precision) const;  // on one line
  // Parse into this handle's node. This handle, or JERROR on failure. Text after the value is left
  // alone, as is everything after a zero byte. Characters given by pointer must not belong to the
  // value of this handle.
  JSOM& fromString(const char* text);
  JSOM& fromString(const std::string& text);
  JSOM& fromFile(const char* path);
  JSOM& fromStream(std::istream& in);
  // False if the file could not be written whole.
  bool toFile(const char* path, int precision) const;
  bool toCompactFile(const char* path, int precision) const;
  void toStream(std::ostream& out) const;

  // Replaces "${NAME}" by the environment variable in every string of the tree (not in keys). What
  // names no variable stays as it is; what was put in is not looked at again.
  void expandValues();

 private:
  // What the handle stands for, and with it which field of Info is meant.
  enum InfoType { UNBOUND, BOUND, PENDING_KEY, PENDING_KEY_STRING, PENDING_INDEX, NULL_REFERENCE };
  union Info {
    int index = -1;
    JSONData* node;  // one reference
    const char* key;
    const std::string* keyString;
  };
  struct Place;

  constexpr explicit JSOM(InfoType infoType) : infoType_(infoType) {}

  JSONData* _node() const;
  bool _isType(int type) const;
  void _bind(JSONData* node);
  void _setParent(JSONData* parent);
  // Before every write: the node of this handle: the one that stands in its place by now, or a new
  // one, stored in the tree. Null after a message if there is no way to make one.
  JSONData* makeInfoNode(const char* operation);
  void _copyFrom(const JSONData& content, const char* operation);
  // Before indexing: the node, created as an empty container if there is none. Null after a
  // message.
  JSONData* _makeContainer(const char* operation, JSONData::Type type);
  static JSONData* _elementOf(const JSONData& container, int index);
  JSONData* _findPendingIn(const JSONData& container) const;
  void _storePendingIn(JSONData& container, JSONData* node) const;
  std::shared_ptr<Place> _placeOfPending() const;
  JSOM _waitingToo(JSOM handle) const;
  bool _isInSameContainer(const JSOM& other) const;
  JSOM _elementAt(int i, const char* operation, const char* message);
  JSOM _memberAt(const char* key, const char* operation);
  JSOM _memberAt(const std::string& key, const char* operation);
  JSONData* _convertToNumber(JSONData::Type type) const;
  const std::string* _convertToText() const;
  static bool _writeFile(const char* path, const std::string& text, const char* operation);
  static void _reportError(const char* operation, const char* message);
  static void _expandValues(JSOM& h);
  static void _expandString(JSOM& h);

  // The container the handle was reached from, one reference; null for a root.
  JSONData* parent_ = nullptr;
  InfoType infoType_ = UNBOUND;
  Info info_;
  // Of the node of a bound handle, or of the container of a pending one, where those wait to join
  // the tree; usually null.
  std::shared_ptr<Place> place_;
};

}  // namespace kestrel
