#include "config/cloud_conf.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/platform.h"

namespace tessera {
namespace {

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f' || c == '\n';
}

void readLine(CloudSettings& cloud, const char* raw, size_t length) {
  std::string line;
  line.reserve(length);
  for (size_t i = 0; i < length; ++i) {
    if (!isBlank(raw[i])) line += raw[i];
  }
  if (line.empty() || line[0] == '#') return;
  size_t equals = line.find('=');
  std::string key = equals == std::string::npos ? line : line.substr(0, equals);
  std::string value = equals == std::string::npos ? line : line.substr(equals + 1);
  auto known = cloud.values.find(key);
  if (known != cloud.values.end()) known->second = value;
}

}  // namespace

void readCloudConfig(CloudSettings& cloud) {
  FILE* file = std::fopen(platform::path("/readerconfig/cloud.conf").c_str(), "r");
  if (file != nullptr) {
    char* line = nullptr;
    size_t capacity = 0;
    ssize_t length;
    while ((length = getline(&line, &capacity, file)) >= 0) {
      readLine(cloud, line, static_cast<size_t>(length));
    }
    std::free(line);
    std::fclose(file);
  }
  cloud.CloudEnrolled = cloud.values["ENROLLED"] == "1";
  cloud.CloudAutoConnect = cloud.values["AUTO_CONNECT"] == "1";
}

}  // namespace tessera
