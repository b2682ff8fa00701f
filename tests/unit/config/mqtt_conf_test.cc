#include "config/mqtt_conf.h"

#include <gtest/gtest.h>

#include <string>

#include "config_test_support.h"

namespace tessera {
namespace {

struct Records {
  MqttConfig mqtt;
  ReaderName name;
  DataFormatConfig format;
};

// result|BrokerURL|Topic|StatusTopic|QoS|ClientId|UserName|Password|CAFile|KeepAlive|reader
// name|Format, after a read.
std::string readAndSummarize(Records& r) {
  int32_t result = readMqttConfig(r.mqtt, r.name, r.format);
  const MqttConfig& m = r.mqtt;
  return std::to_string(result) + "|" + m.BrokerURL + "|" + m.Topic + "|" + m.StatusTopic + "|" +
         std::to_string(static_cast<int>(m.QoS)) + "|" + m.ClientId + "|" + m.UserName + "|" +
         m.Password + "|" + m.CAFile + "|" + std::to_string(m.KeepAlive) + "|" + r.name.text + "|" +
         r.format.Format;
}

TEST(MqttSection, Lines) {
  test::readRows<Records>(
      {// Quoted values keep their blanks; empty values do not swallow the next key.
       {{R"(<MQTTConfig BrokerURL="mqtts://broker.example:8884/" Topic="site a/{mac}" )"
         R"(ClientId="" UserName="" Password="p w=x" CAFile="/etc/ca.pem" QoS="0" KeepAlive="60" )"
         R"(ReaderName="Dock Door 1"/>)"},
        "1|mqtts://broker.example:8884/|site a/{mac}|tessera/{reader_name}/status|0|||p w=x|"
        "/etc/ca.pem|60|Dock Door 1|JSON"},
       // Refused values keep the defaults; an earlier password does not live on.
       {{R"(<MQTTConfig Password="old"/>)",
         R"(<MQTTConfig BrokerURL="http://x" Topic="a/#" StatusTopic="" QoS="2" KeepAlive="4"/>)"},
        "1|mqtt://127.0.0.1:1883|tessera/{reader_name}/reads|tessera/{reader_name}/status|1|||||30|"
        "|JSON"},
       {{R"(<HTTPPostConfig HTTPServerURL="x"/>)"},
        "-1|mqtt://127.0.0.1:1883|"
        "tessera/{reader_name}/reads|tessera/{reader_name}/status|1|||||30||JSON"}},
      readAndSummarize);
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
