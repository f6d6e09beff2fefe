// SPDX-License-Identifier: MIT
// A directory that a test has for itself, empty at first; gone with everything in it when the test is over.
#pragma once

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "mdnsproxy-unit-XXXXXX").string();
    path_ = mkdtemp(pattern.data());
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  const std::string& path() const { return path_; }
  std::string path_of(const std::string& name) const { return path_ + "/" + name; }

  // Writes the file as a whole, over what it held.
  void write(const std::string& name, const std::string& content) const {
    std::ofstream(path_of(name), std::ios::binary | std::ios::trunc) << content;
  }

  // What the file holds; "" when it is not there.
  std::string read(const std::string& name) const {
    std::ifstream file(path_of(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  // What the file holds, once it holds something; "" after ten seconds.
  std::string wait_for(const std::string& name) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (read(name).empty() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return read(name);
  }

  bool has(const std::string& name) const { return std::filesystem::exists(path_of(name)); }

 private:
  std::string path_;
};
