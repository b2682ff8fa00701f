// tools/readersim/state_file.h — the reader's saved configuration (--state FILE): written on
// the client's "save configuration" request, loaded at start. One "key=value" per line.
#pragma once

#include <string>

#include "model.h"
#include "options.h"

namespace tessera::readersim {

// Loads the saved settings over config; 0 loaded, 1 no file (config unchanged), -1 bad file
// (error says where; config unchanged).
[[nodiscard]] int loadState(const std::string& path, const Options& options, ReaderConfig& config,
                            std::string& error);
// Writes the saved part of config atomically (temporary file + rename); 0 or -1 with error.
[[nodiscard]] int saveState(const std::string& path, const ReaderConfig& config,
                            std::string& error);

}  // namespace tessera::readersim
