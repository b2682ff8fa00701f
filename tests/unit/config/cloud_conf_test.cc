#include "config/cloud_conf.h"

#include <gtest/gtest.h>

#include "config_test_support.h"

namespace tessera {
namespace {

struct CloudCase {
  const char* file;
  bool enrolled;
  bool autoConnect;
};

class CloudFile : public testing::TestWithParam<CloudCase> {};

TEST_P(CloudFile, SetsTheFlagsOnlyForExactlyOne) {
  test::TempRoot root;
  root.cloud(GetParam().file);
  CloudSettings cloud;
  readCloudConfig(cloud);
  EXPECT_EQ(cloud.CloudEnrolled, GetParam().enrolled);
  EXPECT_EQ(cloud.CloudAutoConnect, GetParam().autoConnect);
}

INSTANTIATE_TEST_SUITE_P(
    Files, CloudFile,
    testing::Values(CloudCase{"ENROLLED = 1\nAUTO_CONNECT=1\n", true, true},
                    CloudCase{"ENROLLED=1\r\nAUTO_CONNECT\t=\t1\r\n", true, true},
                    CloudCase{"ENROLLED=true\nAUTO_CONNECT=01\n", false, false},
                    CloudCase{"ENROLLED=1.0\nAUTO_CONNECT=1", false, true},
                    CloudCase{"# ENROLLED=1\n #AUTO_CONNECT=1\n", false, false},
                    CloudCase{"enrolled=1\nSOME_KEY=1\n", false, false},
                    CloudCase{"ENROLLED=1\nAUTO_CONNECT=1=2\n", true, false},
                    CloudCase{"ENROLLED=1\nENROLLED=0\n", false, false},
                    CloudCase{"E N R O L L E D = 1", true, false},
                    CloudCase{"\n\n=\n1\nENROLLED", false, false}));

TEST(CloudSettingsFile, KeepsValuesAcrossReadsAndAddsNoKeys) {
  test::TempRoot root;
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
}

TEST(CloudSettingsFile, AValueMayHoldAnEqualsSign) {
  test::TempRoot root;
  root.cloud("KESTREL_DATA_SERVICES_CLOUD_ROOT_PKI_URL = https://pki.example/roots.pem?a=b c\n");
  CloudSettings cloud;
  readCloudConfig(cloud);
  EXPECT_EQ(cloud.values["KESTREL_DATA_SERVICES_CLOUD_ROOT_PKI_URL"],
            "https://pki.example/roots.pem?a=bc");
}

}  // namespace
}  // namespace tessera
