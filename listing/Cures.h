// What a user can do about files without names: the Debian package that has the symbols, as far as
// this machine's package database tells (/var/lib/dpkg, read; nothing is run). One thread. The
// database is read when it is first asked, once.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "listing/File.h"
#include "listing/ListCache.h"

namespace listing {

class Cures {
 public:
  // Of what may be asked: paths in the recorded machine's file system.
  explicit Cures(const Options& options);

  // Finds the packages of these files in one go; in `cache`, if it was asked for the same ones
  // before and the database has not changed since.
  void prepare(const std::vector<std::string>& paths, ListCache& cache);
  // One sentence; empty if there is nothing to be done or nothing known.
  std::string of(const File& file, const Result& result) const;

 private:
  using Paths = std::set<std::string, std::less<>>;

  std::string _sourceOf(const Paths& wanted) const;
  void _search(const Paths& wanted);
  void _searchPackage(std::string_view list, const std::string& package, const Paths& wanted);
  bool _takeKept(ListCache& cache, const std::string& source);
  void _keep(ListCache& cache, const std::string& source) const;
  std::string _ofStripped(const File& file, const Result& result) const;
  std::string _debugPackageOf(const std::string& path) const;

  std::string root_;
  std::unordered_map<std::string, std::string> packages_;  // by path
};

}  // namespace listing
