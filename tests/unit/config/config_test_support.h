// Shared by the configuration tests: a temporary root with a readerconfig folder.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

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

  // Writes "/readerconfig/AdvReaderConfig.xml" under the root; "" removes it.
  void config(const std::string& text) const { write("AdvReaderConfig.xml", text); }
  // Writes "/readerconfig/cloud.conf" under the root.
  void cloud(const std::string& text) const { write("cloud.conf", text); }
  // Copies tests/data/demo (the demo's configuration) into this root.
  void copyDemo() const {
    std::filesystem::copy(std::string(TESSERA_TEST_SOURCE_DIR) + "/tests/data/demo", dir_,
                          std::filesystem::copy_options::recursive |
                              std::filesystem::copy_options::overwrite_existing);
  }

 private:
  void write(const char* name, const std::string& text) const {
    std::string path = dir_ + "/readerconfig/" + name;
    if (text.empty()) std::filesystem::remove(path);
    if (!text.empty()) std::ofstream(path, std::ios::binary) << text;
  }
  std::string dir_;
};

// A row of a section reader's table: the files read in turn ("": no file), each holding its
// lines between "<AdvReaderConfig>" lines, and the summary of the records after the last read.
struct Row {
  std::vector<std::string> files;
  std::string expected;
};

// Reads each row into fresh records with `read(records)`, which returns their summary.
template <typename Records, typename Read>
void readRows(const std::vector<Row>& rows, Read read) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.files.back().substr(0, 200));
    TempRoot root;
    Records records;
    std::string got;
    for (const std::string& file : row.files) {
      root.config(file.empty() ? file : "<AdvReaderConfig>\n" + file + "\n</AdvReaderConfig>\n");
      got = read(records);
    }
    EXPECT_EQ(got, row.expected);
  }
}

}  // namespace tessera::test
