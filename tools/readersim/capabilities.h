// tools/readersim/capabilities.h — what the simulated reader says it is and can do.
#pragma once

#include "llrp/records.h"
#include "model.h"
#include "options.h"

namespace tessera::readersim {

// DeviceManufacturerName is the vendor number; the model number of the simulator.
inline constexpr uint32_t kModelNumber = 1;
inline constexpr const char* kFirmwareVersion = "tessera-readersim 1.0";
// Frequency hop table: FCC, 50 channels from 902.75 MHz in 500 kHz steps.
inline constexpr uint32_t kFirstChannelKhz = 902750;
inline constexpr uint32_t kChannelStepKhz = 500;
inline constexpr unsigned kChannels = 50;
// Capacity limits the engine enforces and the capabilities publish.
inline constexpr uint32_t kMaxRoSpecsCap = 16;
inline constexpr uint32_t kMaxSpecsPerRoSpecCap = 8;
inline constexpr uint16_t kMaxSelectFiltersCap = 8;
inline constexpr uint16_t kReceiveSensitivityEntries = 1;

// The GET_READER_CAPABILITIES_RESPONSE body for the requested part (0 = all); success status.
llrp::GetReaderCapabilitiesResponse buildCapabilities(const Options& options,
                                                      llrp::GetReaderCapabilitiesRequestedData what);
// The configuration of a reader fresh from the factory.
ReaderConfig factoryDefaults(const Options& options);

}  // namespace tessera::readersim
