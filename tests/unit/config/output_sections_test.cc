#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "config/http_post_conf.h"
#include "config/output_conf.h"
#include "config_test_support.h"

namespace tessera {
namespace {

class OutputSections : public testing::Test {
 protected:
  void write(const std::string& line) {
    root.config("<?xml version=\"1.0\"?>\n<AdvReaderConfig>\n" + line + "\n</AdvReaderConfig>\n");
  }
  test::TempRoot root;
  DataFormatConfig format;
  TcpIpConfig tcp;
  HttpPostConfig http;
  ReaderName name;
};

TEST_F(OutputSections, ReadsTheDemoSections) {
  root.copySample("demo");
  EXPECT_EQ(readTcpIpConfig(tcp, format), 1);
  EXPECT_EQ(tcp.Port, 5000);
  EXPECT_EQ(readDataFormatConfig(format), 1);
  EXPECT_STREQ(format.Format, "JSON");
  EXPECT_STREQ(format.Delimiter, "Comma");
  EXPECT_STREQ(format.LineEnding, "CRLF");
  EXPECT_STREQ(format.TimestampFormat, "UTC");
  EXPECT_STREQ(format.DataPrefix, "");
  EXPECT_STREQ(format.DataSuffix, "");
  EXPECT_EQ(readHttpPostConfig(http, name, format), 1);
  EXPECT_STREQ(http.HTTPServerURL, "http://127.0.0.1:8080/tagdata");
  EXPECT_FALSE(http.VerifyPeer);
  EXPECT_FALSE(http.VerifyHost);
  EXPECT_EQ(http.HTTPAuthenticationType, 1u);
  EXPECT_STREQ(http.HTTPUserName, "relay");
  EXPECT_STREQ(http.HTTPPassword, "s3cret-Pw");
  EXPECT_EQ(http.HTTPPostInterval, 5);
  EXPECT_FALSE(http.ProxyEnabled);
  EXPECT_STREQ(name.text, "Dock Door 1");
}

TEST_F(OutputSections, MissingFileAndMissingSection) {
  std::strcpy(format.Format, "KeyValuePair");
  EXPECT_EQ(readTcpIpConfig(tcp, format), 0);
  EXPECT_STREQ(format.Format, "JSON");  // set whatever the outcome
  std::strcpy(format.Delimiter, "Tab");
  EXPECT_EQ(readDataFormatConfig(format), 0);
  EXPECT_STREQ(format.Delimiter, "");
  EXPECT_EQ(readHttpPostConfig(http, name, format), 0);
  write(R"(<Other TCPIPConfig Port="1"/>)");
  EXPECT_EQ(readTcpIpConfig(tcp, format), -1);
  EXPECT_EQ(readDataFormatConfig(format), -1);
  EXPECT_EQ(readHttpPostConfig(http, name, format), -1);
  EXPECT_EQ(tcp.Port, 0);
}

TEST_F(OutputSections, TcpPortWithoutQuotesLosesItsEnds) {
  write(R"(<TCPIPConfig Port=5000 />)");
  EXPECT_EQ(readTcpIpConfig(tcp, format), 1);
  EXPECT_EQ(tcp.Port, 0);
  write(R"(<TCPIPConfig Other="1" Port="6001"/>)");
  EXPECT_EQ(readTcpIpConfig(tcp, format), 1);
  EXPECT_EQ(tcp.Port, 6001);
}

TEST_F(OutputSections, DataFormatPrefixAndSuffix) {
  write(
      R"(<TagrelayDataFormat Format="KeyValuePair" DataPrefix="" DataSuffix="#" Delimiter="Tab"/>)");
  ASSERT_EQ(readDataFormatConfig(format), 1);
  EXPECT_STREQ(format.Format, "KeyValuePair");
  EXPECT_STREQ(format.DataPrefix, "");
  EXPECT_STREQ(format.DataSuffix, "#");
  EXPECT_STREQ(format.Delimiter, "Tab");
  // A blank ends a value; the rest of it is passed over as unknown tokens.
  write(R"(<TagrelayDataFormat DataPrefix="[[ ]]" LineEnding="LF"/>)");
  ASSERT_EQ(readDataFormatConfig(format), 1);
  EXPECT_STREQ(format.DataPrefix, "[");
  EXPECT_STREQ(format.LineEnding, "LF");
  EXPECT_STREQ(format.Format, "KeyValuePair");  // not named: kept
}

TEST_F(OutputSections, HttpReadsKeepFormatJson) {
  write(R"(<TagrelayDataFormat Format="KeyValuePair"/>)"
        "\n"
        R"(<HTTPPostConfig HTTPServerURL="https://a.example/x" />)");
  ASSERT_EQ(readDataFormatConfig(format), 1);
  ASSERT_EQ(readHttpPostConfig(http, name, format), 1);
  write(R"(<TagrelayDataFormat Delimiter="Space"/>)");
  ASSERT_EQ(readDataFormatConfig(format), 1);
  EXPECT_STREQ(format.Format, "JSON");
}

TEST_F(OutputSections, OverLongDataFormatValuesAreCut) {
  std::string prefix(200, 'p');
  write("<TagrelayDataFormat Format=\"" + std::string(40, 'F') +
        "\" Delimiter=\"Semicolon\" DataPrefix=\"" + prefix + "\" TimestampFormat=\"Numeric\"/>");
  ASSERT_EQ(readDataFormatConfig(format), 1);
  EXPECT_EQ(std::string(format.Format), std::string(31, 'F'));
  EXPECT_STREQ(format.Delimiter, "Semicol");
  EXPECT_EQ(std::string(format.DataPrefix), std::string(127, 'p'));
  EXPECT_STREQ(format.TimestampFormat, "Numeric");
}

TEST_F(OutputSections, HttpKeysAndValues) {
  write(
      R"(<HTTPPostConfig HTTPServerURL="https://collector.example:8443/rfid" VerifyPeer="2" VerifyHost="1" )"
      R"(HTTPAuthenticationType="Basic" HTTPProxyServerURL="http://proxy.example:3128" HTTPProxyPort="3128" )"
      R"(HTTPProxyTunnel="2" HTTPProxyAuthenticationType="anysafe" HTTPProxyUserName="p" HTTPProxyPassword="q" )"
      R"(HTTPPostInterval="12abc" Unknown="1" />)");
  ASSERT_EQ(readHttpPostConfig(http, name, format), 1);
  EXPECT_STREQ(http.HTTPServerURL, "https://collector.example:8443/rfid");
  EXPECT_TRUE(http.VerifyPeer);
  EXPECT_TRUE(http.VerifyHost);
  EXPECT_EQ(http.HTTPAuthenticationType, 0xFFFFFFFFu);
  EXPECT_TRUE(http.ProxyEnabled);
  EXPECT_STREQ(http.HTTPProxyServerURL, "http://proxy.example:3128");
  EXPECT_EQ(http.HTTPProxyPort, 3128);
  EXPECT_FALSE(http.HTTPProxyTunnel);
  EXPECT_EQ(http.HTTPProxyAuthenticationType, 0xFFFFFFEEu);
  EXPECT_STREQ(http.HTTPProxyUserName, "p");
  EXPECT_STREQ(http.HTTPProxyPassword, "q");
  EXPECT_EQ(http.HTTPPostInterval, 12);
  // A later section without the proxy keeps it enabled; only named keys change.
  write(R"(<HTTPPostConfig HTTPProxyTunnel="1" />)");
  ASSERT_EQ(readHttpPostConfig(http, name, format), 1);
  EXPECT_TRUE(http.ProxyEnabled);
  EXPECT_TRUE(http.HTTPProxyTunnel);
  EXPECT_STREQ(http.HTTPServerURL, "https://collector.example:8443/rfid");
}

TEST_F(OutputSections, ReaderNameQuoting) {
  write(R"(<HTTPPostConfig ReaderName='Gate 4 / North' HTTPUserName="u1" />)");
  ASSERT_EQ(readHttpPostConfig(http, name, format), 1);
  EXPECT_STREQ(name.text, "Gate 4 / North");
  EXPECT_STREQ(http.HTTPUserName, "u1");
  // In double quotes the name runs up to the next "=" and swallows the key after it.
  write(R"(<HTTPPostConfig ReaderName="Gate 5" HTTPUserName="u2" />)");
  ASSERT_EQ(readHttpPostConfig(http, name, format), 1);
  EXPECT_STREQ(name.text, "\"Gate 5\" HTTPUserName");
  EXPECT_STREQ(http.HTTPUserName, "u1");
  std::string longName(300, 'n');
  write("<HTTPPostConfig ReaderName='" + longName + "' />");
  ASSERT_EQ(readHttpPostConfig(http, name, format), 1);
  EXPECT_EQ(std::string(name.text), std::string(127, 'n'));
}

TEST_F(OutputSections, HttpValueBeforeTheClosingSlashKeepsItsQuote) {
  write(R"(<HTTPPostConfig HTTPUserName="admin"/>)");
  ASSERT_EQ(readHttpPostConfig(http, name, format), 1);
  EXPECT_STREQ(http.HTTPUserName, "admin\"");
  std::string url = "http://" + std::string(200, 'h') + ".example/";
  write("<HTTPPostConfig HTTPServerURL=\"" + url + "\" HTTPPassword=\"pw\" />");
  ASSERT_EQ(readHttpPostConfig(http, name, format), 1);
  EXPECT_EQ(std::string(http.HTTPServerURL), url.substr(0, 127));
  EXPECT_STREQ(http.HTTPPassword, "pw");
}

struct Auth {
  const char* name;
  uint32_t mask;
};
class AuthType : public testing::TestWithParam<Auth> {};
TEST_P(AuthType, MapsToTheLibcurlMask) {
  EXPECT_EQ(httpAuthTypeFromName(GetParam().name), GetParam().mask);
}
INSTANTIATE_TEST_SUITE_P(Names, AuthType,
                         testing::Values(Auth{"none", 0}, Auth{"basic", 1}, Auth{"digest", 2},
                                         Auth{"digest_ie", 16}, Auth{"ntlm", 8},
                                         Auth{"ntlm_wb", 32}, Auth{"any", 0xFFFFFFEFu},
                                         Auth{"anysafe", 0xFFFFFFEEu}, Auth{"only", 0x80000000u},
                                         Auth{"Basic", 0xFFFFFFFFu}, Auth{"", 0xFFFFFFFFu},
                                         Auth{"basic ", 0xFFFFFFFFu}));

TEST_F(OutputSections, MissingSectionIsLogged) {
  if (!test::inEchoingProcess()) return;
  write("<Nothing/>");
  testing::internal::CaptureStdout();
  EXPECT_EQ(readTcpIpConfig(tcp, format), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "I-Unable to read from file.\n");
}

}  // namespace
}  // namespace tessera
