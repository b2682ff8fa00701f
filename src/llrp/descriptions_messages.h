// src/llrp/descriptions_messages.h — every LLRP message the codec models, described once:
// MessageOf<Body> holds the message's name, type number and fields in wire order.
#pragma once

#include "llrp/descriptions_access.h"
#include "llrp/descriptions_capabilities.h"
#include "llrp/descriptions_common.h"
#include "llrp/descriptions_config.h"
#include "llrp/descriptions_reports.h"

namespace tessera::llrp::desc {

template <MessageType kMessage>
struct Msg {
  static constexpr uint16_t kType = static_cast<uint16_t>(kMessage);
  static constexpr bool kTv = false;
  static constexpr const char* kName = messageName(kMessage);
};

template <class Body>
struct MessageOf;

template <MessageType k>
struct MessageOf<EmptyMessage<k>> : Msg<k> {
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V&, R&) {}
};

template <MessageType k>
struct MessageOf<StatusResponse<k>> : Msg<k> {
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.sub(LLRPStatus{}, r.llrpStatus);
  }
};

template <MessageType k>
struct MessageOf<ROSpecIdRequest<k>> : Msg<k> {
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u32("ROSpecID", r.roSpecId);
  }
};

template <MessageType k>
struct MessageOf<AccessSpecIdRequest<k>> : Msg<k> {
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u32("AccessSpecID", r.accessSpecId);
  }
};

template <>
struct MessageOf<llrp::GetROSpecsResponse> : Msg<MessageType::kGetROSpecsResponse> {
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.sub(LLRPStatus{}, r.llrpStatus);
    v.sub(ROSpec{}, r.roSpecs);
  }
};

template <>
struct MessageOf<llrp::AddAccessSpec> : Msg<MessageType::kAddAccessSpec> {
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.sub(AccessSpec{}, r.accessSpec);
  }
};

template <>
struct MessageOf<llrp::GetAccessSpecsResponse> : Msg<MessageType::kGetAccessSpecsResponse> {
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.sub(LLRPStatus{}, r.llrpStatus);
    v.sub(AccessSpec{}, r.accessSpecs);
  }
};

template <>
struct MessageOf<llrp::DeleteAccessSpec> : Msg<MessageType::kDeleteAccessSpec> {
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u32("AccessSpecID", r.accessSpecId);
  }
};

template <>
struct MessageOf<llrp::GetReaderCapabilities> : Msg<MessageType::kGetReaderCapabilities> {
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u8("RequestedData", r.requestedData);
    v.sub(Custom{}, r.customs);
  }
};

template <>
struct MessageOf<llrp::GetReaderCapabilitiesResponse>
    : Msg<MessageType::kGetReaderCapabilitiesResponse> {
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.sub(LLRPStatus{}, r.llrpStatus);
    v.sub(GeneralDeviceCapabilities{}, r.generalDeviceCapabilities);
    v.sub(LLRPCapabilities{}, r.llrpCapabilities);
    v.sub(RegulatoryCapabilities{}, r.regulatoryCapabilities);
    v.sub(C1G2LLRPCapabilities{}, r.c1g2LLRPCapabilities);
    v.sub(Custom{}, r.customs);
  }
};

template <>
struct MessageOf<llrp::GetReaderConfig> : Msg<MessageType::kGetReaderConfig> {
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u16("AntennaID", r.antennaId);
    v.u8("RequestedData", r.requestedData);
    v.u16("GPIPortNum", r.gpiPortNum);
    v.u16("GPOPortNum", r.gpoPortNum);
    v.sub(Custom{}, r.customs);
  }
};

template <>
struct MessageOf<llrp::GetReaderConfigResponse> : Msg<MessageType::kGetReaderConfigResponse> {
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.sub(LLRPStatus{}, r.llrpStatus);
    v.sub(Identification{}, r.identification);
    v.sub(AntennaProperties{}, r.antennaProperties);
    v.sub(AntennaConfiguration{}, r.antennaConfigurations);
    v.sub(ReaderEventNotificationSpec{}, r.readerEventNotificationSpec);
    v.sub(ROReportSpec{}, r.roReportSpec);
    v.sub(AccessReportSpec{}, r.accessReportSpec);
    v.sub(LLRPConfigurationStateValue{}, r.llrpConfigurationStateValue);
    v.sub(KeepaliveSpec{}, r.keepaliveSpec);
    v.sub(GPIPortCurrentState{}, r.gpiPortCurrentStates);
    v.sub(GPOWriteData{}, r.gpoWriteData);
    v.sub(EventsAndReports{}, r.eventsAndReports);
    v.sub(Custom{}, r.customs);
  }
};

template <>
struct MessageOf<llrp::SetReaderConfig> : Msg<MessageType::kSetReaderConfig> {
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.bits(1, "ResetToFactoryDefault", r.resetToFactoryDefault);
    v.reserved(7);
    v.sub(ReaderEventNotificationSpec{}, r.readerEventNotificationSpec);
    v.sub(AntennaProperties{}, r.antennaProperties);
    v.sub(AntennaConfiguration{}, r.antennaConfigurations);
    v.sub(ROReportSpec{}, r.roReportSpec);
    v.sub(AccessReportSpec{}, r.accessReportSpec);
    v.sub(KeepaliveSpec{}, r.keepaliveSpec);
    v.sub(GPOWriteData{}, r.gpoWriteData);
    v.sub(GPIPortCurrentState{}, r.gpiPortCurrentStates);
    v.sub(EventsAndReports{}, r.eventsAndReports);
    v.sub(Custom{}, r.customs);
  }
};

template <>
struct MessageOf<llrp::AddROSpec> : Msg<MessageType::kAddROSpec> {
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.sub(ROSpec{}, r.roSpec);
  }
};

template <>
struct MessageOf<llrp::ROAccessReport> : Msg<MessageType::kROAccessReport> {
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.sub(TagReportData{}, r.tagReportData);
    v.sub(RFSurveyReportData{}, r.rfSurveyReportData);
    v.sub(Custom{}, r.customs);
  }
};

template <>
struct MessageOf<llrp::ReaderEventNotification> : Msg<MessageType::kReaderEventNotification> {
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.sub(ReaderEventNotificationData{}, r.readerEventNotificationData);
  }
};

template <>
struct MessageOf<llrp::CustomMessage> : Msg<MessageType::kCustomMessage> {
  template <class V, class R>
  [[gnu::always_inline]] static constexpr void fields(V& v, R& r) {
    v.u32("VendorIdentifier", r.vendorId);
    v.u8("MessageSubtype", r.subtype);
    v.bytesToEnd("Data", r.data);
  }
};

}  // namespace tessera::llrp::desc
