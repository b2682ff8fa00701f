// Every section reader and the configuration check over arbitrary file contents: no read past
// a buffer, every text field stays terminated inside its capacity.
#include <syslog.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "config/check_config.h"
#include "config/cloud_conf.h"
#include "config/config_records.h"
#include "config/http_post_conf.h"
#include "config/output_conf.h"
#include "config/relay_conf.h"
#include "config/serial_port_conf.h"
#include "platform/platform.h"

namespace {

const std::string& root() {
  static const std::string dir = [] {
    char pattern[] = "/tmp/tessera-fuzz-config-XXXXXX";
    const char* made = mkdtemp(pattern);
    if (made == nullptr) std::abort();
    std::filesystem::create_directories(std::string(made) + "/readerconfig");
    tessera::platform::Settings settings;
    settings.root = made;
    tessera::platform::configure(settings);
    static std::string madeDir = made;
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(madeDir, ignored);
    });
    return std::string(made);
  }();
  return dir;
}

void write(const char* name, const uint8_t* data, size_t size) {
  FILE* f = std::fopen((root() + "/readerconfig/" + name).c_str(), "wb");
  if (f == nullptr) std::abort();
  if (size > 0 && std::fwrite(data, 1, size, f) != size) std::abort();
  std::fclose(f);
}

template <size_t N>
void terminated(const char (&field)[N]) {
  if (strnlen(field, N) >= N) std::abort();
}

}  // namespace

// The readers log every refused value; without a syslog daemon the Logger's console fallback
// would make each run write to the console. Fuzzing keeps syslog but drops that fallback.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  openlog("tessera", LOG_NDELAY, LOG_USER);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  write("AdvReaderConfig.xml", data, size);
  write("cloud.conf", data, size);
  using namespace tessera;

  SerialPortConfig serial;
  InventoryControlConfig inventory;
  readSerialPortConf(serial, inventory);
  terminated(serial.Parity);
  terminated(serial.Flowcontrol);
  terminated(serial.TagMetaString);

  RelayConfig relay;
  (void)readRelayConfig(relay, inventory);
  terminated(relay.InventoryControl);
  terminated(relay.PreFilters);

  DataFormatConfig format;
  TcpIpConfig tcp;
  (void)readTcpIpConfig(tcp, format);
  (void)readDataFormatConfig(format);
  terminated(format.Format);
  terminated(format.Delimiter);
  terminated(format.LineEnding);
  terminated(format.TimestampFormat);
  terminated(format.DataPrefix);
  terminated(format.DataSuffix);

  HttpPostConfig http;
  ReaderName name;
  (void)readHttpPostConfig(http, name, format);
  terminated(http.HTTPServerURL);
  terminated(http.HTTPUserName);
  terminated(http.HTTPPassword);
  terminated(http.HTTPProxyServerURL);
  terminated(http.HTTPProxyUserName);
  terminated(http.HTTPProxyPassword);
  terminated(name.text);

  CloudSettings cloud;
  readCloudConfig(cloud);
  if (cloud.values.size() != 5) std::abort();

  static FILE* sink = std::fopen("/dev/null", "w");
  (void)checkConfig(sink);
  return 0;
}
