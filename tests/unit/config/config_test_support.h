// Shared by the configuration tests: a temporary root with a readerconfig folder, and a way to
// read the Logger's lines.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/logger.h"
#include "platform/platform.h"

namespace tessera::test {

// A fresh root folder with "readerconfig/" under it, installed as the platform root while the
// object lives.
class TempRoot {
 public:
  TempRoot() {
    char pattern[] = "/tmp/tessera-config-XXXXXX";
    const char* made = mkdtemp(pattern);
    EXPECT_NE(made, nullptr);
    dir_ = made ? made : "/tmp";
    std::filesystem::create_directories(dir_ + "/readerconfig");
    platform::Settings settings;
    settings.root = dir_;
    platform::configure(settings);
  }
  ~TempRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
    platform::configure(platform::Settings{});
  }
  TempRoot(const TempRoot&) = delete;
  TempRoot& operator=(const TempRoot&) = delete;

  // Writes "/readerconfig/AdvReaderConfig.xml" under the root.
  void config(const std::string& text) const { write("AdvReaderConfig.xml", text); }
  // Writes "/readerconfig/cloud.conf" under the root.
  void cloud(const std::string& text) const { write("cloud.conf", text); }
  // Copies a sample root of tests/data into this root.
  void copySample(const char* name) const {
    std::string source = sourceDir() + "/tests/data/" + name;
    std::filesystem::copy(source, dir_,
                          std::filesystem::copy_options::recursive |
                              std::filesystem::copy_options::overwrite_existing);
  }
  const std::string& dir() const { return dir_; }

  // The source tree: TESSERA_SOURCE under ctest, else found from this file's path.
  static std::string sourceDir() {
    if (const char* source = std::getenv("TESSERA_SOURCE")) return source;
    std::string file = __FILE__;
    return file.substr(0, file.rfind("/tests/unit/"));
  }

 private:
  void write(const char* name, const std::string& text) const {
    std::ofstream out(dir_ + "/readerconfig/" + name, std::ios::binary);
    out << text;
  }
  std::string dir_;
};

// The Logger echoes its lines to standard output only when MVM_DEBUG is "enable" at start. A
// test that reads log lines calls this first: in a process without the echo it runs the same
// test again in a child with the echo on, records the child's verdict and returns false; in the
// child it returns true and the test goes on.
inline bool inEchoingProcess() {
  if (Logger::echo()) return true;
  char self[PATH_MAX] = {};
  ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) {
    ADD_FAILURE() << "cannot find the test binary";
    return false;
  }
  const auto* info = testing::UnitTest::GetInstance()->current_test_info();
  std::string command = std::string("MVM_DEBUG=enable '") + self + "' --gtest_filter='" +
                        info->test_suite_name() + "." + info->name() + "' 2>&1";
  FILE* child = popen(command.c_str(), "r");
  if (child == nullptr) {
    ADD_FAILURE() << "cannot run " << command;
    return false;
  }
  std::string output;
  char buffer[4096];
  size_t got;
  while ((got = fread(buffer, 1, sizeof buffer, child)) > 0) output.append(buffer, got);
  int status = pclose(child);
  EXPECT_EQ(status, 0) << output;
  EXPECT_NE(output.find("[  PASSED  ] 1 test"), std::string::npos) << output;
  return false;
}

}  // namespace tessera::test
