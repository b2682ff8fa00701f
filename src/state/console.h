// src/state/console.h — the service's console trace: texts the system prints on standard output
// beside the log (reader event traces, command traces, reader error texts).
#pragma once

namespace tessera {

// Formats wide text and writes it to standard output as narrow text in one write.
void consolePrint(const wchar_t* format, ...);

}  // namespace tessera
