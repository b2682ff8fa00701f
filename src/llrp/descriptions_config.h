// src/llrp/descriptions_config.h — the parameters of reader configuration and of the ROSpec.
#pragma once

#include "llrp/descriptions_common.h"

namespace tessera::llrp::desc {

// ---- air protocol settings ----

struct C1G2TagInventoryMask : Tlv<332> {
  static constexpr const char* kName = "C1G2TagInventoryMask";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.bits(2, "MB", r.mb);
    v.reserved(6);
    v.u16("Pointer", r.pointer);
    v.u1v("TagMask", r.tagMask);
  }
};

struct C1G2TagInventoryStateAwareFilterAction : Tlv<333> {
  static constexpr const char* kName = "C1G2TagInventoryStateAwareFilterAction";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("Target", r.target);
    v.u8("Action", r.action);
  }
};

struct C1G2TagInventoryStateUnawareFilterAction : Tlv<334> {
  static constexpr const char* kName = "C1G2TagInventoryStateUnawareFilterAction";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("Action", r.action);
  }
};

struct C1G2Filter : Tlv<331> {
  static constexpr const char* kName = "C1G2Filter";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.bits(2, "T", r.t);
    v.reserved(6);
    v.sub(C1G2TagInventoryMask{}, r.tagInventoryMask);
    v.sub(C1G2TagInventoryStateAwareFilterAction{}, r.stateAwareAction);
    v.sub(C1G2TagInventoryStateUnawareFilterAction{}, r.stateUnawareAction);
  }
};

struct C1G2RFControl : Tlv<335> {
  static constexpr const char* kName = "C1G2RFControl";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("ModeIndex", r.modeIndex);
    v.u16("Tari", r.tari);
  }
};

struct C1G2TagInventoryStateAwareSingulationAction : Tlv<337> {
  static constexpr const char* kName = "C1G2TagInventoryStateAwareSingulationAction";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.bits(1, "I", r.i);
    v.bits(1, "S", r.s);
    v.reserved(6);
  }
};

struct C1G2SingulationControl : Tlv<336> {
  static constexpr const char* kName = "C1G2SingulationControl";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.bits(2, "Session", r.session);
    v.reserved(6);
    v.u16("TagPopulation", r.tagPopulation);
    v.u32("TagTransitTime", r.tagTransitTime);
    v.sub(C1G2TagInventoryStateAwareSingulationAction{}, r.stateAwareAction);
  }
};

struct C1G2InventoryCommand : Tlv<330> {
  static constexpr const char* kName = "C1G2InventoryCommand";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.bits(1, "TagInventoryStateAware", r.tagInventoryStateAware);
    v.reserved(7);
    v.sub(C1G2Filter{}, r.filters);
    v.sub(C1G2RFControl{}, r.rfControl);
    v.sub(C1G2SingulationControl{}, r.singulationControl);
    v.sub(Custom{}, r.customs);
  }
};

struct C1G2EPCMemorySelector : Tlv<348> {
  static constexpr const char* kName = "C1G2EPCMemorySelector";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.bits(1, "EnableCRC", r.enableCRC);
    v.bits(1, "EnablePCBits", r.enablePCBits);
    v.reserved(6);
  }
};

// ---- reader configuration ----

struct RFReceiver : Tlv<223> {
  static constexpr const char* kName = "RFReceiver";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("ReceiverSensitivity", r.receiverSensitivity);
  }
};

struct RFTransmitter : Tlv<224> {
  static constexpr const char* kName = "RFTransmitter";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("HopTableID", r.hopTableId);
    v.u16("ChannelIndex", r.channelIndex);
    v.u16("TransmitPower", r.transmitPower);
  }
};

struct AntennaConfiguration : Tlv<222> {
  static constexpr const char* kName = "AntennaConfiguration";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("AntennaID", r.antennaId);
    v.sub(RFReceiver{}, r.rfReceiver);
    v.sub(RFTransmitter{}, r.rfTransmitter);
    v.sub(C1G2InventoryCommand{}, r.inventoryCommands);
  }
};

