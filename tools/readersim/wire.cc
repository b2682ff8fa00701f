// tools/readersim/wire.cc — frames and log lines.
#include "wire.h"

#include <cstdarg>
#include <cstdio>

#include "llrp/codec.h"
#include "llrp/describe.h"

namespace tessera::readersim {

void logLine(const char* format, ...) {
  char line[2048];
  va_list ap;
  va_start(ap, format);
  vsnprintf(line, sizeof line, format, ap);
  va_end(ap);
  // One fprintf per line: stdio locks the stream, so lines of different threads do not mix.
  fprintf(stderr, "readersim: %s\n", line);
}

std::vector<uint8_t> encodeMessage(const llrp::Message& message, bool verbose) {
  std::vector<uint8_t> frame;
  llrp::Error e = llrp::encode(message, frame);
  if (!e.ok()) {
    logLine("cannot encode %s: %s", llrp::messageName(llrp::messageType(message.body)),
            e.text().c_str());
    frame.clear();
    return frame;
  }
  if (verbose) logLine("-> %s", llrp::describe(message).c_str());
  return frame;
}

void logReceived(const llrp::Message& message, bool verbose) {
  if (verbose) logLine("<- %s", llrp::describe(message).c_str());
}

}  // namespace tessera::readersim
