#include "tests/support/TempDir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

TempDir::TempDir() {
  path_ = (std::filesystem::temp_directory_path() / "tracemill-test-XXXXXX").string();
  if (mkdtemp(path_.data()) == nullptr) {
    throw std::runtime_error("cannot create a temp folder like " + path_);
  }
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::write(const std::string& name, const std::string& bytes) const {
  std::ofstream out(file(name), std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) {
    throw std::runtime_error("cannot write " + file(name));
  }
  return file(name);
}

std::string TempDir::read(const std::string& name) const {
  std::ifstream in(file(name), std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool TempDir::has(const std::string& name) const {
  std::error_code ignored;
  return std::filesystem::exists(std::filesystem::symlink_status(file(name), ignored));
}
