// The folder that is being prepared: built beside its place under a temporary name, and put there
// whole, at the end. What stands there is replaced only if it was prepared before; anything else is
// refused. An unfinished folder is removed. Errors are thrown as PrepareError.
#pragma once

#include <string>

namespace prepare {

class PreparedFolder {
 public:
  // Refuses a place where something else stands.
  explicit PreparedFolder(const std::string& place);
  ~PreparedFolder();
  PreparedFolder(const PreparedFolder&) = delete;
  PreparedFolder& operator=(const PreparedFolder&) = delete;

  // Where files are to be written; absolute.
  const std::string& workPath() const { return work_; }
  std::string workPath(const std::string& name) const { return work_ + "/" + name; }
  // Where they will be found; absolute.
  const std::string& finalPath() const { return place_; }
  std::string finalPath(const std::string& name) const { return place_ + "/" + name; }

  // Writes a file of exactly this text.
  void write(const std::string& name, const std::string& text) const;
  // Puts the folder in its place.
  void commit();

  // The name of the folder of a recording: perf.data.prepared.
  static std::string placeFor(const std::string& recording);

 private:
  void _remove() const;

  std::string place_;
  std::string work_;
  bool isCommitted_ = false;
};

}  // namespace prepare
