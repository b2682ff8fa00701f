#include <curl/curl.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "config/http_post_conf.h"
#include "config/output_conf.h"
#include "config_test_support.h"

namespace tessera {
namespace {

// The records of each table; Format starts as "KeyValuePair" and Delimiter as "Tab".
template <typename T>
struct Records {
  Records() {
    std::strcpy(format.Format, "KeyValuePair");
    std::strcpy(format.Delimiter, "Tab");
  }
  T section;
  DataFormatConfig format;
  ReaderName name;
};

TEST(OutputSections, TcpIpConfig) {
  // Format is set to "JSON" whatever the outcome.
  test::readRows<Records<TcpIpConfig>>(
      {{{""}, "0|0|JSON,Tab"},
       {{R"(<TCPIPConfig Port=5000 />)"}, "1|0|JSON,Tab"},  // unquoted: loses its ends
       {{R"(<TCPIPConfig Other="1" Port="6001"/>)"}, "1|6001|JSON,Tab"},
       {{R"(<Other TCPIPConfig Port="1"/>)"}, "-1|0|JSON,Tab"}},
      [](Records<TcpIpConfig>& r) {
        int32_t result = readTcpIpConfig(r.section, r.format);
        return std::to_string(result) + "|" + std::to_string(r.section.Port) + "|" +
               r.format.Format + "," + r.format.Delimiter;
      });
}

TEST(OutputSections, TagrelayDataFormat) {
  test::readRows<Records<int>>(
      {{{""}, "0|KeyValuePair,,,,,"},
       {{R"(<Other TagrelayDataFormat Format="JSON"/>)"}, "-1|KeyValuePair,,,,,"},
       {{R"(<TagrelayDataFormat Format="JSON" DataPrefix="" DataSuffix="#" Delimiter="Space"/>)"},
        "1|JSON,Space,,,,#"},
       // A blank ends a value; the rest of it is passed over as unknown tokens.
       {{R"(<TagrelayDataFormat Format="JSON" LineEnding="CRLF"/>)",
         R"(<TagrelayDataFormat DataPrefix="[[ ]]" LineEnding="LF"/>)"},
        "1|JSON,,LF,,[,"},
       {{"<TagrelayDataFormat Format=\"" + std::string(40, 'F') +
         "\" Delimiter=\"Semicolon\" DataPrefix=\"" + std::string(200, 'p') +
         "\" TimestampFormat=\"Numeric\"/>"},
        "1|" + std::string(31, 'F') + ",Semicol,,Numeric," + std::string(127, 'p') + ","}},
      [](Records<int>& r) {
        const DataFormatConfig& format = r.format;
        int32_t result = readDataFormatConfig(r.format);
        return std::to_string(result) + "|" + format.Format + "," + format.Delimiter + "," +
               format.LineEnding + "," + format.TimestampFormat + "," + format.DataPrefix + "," +
               format.DataSuffix;
      });
}

TEST(OutputSections, HttpPostConfig) {
  const std::string proxied =
      R"(<HTTPPostConfig HTTPServerURL="https://collector.example:8443/rfid" VerifyPeer="2" VerifyHost="1" )"
      R"(HTTPAuthenticationType="Basic" HTTPProxyServerURL="http://proxy.example:3128" HTTPProxyPort="3128" )"
      R"(HTTPProxyTunnel="2" HTTPProxyAuthenticationType="anysafe" HTTPProxyUserName="p" HTTPProxyPassword="q" )"
      R"(HTTPPostInterval="12abc" Unknown="1" />)";
  const std::string longUrl = "http://" + std::string(200, 'h') + ".example/";
  // Names in single quotes keep their blanks; in double quotes a name runs up to the next "=".
  const char* named = R"(<HTTPPostConfig ReaderName='Gate 4 / North' HTTPUserName="u1" />)";
  test::readRows<Records<HttpPostConfig>>(
      {{{""}, "0|,0,0,0,,,0|0,,0,0,0,,|"},
       {{R"(<Other HTTPPostConfig HTTPUserName="u"/>)"}, "-1|,0,0,0,,,0|0,,0,0,0,,|"},
       {{proxied},
        "1|https://collector.example:8443/rfid,1,1,4294967295,,,12|"
        "1,http://proxy.example:3128,3128,0,4294967278,p,q|"},
       // A later section without the proxy keeps it enabled; only named keys change.
       {{proxied, R"(<HTTPPostConfig HTTPProxyTunnel="1" />)"},
        "1|https://collector.example:8443/rfid,1,1,4294967295,,,12|"
        "1,http://proxy.example:3128,3128,1,4294967278,p,q|"},
       {{named}, "1|,0,0,0,u1,,0|0,,0,0,0,,|Gate 4 / North"},
       {{named, R"(<HTTPPostConfig ReaderName="Gate 5" HTTPUserName="u2" />)"},
        "1|,0,0,0,u1,,0|0,,0,0,0,,|\"Gate 5\" HTTPUserName"},
       {{"<HTTPPostConfig ReaderName='" + std::string(300, 'n') + "' />"},
        "1|,0,0,0,,,0|0,,0,0,0,,|" + std::string(127, 'n')},
       // A value right before the closing slash keeps its closing quote.
       {{R"(<HTTPPostConfig HTTPUserName="admin"/>)"}, "1|,0,0,0,admin\",,0|0,,0,0,0,,|"},
       {{"<HTTPPostConfig HTTPServerURL=\"" + longUrl + "\" HTTPPassword=\"pw\" />"},
        "1|" + longUrl.substr(0, 127) + ",0,0,0,,pw,0|0,,0,0,0,,|"}},
      [](Records<HttpPostConfig>& r) {
        const HttpPostConfig& h = r.section;
        int32_t result = readHttpPostConfig(r.section, r.name, r.format);
        EXPECT_STREQ(r.format.Format, "JSON");  // set whatever the outcome
        return std::to_string(result) + "|" + h.HTTPServerURL + "," + std::to_string(h.VerifyPeer) +
               "," + std::to_string(h.VerifyHost) + "," + std::to_string(h.HTTPAuthenticationType) +
               "," + h.HTTPUserName + "," + h.HTTPPassword + "," +
               std::to_string(h.HTTPPostInterval) + "|" + std::to_string(h.ProxyEnabled) + "," +
               h.HTTPProxyServerURL + "," + std::to_string(h.HTTPProxyPort) + "," +
               std::to_string(h.HTTPProxyTunnel) + "," +
               std::to_string(h.HTTPProxyAuthenticationType) + "," + h.HTTPProxyUserName + "," +
               h.HTTPProxyPassword + "|" + r.name.text;
      });
}

// The names give libcurl's own masks (not a copy of the product's table); any other name, one
// with a blank too, sets every bit.
TEST(OutputSections, AuthenticationNamesMapToLibcurlMasks) {
  const std::pair<const char*, unsigned long> names[] = {
      {"none", CURLAUTH_NONE},  {"basic", CURLAUTH_BASIC},     {"digest", CURLAUTH_DIGEST},
      {"ntlm", CURLAUTH_NTLM},  {"ntlm_wb", CURLAUTH_NTLM_WB}, {"digest_ie", CURLAUTH_DIGEST_IE},
      {"any", CURLAUTH_ANY},    {"anysafe", CURLAUTH_ANYSAFE}, {"only", CURLAUTH_ONLY},
      {"basic ", 0xFFFFFFFFu},  {"", 0xFFFFFFFFu}};
  for (const auto& [name, mask] : names) {
    EXPECT_EQ(httpAuthTypeFromName(name), static_cast<uint32_t>(mask)) << name;
  }
}

}  // namespace
}  // namespace tessera
