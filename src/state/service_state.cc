#include "state/service_state.h"

namespace tessera {

// The process's only global with a constructor, so no order among globals needs stating; the
// Logger builds itself at its first use.
ServiceState serviceState;

}  // namespace tessera
