// In place of BundleReader.cpp and BundleWriter.cpp where libarchive is missing.
#include "prepare/Bundle.h"
#include "prepare/PrepareError.h"

namespace prepare {

namespace {

[[noreturn]] void refuse(const std::string& path) {
  throw PrepareError(path +
                     ": this tracemill-prepare was built without libarchive and knows no bundles.");
}

}  // namespace

BundleWriter::BundleWriter(const std::string& place, const std::string&)
    : place_((refuse(place), place)), file_(place) {}
BundleWriter::~BundleWriter() = default;
bool BundleWriter::addFile(const std::string&, const std::string&) { refuse(place_); }
void BundleWriter::commit() { refuse(place_); }

Bundle Bundle::unpack(const std::string& path, const std::string&, bool) { refuse(path); }

}  // namespace prepare
