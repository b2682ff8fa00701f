// tools/readersim/population.h — the simulated tags in the field and the RF model that decides
// which of them an antenna sees, how strong and at what phase.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tessera::readersim {

struct Tag {
  std::vector<uint8_t> epc;  // 2..62 bytes
  uint16_t epcBits = 0;      // EPC length in bits when not all of epc's (sent as EPCData), or 0
  uint16_t pc = 0;           // length in words << 11, no UMI, no XPC
  uint16_t crc = 0;          // Gen2 CRC-16 over PC + EPC, as the tag backscatters it
  uint8_t tid[12] = {};      // E2801160 + 8 serial bytes
  double reach = 0;          // 0..1: the power fraction that the tag needs to be seen
  int16_t phaseBase = 0;     // raw phase at antenna 1 on channel 1
};

class Population {
 public:
  // Builds count random EPC-96 tags from seed.
  void generate(unsigned count, uint64_t seed);
  // Loads one hex EPC per line; 0, or -1 with error set (nothing kept).
  [[nodiscard]] int loadFile(const std::string& path, uint64_t seed, std::string& error);
  // Number of tags.
  size_t size() const { return tags_.size(); }
  // Tag i (i < size()).
  const Tag& tag(size_t i) const { return tags_[i]; }
  // Whether an antenna at powerFraction (index / table size) reaches tag i.
  bool visible(size_t i, double powerFraction) const;
  // PeakRSSI in dBm of a read of tag i; powerDeficitDb = max power - antenna power.
  int8_t rssi(size_t i, unsigned antenna, double powerDeficitDb, uint64_t readNo) const;
  // Raw s16 phase of a read of tag i (degrees = raw * 180 / 32767).
  int16_t phase(size_t i, unsigned antenna, unsigned channel, uint64_t readNo) const;
  // The bits of a memory bank (0 reserved, 1 EPC incl. CRC+PC, 2 TID, 3 user) of tag i.
  std::vector<uint8_t> bank(size_t i, unsigned memoryBank) const;

 private:
  void finish(uint64_t seed);

  std::vector<Tag> tags_;
};

// Gen2 CRC-16 (CCITT polynomial, preset 0xFFFF, complemented) of bytes.
uint16_t gen2Crc16(const uint8_t* data, size_t len);
// A small, stable hash for the RF model's pseudo-random numbers.
uint64_t mix64(uint64_t x);

}  // namespace tessera::readersim
