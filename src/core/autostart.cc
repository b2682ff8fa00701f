#include "core/autostart.h"

namespace tessera {

void bootAutostart() {}

}  // namespace tessera
