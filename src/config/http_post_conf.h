// src/config/http_post_conf.h — the HTTPPostConfig section: server URL, credentials, TLS checks,
// proxy, posting interval and the reader name shown in the JSON reports.
#pragma once

#include <cstdint>

#include "config/config_records.h"
#include "config/config_scan.h"

namespace tessera {

// Sets format.Format to "JSON", then reads the section into `http` and `name`: 1 read, 0 no
// file, -1 no section (logged). Keys the section does not name keep their values.
[[nodiscard]] int32_t readHttpPostConfig(HttpPostConfig& http, ReaderName& name,
                                         DataFormatConfig& format, ConfigNotes* notes = nullptr);

// The libcurl authentication mask of a name ("none", "basic", "digest", ...); 0xFFFFFFFF for
// an unknown name.
uint32_t httpAuthTypeFromName(const char* name);

}  // namespace tessera
