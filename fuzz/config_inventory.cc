// parseInventoryControl over arbitrary text: no read past the working copy, a result of 0 or -1.
#include <syslog.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "config/inventory_control.h"

// The readers log every refused value; without a syslog daemon the Logger's console fallback
// would make each run write to the console. Fuzzing keeps syslog but drops that fallback.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  openlog("tessera", LOG_NDELAY, LOG_USER);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);  // ends at the first NUL
  tessera::InventoryControlConfig config;
  const char* failure = nullptr;
  int result = tessera::parseInventoryControl(config, text.c_str(), &failure);
  if (result != 0 && result != -1) std::abort();
  if (result == -1 && failure == nullptr) std::abort();
  if (result == 0 &&
      (config.Session < 0 || config.Session > 3 || !config.TriggerRecord.hasValueBlock))
    std::abort();
  return 0;
}
