// src/app/autostart.h — the streaming mode that starts by itself when the service starts.
#pragma once

namespace tessera {

// Starts the serial push (every start) or the relay (once per boot) when configured to.
void bootAutostart();

}  // namespace tessera
