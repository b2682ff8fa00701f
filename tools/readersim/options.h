// tools/readersim/options.h — the simulator's command line.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace tessera::readersim {

// The optional TagReportData fields that --omit-field can leave out.
enum class ReportField : uint8_t {
  kAntenna,
  kRssi,
  kChannel,
  kPc,
  kSeenCount,
  kFirstSeen,
  kLastSeen,
  kCount
};
inline constexpr size_t kReportFieldCount = static_cast<size_t>(ReportField::kCount);
// Their names on the command line and in the "stats" line, in ReportField order.
inline constexpr std::array<const char*, kReportFieldCount> kReportFieldNames = {
    "antenna", "rssi", "channel", "pc", "seencount", "firstseen", "lastseen"};

struct Options {
  std::string host = "127.0.0.1";  // LLRP listening address
  int port = 5084;                 // LLRP port; 0 picks a free one
  int controlPort = -1;            // text control port on 127.0.0.1; -1 none, 0 picks a free one
  unsigned antennas = 4;           // antenna ports 1..N
  unsigned gpis = 4;               // general-purpose inputs 1..N
  unsigned gpos = 4;               // general-purpose outputs 1..N
  double powerMinDbm = 10.0;       // transmit power table: first entry
  double powerMaxDbm = 30.0;       // last entry
  double powerStepDbm = 0.25;      // step between entries
  unsigned tags = 100;             // random EPC-96 population size (without --epc-file)
  uint64_t seed = 20240611;        // population and RF model seed
  std::string epcFile;             // one hex EPC per line instead of random tags
  double rate = 200.0;             // tag reads per second over all antennas; 0 = link speed
  size_t bufferLimit = 1 << 20;    // bytes of reports queued for the client before dropping
  unsigned keepaliveMisses = 3;    // unanswered KEEPALIVEs before the link is declared dead
  std::string stateFile;           // saved configuration, loaded at start
  std::string readyFile;           // written with "llrp=PORT control=PORT" once listening
  bool verbose = false;            // log every LLRP message in and out on stderr
  bool forgetConfig = false;       // each connection starts from the start-up configuration
  // Per ReportField: the chance that a read leaves the field out although the client asked.
  std::array<double, kReportFieldCount> omitProbability{};
};

// Parses argv into out; 0 to run, 1 when --help was printed, -1 on a bad option (error says why).
[[nodiscard]] int parseOptions(int argc, char** argv, Options& out, std::string& error);
// The --help text.
const char* usageText();
// Number of entries of the transmit power table the options describe.
unsigned powerTableSize(const Options& options);
// Transmit power of table index (1-based) in hundredths of dBm.
int16_t powerTableValue(const Options& options, unsigned index);

}  // namespace tessera::readersim
