// src/config/cloud_conf.h — "/readerconfig/cloud.conf": key=value lines that may change the
// five known cloud settings, and the enrolled / auto-connect flags derived from them.
#pragma once

#include "config/config_records.h"

namespace tessera {

// Reads the file into `cloud` (known keys only, never resetting) and sets both flags; a
// missing file changes nothing but the flags, which follow the values held.
void readCloudConfig(CloudSettings& cloud);

}  // namespace tessera
