// tools/readersim/state_file.cc — saved configuration file.
//
// Saved: per antenna the transmit power index, receiver sensitivity index, hop table, channel
// index and singulation control (session, tag population, transit time); the KeepaliveSpec;
// the reader's ROReportSpec; the ReaderEventNotificationSpec. Filters and ROSpecs are not part
// of the saved configuration: a client installs them for each run.
#include "state_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace tessera::readersim {

namespace {

constexpr size_t kMaxLine = 256;

struct ContentBit {
  const char* name;
  bool ContentSelector::*member;
};

constexpr ContentBit kContentBits[] = {
    {"rospec_id", &ContentSelector::roSpecId},
    {"spec_index", &ContentSelector::specIndex},
    {"inventory_parameter_spec_id", &ContentSelector::inventoryParameterSpecId},
    {"antenna_id", &ContentSelector::antennaId},
    {"channel_index", &ContentSelector::channelIndex},
    {"peak_rssi", &ContentSelector::peakRssi},
    {"first_seen", &ContentSelector::firstSeen},
    {"last_seen", &ContentSelector::lastSeen},
    {"seen_count", &ContentSelector::seenCount},
    {"access_spec_id", &ContentSelector::accessSpecId},
    {"crc", &ContentSelector::enableCrc},
    {"pc", &ContentSelector::enablePc},
};

bool toNumber(const char* text, unsigned long long max, unsigned long long& out) {
  if (*text == '\0' || *text == '-') return false;
  errno = 0;
  char* end = nullptr;
  unsigned long long v = strtoull(text, &end, 10);
  if (errno != 0 || *end != '\0' || v > max) return false;
  out = v;
  return true;
}

// Applies one key/value to config; false when the key is known but the value is bad.
bool applyKey(const char* key, const char* value, const Options& options, ReaderConfig& config) {
  unsigned long long v = 0;
  unsigned antenna = 0;
  char field[64] = {};
  if (sscanf(key, "antenna.%u.%63s", &antenna, field) == 2) {
    if (antenna < 1 || antenna > config.antennas.size()) return true;  // fewer antennas now
    AntennaSettings& a = config.antennas[antenna - 1];
    if (!toNumber(value, 0xFFFFFFFFull, v)) return false;
    if (strcmp(field, "transmit_power") == 0) {
      if (v < 1 || v > powerTableSize(options)) return false;
      a.transmitPower = static_cast<uint16_t>(v);
    } else if (strcmp(field, "receiver_sensitivity") == 0) {
      if (v < 1 || v > 0xFFFF) return false;
      a.receiverSensitivity = static_cast<uint16_t>(v);
    } else if (strcmp(field, "hop_table_id") == 0) {
      if (v > 0xFFFF) return false;
      a.hopTableId = static_cast<uint16_t>(v);
    } else if (strcmp(field, "channel_index") == 0) {
      if (v > 0xFFFF) return false;
      a.channelIndex = static_cast<uint16_t>(v);
    } else if (strcmp(field, "session") == 0) {
      if (v > 3) return false;
      a.inventory.hasSingulation = true;
      a.inventory.session = static_cast<uint8_t>(v);
    } else if (strcmp(field, "tag_population") == 0) {
      if (v > 0xFFFF) return false;
      a.inventory.tagPopulation = static_cast<uint16_t>(v);
    } else if (strcmp(field, "tag_transit_time") == 0) {
      a.inventory.tagTransitTime = static_cast<uint32_t>(v);
    }
    return true;
  }
  if (strcmp(key, "keepalive_ms") == 0) {
    if (!toNumber(value, 0xFFFFFFFFull, v)) return false;
    config.keepaliveMs = static_cast<uint32_t>(v);
  } else if (strcmp(key, "report.trigger") == 0) {
    if (!toNumber(value, 2, v)) return false;
    config.roReport.trigger = static_cast<uint8_t>(v);
  } else if (strcmp(key, "report.n") == 0) {
    if (!toNumber(value, 0xFFFF, v)) return false;
    config.roReport.n = static_cast<uint16_t>(v);
  } else if (strncmp(key, "report.content.", 15) == 0) {
    if (!toNumber(value, 1, v)) return false;
    for (const ContentBit& b : kContentBits) {
      if (strcmp(key + 15, b.name) == 0) config.roReport.content.*(b.member) = v != 0;
    }
  } else if (strncmp(key, "event.", 6) == 0) {
    unsigned long long type = 0;
    if (!toNumber(key + 6, kEventTypes - 1, type) || !toNumber(value, 1, v)) return false;
    config.events[type] = v != 0;
  }
  return true;  // unknown keys are kept for newer versions and ignored
}

}  // namespace

