#include "config/cloud_conf.h"

#include <gtest/gtest.h>

#include "config_test_support.h"

namespace tessera {
namespace {

// Only a value of exactly "1" sets a flag; blanks anywhere are dropped, "#" starts a comment.
TEST(CloudSettingsFile, SetsTheFlagsOnlyForExactlyOne) {
  const struct {
    const char* file;
    bool enrolled;
    bool autoConnect;
  } rows[] = {{"ENROLLED = 1\nAUTO_CONNECT=1\n", true, true},
              {"ENROLLED=1\r\nAUTO_CONNECT\t=\t1\r\n", true, true},
              {"ENROLLED=true\nAUTO_CONNECT=01\n", false, false},
              {"ENROLLED=1.0\nAUTO_CONNECT=1", false, true},
              {"# ENROLLED=1\n #AUTO_CONNECT=1\n", false, false},
              {"enrolled=1\nSOME_KEY=1\n", false, false},
              {"ENROLLED=1\nAUTO_CONNECT=1=2\n", true, false},
              {"ENROLLED=1\nENROLLED=0\n", false, false},
              {"E N R O L L E D = 1", true, false},
              {"\n\n=\n1\nENROLLED", false, false}};
  for (const auto& row : rows) {
    test::ConfigRoot root;
    root.cloud(row.file);
    CloudSettings cloud;
    readCloudConfig(cloud);
    EXPECT_EQ(cloud.CloudEnrolled, row.enrolled) << row.file;
    EXPECT_EQ(cloud.CloudAutoConnect, row.autoConnect) << row.file;
  }
}

TEST(CloudSettingsFile, KeepsValuesAcrossReadsAndAddsNoKeys) {
  test::ConfigRoot root;
  CloudSettings cloud;
  ASSERT_EQ(cloud.values.size(), 5u);
  readCloudConfig(cloud);  // no file yet
  EXPECT_FALSE(cloud.CloudEnrolled);
  root.cloud("ENROLLED=1\nCLOUD_PROVIDER_ID=7\nNEW_KEY=x\nAUTO_CONNECT=\n");
  readCloudConfig(cloud);
  EXPECT_TRUE(cloud.CloudEnrolled);
  EXPECT_EQ(cloud.values.size(), 5u);
  EXPECT_EQ(cloud.values["CLOUD_PROVIDER_ID"], "7");
  EXPECT_EQ(cloud.values["AUTO_CONNECT"], "");
  root.cloud("AUTO_CONNECT=1\n");
  readCloudConfig(cloud);
  EXPECT_TRUE(cloud.CloudEnrolled);  // not named again: kept
  EXPECT_TRUE(cloud.CloudAutoConnect);
  EXPECT_EQ(cloud.values["KESTREL_DATA_SERVICES_ENROLLMENT_URL"].rfind("https://", 0), 0u);
  // A value may hold an equals sign.
  root.cloud("KESTREL_DATA_SERVICES_CLOUD_ROOT_PKI_URL = https://pki.example/roots.pem?a=b c\n");
  readCloudConfig(cloud);
  EXPECT_EQ(cloud.values["KESTREL_DATA_SERVICES_CLOUD_ROOT_PKI_URL"],
            "https://pki.example/roots.pem?a=bc");
}

}  // namespace
}  // namespace tessera
