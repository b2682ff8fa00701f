// tools/readersim/capabilities.cc — capabilities and factory defaults of the simulated reader.
#include "capabilities.h"

#include "llrp/vendor_extension.h"

namespace tessera::readersim {

namespace {

llrp::GeneralDeviceCapabilities general(const Options& o) {
  llrp::GeneralDeviceCapabilities g;
  g.maxNumberOfAntennaSupported = static_cast<uint16_t>(o.antennas);
  g.canSetAntennaProperties = false;
  g.hasUTCClockCapability = true;
  g.deviceManufacturerName = llrp::kVendorId;
  g.modelName = kModelNumber;
  g.readerFirmwareVersion = kFirmwareVersion;
  for (uint16_t i = 1; i <= kReceiveSensitivityEntries; ++i) {
    g.receiveSensitivityTable.push_back({i, 0});  // 0 dB below the maximum sensitivity
  }
  g.gpioCapabilities.numGPIs = static_cast<uint16_t>(o.gpis);
  g.gpioCapabilities.numGPOs = static_cast<uint16_t>(o.gpos);
  for (unsigned a = 1; a <= o.antennas; ++a) {
    llrp::PerAntennaAirProtocol p;
    p.antennaId = static_cast<uint16_t>(a);
    p.protocolIds.push_back(llrp::AirProtocol::kEPCGlobalClass1Gen2);
    g.perAntennaAirProtocols.push_back(std::move(p));
  }
  return g;
}

llrp::LLRPCapabilities llrpCaps() {
  llrp::LLRPCapabilities c;
  c.canDoRFSurvey = false;
  c.canReportBufferFillWarning = true;
  c.supportsClientRequestOpSpec = false;
  c.canDoTagInventoryStateAwareSingulation = true;
  c.supportsEventAndReportHolding = true;
  c.maxNumPriorityLevelsSupported = 8;
  c.clientRequestOpSpecTimeout = 0;
  c.maxNumROSpecs = kMaxRoSpecsCap;
  c.maxNumSpecsPerROSpec = kMaxSpecsPerRoSpecCap;
  c.maxNumInventoryParameterSpecsPerAISpec = 1;
  c.maxNumAccessSpecs = 0;  // no tag access (ADD_ACCESSSPEC is not supported)
  c.maxNumOpSpecsPerAccessSpec = 0;
  return c;
}

llrp::RegulatoryCapabilities regulatory(const Options& o) {
  llrp::RegulatoryCapabilities r;
  r.countryCode = 840;
  r.communicationsStandard = llrp::CommunicationsStandard::kUSFCCPart15;
  llrp::UHFBandCapabilities band;
  unsigned entries = powerTableSize(o);
  for (unsigned i = 1; i <= entries; ++i) {
    band.transmitPowerLevels.push_back({static_cast<uint16_t>(i), powerTableValue(o, i)});
  }
  band.frequencyInformation.hopping = true;
  llrp::FrequencyHopTable hop;
  hop.hopTableId = 1;
  for (unsigned k = 0; k < kChannels; ++k) hop.frequencies.push_back(kFirstChannelKhz + k * kChannelStepKhz);
  band.frequencyInformation.hopTables.push_back(std::move(hop));
  llrp::C1G2UHFRFModeTableEntry mode;
  mode.modeIdentifier = 0;
  mode.drValue = true;                // DR 64/3
  mode.epcHAGTCConformance = false;
  mode.mValue = 2;                    // Miller 4
  mode.forwardLinkModulation = 0;     // PR-ASK
  mode.spectralMaskIndicator = 2;     // multi-interrogator
  mode.bdrValue = 256000;             // backscatter data rate, bps
  mode.pieValue = 2000;               // PIE ratio x 1000
  mode.minTariValue = 12500;          // ns
  mode.maxTariValue = 25000;
  mode.stepTariValue = 6250;
  band.c1g2RFModeTable = llrp::C1G2UHFRFModeTable{{mode}};
  r.uhfBandCapabilities = std::move(band);
  return r;
}

}  // namespace

llrp::GetReaderCapabilitiesResponse buildCapabilities(const Options& options,
                                                      llrp::GetReaderCapabilitiesRequestedData what) {
  using RD = llrp::GetReaderCapabilitiesRequestedData;
  llrp::GetReaderCapabilitiesResponse r;
  r.llrpStatus.statusCode = llrp::StatusCode::kSuccess;
  r.llrpStatus.errorDescription = "Success";
  if (what == RD::kAll || what == RD::kGeneralDeviceCapabilities) {
    r.generalDeviceCapabilities = general(options);
  }
  if (what == RD::kAll || what == RD::kLLRPCapabilities) r.llrpCapabilities = llrpCaps();
  if (what == RD::kAll || what == RD::kRegulatoryCapabilities) {
    r.regulatoryCapabilities = regulatory(options);
  }
  if (what == RD::kAll || what == RD::kAirProtocolCapabilities) {
    llrp::C1G2LLRPCapabilities c;
    c.canSupportBlockErase = false;
    c.canSupportBlockWrite = false;
    c.maxNumSelectFiltersPerQuery = kMaxSelectFiltersCap;
    r.c1g2LLRPCapabilities = c;
  }
  return r;
}

ReaderConfig factoryDefaults(const Options& options) {
  ReaderConfig c;
  uint16_t maxPower = static_cast<uint16_t>(powerTableSize(options));
  for (unsigned a = 1; a <= options.antennas; ++a) {
    AntennaSettings s;
    s.id = static_cast<uint16_t>(a);
    s.transmitPower = maxPower;
    c.antennas.push_back(s);
    c.antennaConnected.push_back(true);
  }
  // Reports: one read per report, the fields a typical client asks for, PC bits included.
  c.roReport = RoReportDef();
  c.roReport.content.hasEpcSelector = true;
  c.events.fill(true);
  c.events[0] = false;  // hopping
  c.events[5] = false;  // RF survey (not supported)
  c.events[7] = false;  // AISpec event with singulation details
  c.keepaliveMs = 0;
  c.gpis.assign(options.gpis, GpiPort());
  c.gpos.assign(options.gpos, false);
  return c;
}

}  // namespace tessera::readersim