int loadState(const std::string& path, const Options& options, ReaderConfig& config,
              std::string& error) {
  FILE* f = fopen(path.c_str(), "r");
  if (f == nullptr) {
    if (errno == ENOENT) return 1;
    error = "cannot open " + path + ": " + strerror(errno);
    return -1;
  }
  ReaderConfig next = config;
  char line[kMaxLine];
  unsigned lineNo = 0;
  int rc = 0;
  while (fgets(line, sizeof line, f) != nullptr) {
    ++lineNo;
    line[strcspn(line, "\r\n")] = '\0';
    if (line[0] == '\0' || line[0] == '#') continue;
    char* eq = strchr(line, '=');
    if (eq == nullptr) {
      error = path + " line " + std::to_string(lineNo) + ": expected key=value";
      rc = -1;
      break;
    }
    *eq = '\0';
    if (!applyKey(line, eq + 1, options, next)) {
      error = path + " line " + std::to_string(lineNo) + ": bad value for " + line;
      rc = -1;
      break;
    }
  }
  fclose(f);
  if (rc == 0) config = std::move(next);
  return rc;
}

int saveState(const std::string& path, const ReaderConfig& config, std::string& error) {
  std::string tmp = path + ".tmp";
  FILE* f = fopen(tmp.c_str(), "w");
  if (f == nullptr) {
    error = "cannot write " + tmp + ": " + strerror(errno);
    return -1;
  }
  fprintf(f, "# tessera-readersim saved configuration\n");
  for (const AntennaSettings& a : config.antennas) {
    fprintf(f, "antenna.%u.transmit_power=%u\n", a.id, a.transmitPower);
    fprintf(f, "antenna.%u.receiver_sensitivity=%u\n", a.id, a.receiverSensitivity);
    fprintf(f, "antenna.%u.hop_table_id=%u\n", a.id, a.hopTableId);
    fprintf(f, "antenna.%u.channel_index=%u\n", a.id, a.channelIndex);
    if (a.inventory.hasSingulation) {
      fprintf(f, "antenna.%u.session=%u\n", a.id, a.inventory.session);
      fprintf(f, "antenna.%u.tag_population=%u\n", a.id, a.inventory.tagPopulation);
      fprintf(f, "antenna.%u.tag_transit_time=%u\n", a.id, a.inventory.tagTransitTime);
    }
  }
  fprintf(f, "keepalive_ms=%u\n", config.keepaliveMs);
  fprintf(f, "report.trigger=%u\n", config.roReport.trigger);
  fprintf(f, "report.n=%u\n", config.roReport.n);
  for (const ContentBit& b : kContentBits) {
    fprintf(f, "report.content.%s=%d\n", b.name, config.roReport.content.*(b.member) ? 1 : 0);
  }
  for (int t = 0; t < kEventTypes; ++t) {
    fprintf(f, "event.%d=%d\n", t, config.events[static_cast<size_t>(t)] ? 1 : 0);
  }
  bool ok = fflush(f) == 0 && fsync(fileno(f)) == 0;
  ok = fclose(f) == 0 && ok;
  if (!ok || rename(tmp.c_str(), path.c_str()) != 0) {
    error = "cannot write " + path + ": " + strerror(errno);
    unlink(tmp.c_str());
    return -1;
  }
  return 0;
}

}  // namespace tessera::readersim
