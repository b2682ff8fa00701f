// src/readerapi/reader_caps.cc — see reader_caps.h.
#include "readerapi/reader_caps.h"

#include <algorithm>

#include "readerapi/wide_text.h"

namespace tessera::readerapi {

namespace {

void addGeneral(const llrp::GeneralDeviceCapabilities& g, ReaderCaps& caps) {
  caps.numAntennas = g.maxNumberOfAntennaSupported;
  caps.numGpis = g.gpioCapabilities.numGPIs;
  caps.numGpos = g.gpioCapabilities.numGPOs;
  caps.manufacturerId = g.deviceManufacturerName;
  caps.modelId = g.modelName;
  copyWide(caps.firmwareVersion, g.readerFirmwareVersion);
  caps.hasUtcClock = g.hasUTCClockCapability;
  caps.canSetAntennaProperties = g.canSetAntennaProperties;
  for (const auto& e : g.receiveSensitivityTable) {
    if (caps.numReceiveSensitivities >= kMaxSensitivityLevels) break;
    caps.receiveSensitivities[caps.numReceiveSensitivities++] = e.receiveSensitivityValue;
  }
}

void addUhfBand(const llrp::UHFBandCapabilities& u, ReaderCaps& caps) {
  for (const auto& e : u.transmitPowerLevels) {
    if (caps.numTransmitPowerLevels >= kMaxPowerLevels) break;
    caps.transmitPowerIndexes[caps.numTransmitPowerLevels] = e.index;
    // ReaderCaps has no room for a negative power: such a level reads as 0.
    caps.transmitPowerLevels[caps.numTransmitPowerLevels] =
        static_cast<uint16_t>(std::max<int16_t>(e.transmitPowerValue, 0));
    ++caps.numTransmitPowerLevels;
  }
  caps.hopping = u.frequencyInformation.hopping;
  if (!u.frequencyInformation.hopTables.empty()) {
    caps.numChannels =
        static_cast<uint16_t>(u.frequencyInformation.hopTables[0].frequencies.size());
  } else if (u.frequencyInformation.fixedFrequencyTable) {
    caps.numChannels =
        static_cast<uint16_t>(u.frequencyInformation.fixedFrequencyTable->frequencies.size());
  }
  if (u.c1g2RFModeTable) caps.numRfModes = static_cast<uint16_t>(u.c1g2RFModeTable->entries.size());
}

}  // namespace

ReaderCaps toReaderCaps(const llrp::GetReaderCapabilitiesResponse& c) {
  ReaderCaps caps{};
  if (c.generalDeviceCapabilities) addGeneral(*c.generalDeviceCapabilities, caps);
  if (c.llrpCapabilities) {
    caps.stateAwareSingulation = c.llrpCapabilities->canDoTagInventoryStateAwareSingulation;
    caps.canReportBufferFillWarning = c.llrpCapabilities->canReportBufferFillWarning;
    caps.maxRoSpecs = c.llrpCapabilities->maxNumROSpecs;
    caps.maxAccessSpecs = c.llrpCapabilities->maxNumAccessSpecs;
  }
  if (c.c1g2LLRPCapabilities)
    caps.maxSelectFiltersPerQuery = c.c1g2LLRPCapabilities->maxNumSelectFiltersPerQuery;
  if (c.regulatoryCapabilities) {
    const auto& r = *c.regulatoryCapabilities;
    caps.countryCode = r.countryCode;
    caps.communicationsStandard = static_cast<uint16_t>(r.communicationsStandard);
    if (r.uhfBandCapabilities) addUhfBand(*r.uhfBandCapabilities, caps);
  }
  return caps;
}

}  // namespace tessera::readerapi
