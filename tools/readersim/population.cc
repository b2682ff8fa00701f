// tools/readersim/population.cc — tag population and RF model.
#include "population.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace tessera::readersim {

namespace {

constexpr size_t kMaxEpcBytes = 62;  // 31 words: the PC length field's limit
constexpr size_t kMaxLine = 512;

int hexValue(int c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Trims blanks and parses a hex EPC line, "HEX" or "HEX/BITS"; 1 parsed, 0 skipped
// (blank/comment), -1 bad.
int parseEpcLine(const char* line, std::vector<uint8_t>& epc, uint16_t& bits) {
  const char* b = line;
  while (*b != '\0' && isspace(static_cast<unsigned char>(*b))) ++b;
  const char* e = b + strlen(b);
  while (e > b && isspace(static_cast<unsigned char>(e[-1]))) --e;
  if (e == b || *b == '#') return 0;
  const char* slash = static_cast<const char*>(memchr(b, '/', static_cast<size_t>(e - b)));
  const char* hexEnd = slash != nullptr ? slash : e;
  size_t digits = static_cast<size_t>(hexEnd - b);
  if (digits % 2 != 0 || digits < 4 || digits / 2 > kMaxEpcBytes) return -1;
  bits = 0;
  if (slash != nullptr) {
    unsigned long n = 0;
    for (const char* p = slash + 1; p < e; ++p) {
      if (!isdigit(static_cast<unsigned char>(*p)) || n > 1000) return -1;
      n = n * 10 + static_cast<unsigned long>(*p - '0');
    }
    // The bits fill the bytes but the last, and at least one bit of the last.
    if (slash + 1 == e || (n + 7) / 8 != digits / 2) return -1;
    bits = static_cast<uint16_t>(n);
  }
  epc.clear();
  for (const char* p = b; p < hexEnd; p += 2) {
    int hi = hexValue(p[0]), lo = hexValue(p[1]);
    if (hi < 0 || lo < 0) return -1;
    epc.push_back(static_cast<uint8_t>(hi << 4 | lo));
  }
  return 1;
}

}  // namespace

uint64_t mix64(uint64_t x) {
  x += 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

uint16_t gen2Crc16(const uint8_t* data, size_t len) {
  uint16_t crc = 0xFFFF;
  for (size_t i = 0; i < len; ++i) {
    crc ^= static_cast<uint16_t>(data[i] << 8);
    for (int b = 0; b < 8; ++b) {
      crc = (crc & 0x8000) ? static_cast<uint16_t>((crc << 1) ^ 0x1021) : static_cast<uint16_t>(crc << 1);
    }
  }
  return static_cast<uint16_t>(~crc);
}

void Population::generate(unsigned count, uint64_t seed) {
  tags_.clear();
  tags_.resize(count);
  for (unsigned i = 0; i < count; ++i) {
    Tag& t = tags_[i];
    t.epc.resize(12);
    uint64_t a = mix64(seed ^ (0xE9C0000000000000ull + i * 2));
    uint64_t b = mix64(seed ^ (0xE9C0000000000001ull + i * 2));
    // A plausible SGTIN-96-like header so that the EPCs look like real ones.
    t.epc[0] = 0x30;
    for (int k = 1; k < 8; ++k) t.epc[k] = static_cast<uint8_t>(a >> (8 * (k - 1)));
    t.epc[8] = static_cast<uint8_t>(b);
    t.epc[9] = static_cast<uint8_t>(b >> 8);
    // The last two bytes carry the index: random EPCs stay distinct whatever the seed.
    t.epc[10] = static_cast<uint8_t>(i >> 8);
    t.epc[11] = static_cast<uint8_t>(i);
    if (count > 65536) t.epc[9] = static_cast<uint8_t>(i >> 16);
  }
  finish(seed);
}

int Population::loadFile(const std::string& path, uint64_t seed, std::string& error) {
  FILE* f = fopen(path.c_str(), "r");
  if (f == nullptr) {
    error = "cannot open EPC file " + path;
    return -1;
  }
  std::vector<Tag> loaded;
  char line[kMaxLine];
  unsigned lineNo = 0;
  int rc = 0;
  while (fgets(line, sizeof line, f) != nullptr) {
    ++lineNo;
    if (strchr(line, '\n') == nullptr && !feof(f)) {
      error = "EPC file line " + std::to_string(lineNo) + " is too long";
      rc = -1;
      break;
    }
    Tag t;
    int r = parseEpcLine(line, t.epc, t.epcBits);
    if (r < 0) {
      error = "EPC file line " + std::to_string(lineNo) +
              ": expected an even number (4..124) of hex digits, then optionally /BITS";
      rc = -1;
      break;
    }
    if (r == 1) loaded.push_back(std::move(t));
    if (loaded.size() > 1000000) {
      error = "EPC file holds more than 1000000 tags";
      rc = -1;
      break;
    }
  }
  fclose(f);
  if (rc != 0) return rc;
  tags_ = std::move(loaded);
  finish(seed);
  return 0;
}

void Population::finish(uint64_t seed) {
  size_t n = tags_.size();
  // Reach: a seeded permutation spread evenly over (0, 1) so that "index p of M sees N*p/M
  // tags" holds exactly, whatever the population.
  std::vector<size_t> order(n);
  for (size_t i = 0; i < n; ++i) order[i] = i;
  for (size_t i = n; i > 1; --i) {
    size_t j = static_cast<size_t>(mix64(seed * 31 + i) % i);
    std::swap(order[i - 1], order[j]);
  }
  for (size_t rank = 0; rank < n; ++rank) {
    Tag& t = tags_[order[rank]];
    t.reach = (static_cast<double>(rank) + 0.5) / static_cast<double>(n);
  }
  for (size_t i = 0; i < n; ++i) {
    Tag& t = tags_[i];
    size_t words = t.epc.size() / 2;
    t.pc = static_cast<uint16_t>(words << 11);
    std::vector<uint8_t> pcEpc;
    pcEpc.push_back(static_cast<uint8_t>(t.pc >> 8));
    pcEpc.push_back(static_cast<uint8_t>(t.pc));
    pcEpc.insert(pcEpc.end(), t.epc.begin(), t.epc.end());
    t.crc = gen2Crc16(pcEpc.data(), pcEpc.size());
    static const uint8_t kTidHead[4] = {0xE2, 0x80, 0x11, 0x60};
    memcpy(t.tid, kTidHead, 4);
    uint64_t serial = mix64(seed ^ (0x71D0000000000000ull + i));
    for (int k = 0; k < 8; ++k) t.tid[4 + k] = static_cast<uint8_t>(serial >> (8 * k));
    t.phaseBase = static_cast<int16_t>(mix64(seed ^ (0x9A5E000000000000ull + i)) & 0xFFFF);
  }
}

bool Population::visible(size_t i, double powerFraction) const {
  return i < tags_.size() && tags_[i].reach <= powerFraction + 1e-12;
}

int8_t Population::rssi(size_t i, unsigned antenna, double powerDeficitDb, uint64_t readNo) const {
  double base = -40.0 - 30.0 * tags_[i].reach - powerDeficitDb / 2.0 -
                static_cast<double>(antenna > 0 ? antenna - 1 : 0) / 2.0;
  int jitter = static_cast<int>(mix64(readNo * 0x51ED27 + i) % 5) - 2;
  long v = std::lround(base) + jitter;
  return static_cast<int8_t>(std::clamp(v, -75L, -35L));
}

int16_t Population::phase(size_t i, unsigned antenna, unsigned channel, uint64_t readNo) const {
  // The phase depends on the path length (tag, antenna) and the carrier (channel), with a
  // little noise per read.
  int32_t v = tags_[i].phaseBase + static_cast<int32_t>(antenna) * 7919 +
              static_cast<int32_t>(channel) * 1021 + static_cast<int32_t>(mix64(readNo) % 401) - 200;
  v = ((v + 32767) % 65535 + 65535) % 65535 - 32767;  // wrap into -32767..32767
  return static_cast<int16_t>(v);
}

std::vector<uint8_t> Population::bank(size_t i, unsigned memoryBank) const {
  std::vector<uint8_t> out;
  if (i >= tags_.size()) return out;
  const Tag& t = tags_[i];
  switch (memoryBank) {
    case 1:
      // Sized once up front (this also keeps GCC's -O3 overread check from a false alarm).
      out.reserve(4 + t.epc.size());
      out.push_back(static_cast<uint8_t>(t.crc >> 8));
      out.push_back(static_cast<uint8_t>(t.crc));
      out.push_back(static_cast<uint8_t>(t.pc >> 8));
      out.push_back(static_cast<uint8_t>(t.pc));
      out.insert(out.end(), t.epc.begin(), t.epc.end());
      break;
    case 2:
      out.assign(t.tid, t.tid + sizeof t.tid);
      break;
    case 0:
      out.assign(8, 0);  // kill and access passwords, both zero
      break;
    default:
      break;  // no user memory
  }
  return out;
}

}  // namespace tessera::readersim
