#include "state/service_state.h"

namespace tessera {

// Built after the Logger (priority 101) and before everything else that may log or use it.
ServiceState serviceState __attribute__((init_priority(102)));

}  // namespace tessera
