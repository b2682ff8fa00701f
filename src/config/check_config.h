// src/config/check_config.h — `tessera --check-config`: reads the configuration files under the
// root with the real section readers and prints what each section gives, for integrators.
// Starts no thread, opens no socket and never touches the reader.
#pragma once

#include <cstdio>

namespace tessera {

// Prints, per section, the values read (passwords as "***"), the keys missing, the tokens
// passed over and every value cut or refused; 0 when at least one streaming mode is configured
// and every section the configured modes need is usable, 1 otherwise.
[[nodiscard]] int checkConfig(FILE* out);

}  // namespace tessera