struct AntennaProperties : Tlv<221> {
  static constexpr const char* kName = "AntennaProperties";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.bits(1, "AntennaConnected", r.antennaConnected);
    v.reserved(7);
    v.u16("AntennaID", r.antennaId);
    v.s16("AntennaGain", r.antennaGain);
  }
};

struct LLRPConfigurationStateValue : Tlv<217> {
  static constexpr const char* kName = "LLRPConfigurationStateValue";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u32("LLRPConfigurationStateValue", r);
  }
};

struct Identification : Tlv<218> {
  static constexpr const char* kName = "Identification";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("IDType", r.idType);
    v.u8v("ReaderID", r.readerId);
  }
};

struct GPOWriteData : Tlv<219> {
  static constexpr const char* kName = "GPOWriteData";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("GPOPortNumber", r.gpoPortNumber);
    v.bits(1, "GPOData", r.gpoData);
    v.reserved(7);
  }
};

struct KeepaliveSpec : Tlv<220> {
  static constexpr const char* kName = "KeepaliveSpec";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("KeepaliveTriggerType", r.keepaliveTriggerType);
    v.u32("PeriodicTriggerValue", r.periodicTriggerValue);
  }
};

struct GPIPortCurrentState : Tlv<225> {
  static constexpr const char* kName = "GPIPortCurrentState";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("GPIPortNum", r.gpiPortNum);
    v.bits(1, "Config", r.config);
    v.reserved(7);
    v.u8("State", r.state);
  }
};

struct EventsAndReports : Tlv<226> {
  static constexpr const char* kName = "EventsAndReports";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.bits(1, "HoldEventsAndReportsUponReconnect", r.holdEventsAndReportsUponReconnect);
    v.reserved(7);
  }
};

struct TagReportContentSelector : Tlv<238> {
  static constexpr const char* kName = "TagReportContentSelector";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.bits(1, "EnableROSpecID", r.enableROSpecId);
    v.bits(1, "EnableSpecIndex", r.enableSpecIndex);
    v.bits(1, "EnableInventoryParameterSpecID", r.enableInventoryParameterSpecId);
    v.bits(1, "EnableAntennaID", r.enableAntennaId);
    v.bits(1, "EnableChannelIndex", r.enableChannelIndex);
    v.bits(1, "EnablePeakRSSI", r.enablePeakRSSI);
    v.bits(1, "EnableFirstSeenTimestamp", r.enableFirstSeenTimestamp);
    v.bits(1, "EnableLastSeenTimestamp", r.enableLastSeenTimestamp);
    v.bits(1, "EnableTagSeenCount", r.enableTagSeenCount);
    v.bits(1, "EnableAccessSpecID", r.enableAccessSpecId);
    v.reserved(6);
    v.sub(C1G2EPCMemorySelector{}, r.epcMemorySelectors);
  }
};

struct ROReportSpec : Tlv<237> {
  static constexpr const char* kName = "ROReportSpec";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("ROReportTrigger", r.roReportTrigger);
    v.u16("N", r.n);
    v.sub(TagReportContentSelector{}, r.tagReportContentSelector);
    v.sub(Custom{}, r.customs);
  }
};

struct AccessReportSpec : Tlv<239> {
  static constexpr const char* kName = "AccessReportSpec";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("AccessReportTrigger", r.accessReportTrigger);
  }
};

struct EventNotificationState : Tlv<245> {
  static constexpr const char* kName = "EventNotificationState";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("EventType", r.eventType);
    v.bits(1, "NotificationState", r.notificationState);
    v.reserved(7);
  }
};

struct ReaderEventNotificationSpec : Tlv<244> {
  static constexpr const char* kName = "ReaderEventNotificationSpec";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.sub(EventNotificationState{}, r.eventNotificationStates);
  }
};

// ---- ROSpec ----

struct PeriodicTriggerValue : Tlv<180> {
  static constexpr const char* kName = "PeriodicTriggerValue";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u32("Offset", r.offset);
    v.u32("Period", r.period);
    v.sub(UTCTimestamp{}, r.utcTimestamp);
  }
};

