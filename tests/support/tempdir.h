// A fresh working directory for a test, and whole files in it.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/// Makes a directory of its own the working directory, and removes it with all that is in it.
class TempDir {
 public:
  TempDir() : before(std::filesystem::current_path()) {
    std::string name = std::filesystem::temp_directory_path() / "control-XXXXXX";
    EXPECT_NE(mkdtemp(name.data()), nullptr);
    path = name;
    std::filesystem::current_path(path);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir() {
    std::filesystem::current_path(before);
    std::filesystem::remove_all(path);
  }

 private:
  const std::filesystem::path before;
  std::filesystem::path path;
};

inline std::string readWhole(const std::string& name) {
  std::ifstream in(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void writeWhole(const std::string& name, const std::string& bytes) {
  std::ofstream(name, std::ios::binary | std::ios::trunc) << bytes;
}
