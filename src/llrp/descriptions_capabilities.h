// src/llrp/descriptions_capabilities.h — the parameters of GET_READER_CAPABILITIES_RESPONSE.
#pragma once

#include "llrp/descriptions_common.h"

namespace tessera::llrp::desc {

struct ReceiveSensitivityTableEntry : Tlv<139> {
  static constexpr const char* kName = "ReceiveSensitivityTableEntry";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("Index", r.index);
    v.s16("ReceiveSensitivityValue", r.receiveSensitivityValue);
  }
};

struct PerAntennaReceiveSensitivityRange : Tlv<149> {
  static constexpr const char* kName = "PerAntennaReceiveSensitivityRange";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("AntennaID", r.antennaId);
    v.u16("ReceiveSensitivityIndexMin", r.receiveSensitivityIndexMin);
    v.u16("ReceiveSensitivityIndexMax", r.receiveSensitivityIndexMax);
  }
};

struct PerAntennaAirProtocol : Tlv<140> {
  static constexpr const char* kName = "PerAntennaAirProtocol";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("AntennaID", r.antennaId);
    v.u8v("ProtocolID", r.protocolIds);
  }
};

struct GPIOCapabilities : Tlv<141> {
  static constexpr const char* kName = "GPIOCapabilities";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("NumGPIs", r.numGPIs);
    v.u16("NumGPOs", r.numGPOs);
  }
};

struct GeneralDeviceCapabilities : Tlv<137> {
  static constexpr const char* kName = "GeneralDeviceCapabilities";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("MaxNumberOfAntennaSupported", r.maxNumberOfAntennaSupported);
    v.bits(1, "CanSetAntennaProperties", r.canSetAntennaProperties);
    v.bits(1, "HasUTCClockCapability", r.hasUTCClockCapability);
    v.reserved(14);
    v.u32("DeviceManufacturerName", r.deviceManufacturerName);
    v.u32("ModelName", r.modelName);
    v.utf8v("ReaderFirmwareVersion", r.readerFirmwareVersion);
    v.sub(ReceiveSensitivityTableEntry{}, r.receiveSensitivityTable);
    v.sub(PerAntennaReceiveSensitivityRange{}, r.perAntennaReceiveSensitivityRanges);
    v.sub(GPIOCapabilities{}, r.gpioCapabilities);
    v.sub(PerAntennaAirProtocol{}, r.perAntennaAirProtocols);
  }
};

struct LLRPCapabilities : Tlv<142> {
  static constexpr const char* kName = "LLRPCapabilities";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.bits(1, "CanDoRFSurvey", r.canDoRFSurvey);
    v.bits(1, "CanReportBufferFillWarning", r.canReportBufferFillWarning);
    v.bits(1, "SupportsClientRequestOpSpec", r.supportsClientRequestOpSpec);
    v.bits(1, "CanDoTagInventoryStateAwareSingulation", r.canDoTagInventoryStateAwareSingulation);
    v.bits(1, "SupportsEventAndReportHolding", r.supportsEventAndReportHolding);
    v.reserved(3);
    v.u8("MaxNumPriorityLevelsSupported", r.maxNumPriorityLevelsSupported);
    v.u16("ClientRequestOpSpecTimeout", r.clientRequestOpSpecTimeout);
    v.u32("MaxNumROSpecs", r.maxNumROSpecs);
    v.u32("MaxNumSpecsPerROSpec", r.maxNumSpecsPerROSpec);
    v.u32("MaxNumInventoryParameterSpecsPerAISpec", r.maxNumInventoryParameterSpecsPerAISpec);
    v.u32("MaxNumAccessSpecs", r.maxNumAccessSpecs);
    v.u32("MaxNumOpSpecsPerAccessSpec", r.maxNumOpSpecsPerAccessSpec);
  }
};

struct TransmitPowerLevelTableEntry : Tlv<145> {
  static constexpr const char* kName = "TransmitPowerLevelTableEntry";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("Index", r.index);
    v.s16("TransmitPowerValue", r.transmitPowerValue);
  }
};

struct FrequencyHopTable : Tlv<147> {
  static constexpr const char* kName = "FrequencyHopTable";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("HopTableID", r.hopTableId);
    v.reserved(8);
    v.u32v("Frequency", r.frequencies);
  }
};

struct FixedFrequencyTable : Tlv<148> {
  static constexpr const char* kName = "FixedFrequencyTable";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u32v("Frequency", r.frequencies);
  }
};

struct FrequencyInformation : Tlv<146> {
  static constexpr const char* kName = "FrequencyInformation";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.bits(1, "Hopping", r.hopping);
    v.reserved(7);
    v.sub(FrequencyHopTable{}, r.hopTables);
    v.sub(FixedFrequencyTable{}, r.fixedFrequencyTable);
  }
};

struct C1G2UHFRFModeTableEntry : Tlv<329> {
  static constexpr const char* kName = "C1G2UHFRFModeTableEntry";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u32("ModeIdentifier", r.modeIdentifier);
    v.bits(1, "DRValue", r.drValue);
    v.bits(1, "EPCHAGTCConformance", r.epcHAGTCConformance);
    v.reserved(6);
    v.u8("MValue", r.mValue);
    v.u8("ForwardLinkModulation", r.forwardLinkModulation);
    v.u8("SpectralMaskIndicator", r.spectralMaskIndicator);
    v.u32("BDRValue", r.bdrValue);
    v.u32("PIEValue", r.pieValue);
    v.u32("MinTariValue", r.minTariValue);
    v.u32("MaxTariValue", r.maxTariValue);
    v.u32("StepTariValue", r.stepTariValue);
  }
};

struct C1G2UHFRFModeTable : Tlv<328> {
  static constexpr const char* kName = "C1G2UHFRFModeTable";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.sub(C1G2UHFRFModeTableEntry{}, r.entries);
  }
};

struct UHFBandCapabilities : Tlv<144> {
  static constexpr const char* kName = "UHFBandCapabilities";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.sub(TransmitPowerLevelTableEntry{}, r.transmitPowerLevels);
    v.sub(FrequencyInformation{}, r.frequencyInformation);
    v.sub(C1G2UHFRFModeTable{}, r.c1g2RFModeTable);
  }
};

struct RegulatoryCapabilities : Tlv<143> {
  static constexpr const char* kName = "RegulatoryCapabilities";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("CountryCode", r.countryCode);
    v.u16("CommunicationsStandard", r.communicationsStandard);
    v.sub(UHFBandCapabilities{}, r.uhfBandCapabilities);
    v.sub(Custom{}, r.customs);
  }
};

struct C1G2LLRPCapabilities : Tlv<327> {
  static constexpr const char* kName = "C1G2LLRPCapabilities";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.bits(1, "CanSupportBlockErase", r.canSupportBlockErase);
    v.bits(1, "CanSupportBlockWrite", r.canSupportBlockWrite);
    v.reserved(6);
    v.u16("MaxNumSelectFiltersPerQuery", r.maxNumSelectFiltersPerQuery);
  }
};

}  // namespace tessera::llrp::desc
