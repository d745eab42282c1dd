// One value of an in-memory JSON tree, with its parser and its serialiser. Containers share their
// children by reference count, and every walk over a tree uses a stack of its own on the heap, so
// that depth costs no thread stack.
//
// Ownership: a new node has no holder (count 0). A container holds one reference on each child;
// other holders call retain() and release(), and the release of the last reference deletes the
// node. A count that reaches 65535 stays there and its node is never freed. A node on the stack
// must not be given to a holder. A node must not be stored into itself or one of its descendants:
// such a ring would never be freed and never be written to its end.
//
// Nothing is thrown; parse errors print one line on standard error. Not thread-safe.
#pragma once

#include <cstdint>
#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel {

template <typename Source>
class JSONDataParser;

class JSONData {
 public:
  // The codes that type() gives. A fresh node is NONE.
  enum Type : std::uint16_t { NONE, NULL_VALUE, BOOLEAN, OBJECT, ARRAY, STRING, LONG, DOUBLE };

  static constexpr int MAX_DEPTH = 10000;       // containers open at once in a parsed text
  static constexpr int MAX_PADDING = 1000000;   // how far past the end setByIndex() pads with nulls
  static constexpr int MAX_REFERENCES = 65535;  // a count that reaches this stays there

  JSONData() = default;
  JSONData(const JSONData&) = delete;
  JSONData& operator=(const JSONData&) = delete;
  ~JSONData();

  int type() const { return type_; }
  int refCount() const { return refCount_; }
  void retain();
  // Gives up one reference; deletes the node if it was the last (or if nobody held the node). Null
  // is fine.
  static void release(JSONData* node);

  // Nothing happens if the node has this type already: a container keeps its children, a string its
  // text.
  void setType(int type);
  void setNull() { setType(NULL_VALUE); }
  void setObject() { setType(OBJECT); }
  void setArray() { setType(ARRAY); }
  void setBoolean(bool value);
  void setLong(long long value);
  void setDouble(long double value);  // kept as a double
  void setString(const std::string& value);
  void setString(const char* value);  // null: an empty string
  // Frees the content and leaves a fresh node, whatever its count.
  void reset();
  // Empties the content and keeps the type: no children, no text, false or zero.
  void clear();
  // Members of an object or elements of an array; 0 for any other type.
  int length() const;

  // Element i, or the value of member i. Borrowed; null if there is none.
  JSONData* getByIndex(int i) const;
  // The value of the last member of that key. Borrowed; null if there is none or this is no object.
  JSONData* getByKey(const std::string& key) const;
  JSONData* getByKey(const char* key) const;
  // The key of member i. Borrowed, valid as long as the member; null if there is none or this is no
  // object.
  const std::string* getKeyAtIndex(int i) const;
  // The first byte of the content, whatever the type: look at type() first.
  bool booleanValue() const;
  // A double is truncated toward zero and held within the range of a long (NaN: 0); a boolean is 0
  // or 1; others 0.
  long long longValue() const;
  double doubleValue() const;
  const std::string* stringValue() const;  // borrowed; null unless this is a string

  // Both make this an object first. The value (shared, not copied) replaces that of the last member
  // of the key or is added at the end; a null value removes that member. A null key does nothing.
  void setByKey(const std::string& key, JSONData* value);
  void setByKey(const char* key, JSONData* value);
  // Makes this an array first. The value replaces element i, or is added at the end, or after as
  // many nulls as it takes to reach i. A null value removes element i of an array. Nothing at all
  // changes for a negative index, one more than MAX_PADDING past the end, or a null value past the
  // end.
  void setByIndex(int i, JSONData* value);
  // Remove an element or member (of a key: the last one). What is not there is not removed.
  void erase(int i);
  void erase(const char* key);
  void erase(const std::string& key);
  // A deep copy that nobody holds yet.
  JSONData* clone() const;
  // Becomes a deep copy of `other`, which may be this node, hold it, or be held by it.
  void copy(const JSONData& other);

  // Parse one value into this node; text after it is left alone. `p` is moved past the value. False
  // on failure: what was complete stays. The text ends at the first zero byte. Members and elements
  // are added to those of a node that is already an object or array. The characters at `p` must not
  // belong to this node or its descendants.
  bool setFromJsonString(const char*& p);
  bool setFromJsonStlString(const std::string& text);
  bool setFromStream(std::istream& in);

  void toJsonString(std::string& out, bool pretty, int precision) const;  // empties `out` first
  // `precision`: at most so many fraction digits. `depth`: of this node, for the indentation.
  void appendJsonString(std::string& out, bool pretty, int precision, int depth) const;
  // The text of a null, boolean, long, double or string (without quotes); nothing for other types.
  void appendStringValue(std::string& out, int precision) const;
  static void quoteJsonString(const std::string& s, std::string& out);
  // Compact, at most six fraction digits.
  void appendStream(std::ostream& out) const;

 private:
  struct Member {
    std::string key;
    JSONData* value;  // one reference
  };
  // Members are allocated one by one, so that a borrowed key stays where it is while others come
  // and go.
  using Members = std::vector<std::unique_ptr<Member>>;
  using Elements = std::vector<JSONData*>;  // one reference each
  // A bare union keeps a node at 16 bytes; what it holds is owned, and `type_` says which it is.
  union Content {
    unsigned char boolean;
    std::int64_t number = 0;
    double real;
    std::string* text;
    Members* members;
    Elements* elements;
  };

  template <typename Source>
  friend class JSONDataParser;

  bool _giveUpReference();
  void _dropContent(std::vector<JSONData*>& children);
  int _findMember(std::string_view key) const;
  void _appendMember(std::string&& key, JSONData* value);
  void _copyContent(const JSONData& other);
  void _copyFlat(const JSONData& other);

  std::uint16_t type_ = NONE;
  std::uint16_t refCount_ = 0;
  Content content_;
};

}  // namespace kestrel
