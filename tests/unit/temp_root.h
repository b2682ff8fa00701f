// Shared by the unit tests that touch the appliance's files: a temporary root folder, installed as
// the platform root while the object lives, under which shell commands are recorded, not run.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "platform/platform.h"

namespace tessera::test {

// The whole content of a file; "" when there is none.
inline std::string readFile(const std::string& name) {
  std::ifstream in(name, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

class TempRoot {
 public:
  TempRoot() {
    char pattern[] = "/tmp/tessera-unit-XXXXXX";
    // Thrown, not asserted: a root of "/tmp" would have the destructor empty it.
    if (mkdtemp(pattern) == nullptr) throw std::runtime_error("no temporary folder");
    dir = pattern;
    settings.root = dir;
    settings.recordShell = dir + "/shell.txt";
    apply();
  }
  ~TempRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
    platform::configure(platform::Settings{});
  }
  TempRoot(const TempRoot&) = delete;
  TempRoot& operator=(const TempRoot&) = delete;

  // Installs `settings` again after a test changed them.
  void apply() const { platform::configure(settings); }
  // Writes an appliance file (e.g. "/proc/mounts") under the root, making its folders.
  void write(const std::string& path, const std::string& text) const {
    const std::filesystem::path file = dir + path;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
  }
  std::string read(const std::string& path) const { return readFile(dir + path); }

  std::string dir;
  platform::Settings settings;
};

}  // namespace tessera::test