struct GPITriggerValue : Tlv<181> {
  static constexpr const char* kName = "GPITriggerValue";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("GPIPortNum", r.gpiPortNum);
    v.bits(1, "GPIEvent", r.gpiEvent);
    v.reserved(7);
    v.u32("Timeout", r.timeout);
  }
};

struct ROSpecStartTrigger : Tlv<179> {
  static constexpr const char* kName = "ROSpecStartTrigger";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("ROSpecStartTriggerType", r.roSpecStartTriggerType);
    v.sub(PeriodicTriggerValue{}, r.periodicTriggerValue);
    v.sub(GPITriggerValue{}, r.gpiTriggerValue);
  }
};

struct ROSpecStopTrigger : Tlv<182> {
  static constexpr const char* kName = "ROSpecStopTrigger";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("ROSpecStopTriggerType", r.roSpecStopTriggerType);
    v.u32("DurationTriggerValue", r.durationTriggerValue);
    v.sub(GPITriggerValue{}, r.gpiTriggerValue);
  }
};

struct ROBoundarySpec : Tlv<178> {
  static constexpr const char* kName = "ROBoundarySpec";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.sub(ROSpecStartTrigger{}, r.roSpecStartTrigger);
    v.sub(ROSpecStopTrigger{}, r.roSpecStopTrigger);
  }
};

struct TagObservationTrigger : Tlv<185> {
  static constexpr const char* kName = "TagObservationTrigger";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("TriggerType", r.triggerType);
    v.reserved(8);
    v.u16("NumberOfTags", r.numberOfTags);
    v.u16("NumberOfAttempts", r.numberOfAttempts);
    v.u16("T", r.t);
    v.u32("Timeout", r.timeout);
  }
};

struct AISpecStopTrigger : Tlv<184> {
  static constexpr const char* kName = "AISpecStopTrigger";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("AISpecStopTriggerType", r.aiSpecStopTriggerType);
    v.u32("DurationTrigger", r.durationTrigger);
    v.sub(GPITriggerValue{}, r.gpiTriggerValue);
    v.sub(TagObservationTrigger{}, r.tagObservationTrigger);
  }
};

struct InventoryParameterSpec : Tlv<186> {
  static constexpr const char* kName = "InventoryParameterSpec";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("InventoryParameterSpecID", r.inventoryParameterSpecId);
    v.u8("ProtocolID", r.protocolId);
    v.sub(AntennaConfiguration{}, r.antennaConfigurations);
    v.sub(Custom{}, r.customs);
  }
};

struct AISpec : Tlv<183> {
  static constexpr const char* kName = "AISpec";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16v("AntennaIDs", r.antennaIds);
    v.sub(AISpecStopTrigger{}, r.aiSpecStopTrigger);
    v.sub(InventoryParameterSpec{}, r.inventoryParameterSpecs);
    v.sub(Custom{}, r.customs);
  }
};

struct RFSurveySpecStopTrigger : Tlv<188> {
  static constexpr const char* kName = "RFSurveySpecStopTrigger";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("StopTriggerType", r.stopTriggerType);
    v.u32("DurationPeriod", r.durationPeriod);
    v.u32("N", r.n);
  }
};

struct RFSurveySpec : Tlv<187> {
  static constexpr const char* kName = "RFSurveySpec";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("AntennaID", r.antennaId);
    v.u32("StartFrequency", r.startFrequency);
    v.u32("EndFrequency", r.endFrequency);
    v.sub(RFSurveySpecStopTrigger{}, r.rfSurveySpecStopTrigger);
    v.sub(Custom{}, r.customs);
  }
};

struct ROSpec : Tlv<177> {
  static constexpr const char* kName = "ROSpec";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u32("ROSpecID", r.roSpecId);
    v.u8("Priority", r.priority);
    v.u8("CurrentState", r.currentState);
    v.sub(ROBoundarySpec{}, r.roBoundarySpec);
    v.sub(AISpec{}, r.aiSpecs);
    v.sub(RFSurveySpec{}, r.rfSurveySpecs);
    v.sub(Custom{}, r.customs);
    v.sub(ROReportSpec{}, r.roReportSpec);
  }
};

}  // namespace tessera::llrp::desc
