// src/llrp/descriptions_reports.h — the parameters of tag reports and reader events.
#pragma once

#include "llrp/descriptions_access.h"
#include "llrp/descriptions_common.h"

namespace tessera::llrp::desc {

struct EPCData : Tlv<241> {
  static constexpr const char* kName = "EPCData";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u1v("EPC", r.epc);
  }
};

struct TagReportData : Tlv<240> {
  static constexpr const char* kName = "TagReportData";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.choice("EPCParameter", r.epc, EPC_96{}, EPCData{});
    v.sub(ROSpecID{}, r.roSpecId);
    v.sub(SpecIndex{}, r.specIndex);
    v.sub(InventoryParameterSpecID{}, r.inventoryParameterSpecId);
    v.sub(AntennaID{}, r.antennaId);
    v.sub(PeakRSSI{}, r.peakRSSI);
    v.sub(ChannelIndex{}, r.channelIndex);
    v.sub(FirstSeenTimestampUTC{}, r.firstSeenTimestampUTC);
    v.sub(FirstSeenTimestampUptime{}, r.firstSeenTimestampUptime);
    v.sub(LastSeenTimestampUTC{}, r.lastSeenTimestampUTC);
    v.sub(LastSeenTimestampUptime{}, r.lastSeenTimestampUptime);
    v.sub(TagSeenCount{}, r.tagSeenCount);
    v.sub(C1G2_PC{}, r.c1g2PC);
    v.sub(C1G2_CRC{}, r.c1g2CRC);
    v.sub(AccessSpecID{}, r.accessSpecId);
    v.choices("AccessCommandOpSpecResult", r.opSpecResults, C1G2ReadOpSpecResult{},
              C1G2WriteOpSpecResult{}, C1G2KillOpSpecResult{}, C1G2LockOpSpecResult{},
              C1G2BlockEraseOpSpecResult{}, C1G2BlockWriteOpSpecResult{});
    v.sub(Custom{}, r.customs);
  }
};

struct FrequencyRSSILevelEntry : Tlv<243> {
  static constexpr const char* kName = "FrequencyRSSILevelEntry";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u32("Frequency", r.frequency);
    v.u32("Bandwidth", r.bandwidth);
    v.s8("AverageRSSI", r.averageRSSI);
    v.s8("PeakRSSI", r.peakRSSI);
    v.choice("Timestamp", r.timestamp, UTCTimestamp{}, Uptime{});
  }
};

struct RFSurveyReportData : Tlv<242> {
  static constexpr const char* kName = "RFSurveyReportData";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.sub(ROSpecID{}, r.roSpecId);
    v.sub(SpecIndex{}, r.specIndex);
    v.sub(FrequencyRSSILevelEntry{}, r.frequencyRSSILevelEntries);
    v.sub(Custom{}, r.customs);
  }
};

struct HoppingEvent : Tlv<247> {
  static constexpr const char* kName = "HoppingEvent";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("HopTableID", r.hopTableId);
    v.u16("NextChannelIndex", r.nextChannelIndex);
  }
};

struct GPIEvent : Tlv<248> {
  static constexpr const char* kName = "GPIEvent";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("GPIPortNumber", r.gpiPortNumber);
    v.bits(1, "GPIEvent", r.gpiEvent);
    v.reserved(7);
  }
};

struct ROSpecEvent : Tlv<249> {
  static constexpr const char* kName = "ROSpecEvent";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("EventType", r.eventType);
    v.u32("ROSpecID", r.roSpecId);
    v.u32("PreemptingROSpecID", r.preemptingROSpecId);
  }
};

struct ReportBufferLevelWarningEvent : Tlv<250> {
  static constexpr const char* kName = "ReportBufferLevelWarningEvent";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("ReportBufferPercentageFull", r.reportBufferPercentageFull);
  }
};

struct ReportBufferOverflowErrorEvent : Tlv<251> {
  static constexpr const char* kName = "ReportBufferOverflowErrorEvent";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V&, R&) {}
};

struct ReaderExceptionEvent : Tlv<252> {
  static constexpr const char* kName = "ReaderExceptionEvent";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.utf8v("Message", r.message);
    v.sub(ROSpecID{}, r.roSpecId);
    v.sub(SpecIndex{}, r.specIndex);
    v.sub(InventoryParameterSpecID{}, r.inventoryParameterSpecId);
    v.sub(AntennaID{}, r.antennaId);
    v.sub(AccessSpecID{}, r.accessSpecId);
    v.sub(OpSpecID{}, r.opSpecId);
    v.sub(Custom{}, r.customs);
  }
};

struct RFSurveyEvent : Tlv<253> {
  static constexpr const char* kName = "RFSurveyEvent";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("EventType", r.eventType);
    v.u32("ROSpecID", r.roSpecId);
    v.u16("SpecIndex", r.specIndex);
  }
};

struct AISpecEvent : Tlv<254> {
  static constexpr const char* kName = "AISpecEvent";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("EventType", r.eventType);
    v.u32("ROSpecID", r.roSpecId);
    v.u16("SpecIndex", r.specIndex);
    v.sub(C1G2SingulationDetails{}, r.singulationDetails);
  }
};

struct AntennaEvent : Tlv<255> {
  static constexpr const char* kName = "AntennaEvent";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("EventType", r.eventType);
    v.u16("AntennaID", r.antennaId);
  }
};

struct ConnectionAttemptEvent : Tlv<256> {
  static constexpr const char* kName = "ConnectionAttemptEvent";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("Status", r.status);
  }
};

struct ConnectionCloseEvent : Tlv<257> {
  static constexpr const char* kName = "ConnectionCloseEvent";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V&, R&) {}
};

struct ReaderEventNotificationData : Tlv<246> {
  static constexpr const char* kName = "ReaderEventNotificationData";
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.choice("Timestamp", r.timestamp, UTCTimestamp{}, Uptime{});
    v.sub(HoppingEvent{}, r.hoppingEvent);
    v.sub(GPIEvent{}, r.gpiEvent);
    v.sub(ROSpecEvent{}, r.roSpecEvent);
    v.sub(ReportBufferLevelWarningEvent{}, r.reportBufferLevelWarningEvent);
    v.sub(ReportBufferOverflowErrorEvent{}, r.reportBufferOverflowErrorEvent);
    v.sub(ReaderExceptionEvent{}, r.readerExceptionEvent);
    v.sub(RFSurveyEvent{}, r.rfSurveyEvent);
    v.sub(AISpecEvent{}, r.aiSpecEvent);
    v.sub(AntennaEvent{}, r.antennaEvent);
    v.sub(ConnectionAttemptEvent{}, r.connectionAttemptEvent);
    v.sub(ConnectionCloseEvent{}, r.connectionCloseEvent);
    v.sub(Custom{}, r.customs);
  }
};

}  // namespace tessera::llrp::desc
