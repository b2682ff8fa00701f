// src/app/options.h — the command line of the tessera binary.
#pragma once

#include "platform/platform.h"

namespace tessera {

struct CommandLine {
  platform::Settings settings;  // the platform seam's settings
  bool help = false;            // print the usage text and exit 0
  bool checkConfig = false;     // print a report of the configuration files and exit
};

// Parses argv; 0, or 2 after a message on stderr naming the bad option or value.
[[nodiscard]] int parseCommandLine(int argc, char** argv, CommandLine& out);
// Prints the usage text.
void printUsage(const char* program);

}  // namespace tessera
