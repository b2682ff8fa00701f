// Shared by the configuration tests: a root with the reader's configuration files, and tables
// of section lines.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "temp_root.h"

namespace tessera::test {

// A temporary root whose "readerconfig/" folder holds the files the section readers read.
struct ConfigRoot : TempRoot {
  // Writes "/readerconfig/AdvReaderConfig.xml" under the root; "" removes it.
  void config(const std::string& text) const {
    if (text.empty()) std::filesystem::remove(dir + "/readerconfig/AdvReaderConfig.xml");
    if (!text.empty()) write("/readerconfig/AdvReaderConfig.xml", text);
  }
  void cloud(const std::string& text) const { write("/readerconfig/cloud.conf", text); }
  // Copies tests/data/demo (the demo's configuration) into this root.
  void copyDemo() const {
    std::filesystem::copy(std::string(TESSERA_TEST_SOURCE_DIR) + "/tests/data/demo", dir,
                          std::filesystem::copy_options::recursive |
                              std::filesystem::copy_options::overwrite_existing);
  }
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
    ConfigRoot root;
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
