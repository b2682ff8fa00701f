#include "config/mqtt_conf.h"

#include <gtest/gtest.h>

#include <string>

#include "config_test_support.h"

namespace tessera {
namespace {

class MqttSection : public testing::Test {
 protected:
  int32_t read(const std::string& line) {
    root.config("<?xml version=\"1.0\"?>\n<AdvReaderConfig>\n" + line + "\n</AdvReaderConfig>\n");
    return readMqttConfig(mqtt, name, format);
  }
  test::TempRoot root;
  MqttConfig mqtt;
  ReaderName name;
  DataFormatConfig format;
};

TEST_F(MqttSection, QuotedValuesKeepBlanksAndEmptyValuesDoNotSwallowTheNextKey) {
  ASSERT_EQ(read("  <MQTTConfig BrokerURL=\"mqtts://broker.example:8884/\" Topic=\"site a/{mac}\" "
                 "ClientId=\"\" UserName=\"\" Password=\"p w=x\" CAFile=\"/etc/ca.pem\" "
                 "QoS=\"0\" KeepAlive=\"60\" ReaderName=\"Dock Door 1\"/>"),
            1);
  EXPECT_STREQ(mqtt.BrokerURL, "mqtts://broker.example:8884/");
  EXPECT_STREQ(mqtt.Topic, "site a/{mac}");
  EXPECT_STREQ(mqtt.ClientId, "");
  EXPECT_STREQ(mqtt.UserName, "");
  EXPECT_STREQ(mqtt.Password, "p w=x");
  EXPECT_STREQ(mqtt.CAFile, "/etc/ca.pem");
  EXPECT_EQ(mqtt.QoS, MqttQos::AtMostOnce);
  EXPECT_EQ(mqtt.KeepAlive, 60);
  EXPECT_STREQ(name.text, "Dock Door 1");
  EXPECT_STREQ(format.Format, "JSON");
}

TEST_F(MqttSection, RefusedValuesKeepTheDefaultsAndAnEarlierPasswordDoesNotLiveOn) {
  ASSERT_EQ(read("<MQTTConfig Password=\"old\"/>"), 1);
  ASSERT_EQ(read("<MQTTConfig BrokerURL=\"http://x\" Topic=\"a/#\" StatusTopic=\"\" QoS=\"2\" "
                 "KeepAlive=\"4\"/>"),
            1);
  EXPECT_STREQ(mqtt.BrokerURL, "mqtt://127.0.0.1:1883");
  EXPECT_STREQ(mqtt.Topic, "tessera/{reader_name}/reads");
  EXPECT_STREQ(mqtt.StatusTopic, "tessera/{reader_name}/status");
  EXPECT_EQ(mqtt.QoS, MqttQos::AtLeastOnce);
  EXPECT_EQ(mqtt.KeepAlive, 30);
  EXPECT_STREQ(mqtt.Password, "");
  EXPECT_EQ(read("<HTTPPostConfig HTTPServerURL=\"x\"/>"), -1);
}

TEST(MqttNames, BrokerUrlsTopicsAndClientIds) {
  MqttBroker b;
  ASSERT_TRUE(parseBrokerUrl("mqtt://10.0.0.5", b));
  EXPECT_EQ(b.host, "10.0.0.5");
  EXPECT_EQ(b.port, 1883);
  EXPECT_FALSE(b.tls);
  ASSERT_TRUE(parseBrokerUrl("mqtts://broker:9000/", b));
  EXPECT_EQ(b.port, 9000);
  EXPECT_TRUE(b.tls);
  for (const char* bad : {"MQTT://h", "mqtt://", "mqtt://h:0", "mqtt://h:x", "mqtt://u@h", "h:1"}) {
    EXPECT_FALSE(parseBrokerUrl(bad, b)) << bad;
  }
  EXPECT_EQ(expandTopic("t/{reader_name}/{mac}/r", "Dock/1 +#", "00:11"), "t/Dock_1 __/00:11/r");
  MqttConfig config;
  EXPECT_EQ(mqttClientId(config, "00:11:22:33:44:55"), "tessera-00:11:22:33:44:55");
}

}  // namespace
}  // namespace tessera
