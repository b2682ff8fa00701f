// src/readerapi/reader_settings.cc — the ReaderSession calls that read and change the library's
// settings for the reader: antenna configuration, singulation, tag storage, pre-filters and
// saving the reader's configuration.
#include <algorithm>

#include "llrp/codec.h"
#include "llrp/vendor_extension.h"
#include "readerapi/reader_session.h"

namespace tessera::readerapi {

using llrp::MessageType;

RfidStatus ReaderSession::getAntennaConfig(uint16_t antennaId, uint16_t& rx, uint16_t& power,
                                           uint16_t& freq) {
  if (onReceiveThread())
    return fail(RFID_API_CALLBACK_CONTEXT, "RFID_GetAntennaConfig called from the event callback");
  std::lock_guard op(opLock_);
  const uint16_t n = antennaCount();
  if (antennaId == 0 || antennaId > n) {
    return noSuchAntenna(antennaId, n);
  }
  llrp::GetReaderConfig get;
  get.antennaId = antennaId;
  get.requestedData = llrp::GetReaderConfigRequestedData::kAntennaConfiguration;
  llrp::Message reply;
  RfidStatus st = requestChecked(get, MessageType::kGetReaderConfigResponse, reply);
  if (st != RFID_API_SUCCESS) return st;
  const auto& r = std::get<llrp::GetReaderConfigResponse>(reply.body);
  const llrp::AntennaConfiguration* found = nullptr;
  for (const auto& ac : r.antennaConfigurations) {
    if (ac.antennaId == antennaId) found = &ac;
  }
  if (found == nullptr || !found->rfTransmitter) {
    return fail(
        RFID_API_PROTOCOL_ERROR,
        "the reader sent no transmitter configuration for antenna " + std::to_string(antennaId),
        "GET_READER_CONFIG_RESPONSE");
  }
  std::lock_guard g(stateLock_);
  auto& a = antennas_[antennaId - 1];
  if (found->rfReceiver) a.receiver = found->rfReceiver;
  a.transmitter = found->rfTransmitter;
  rx = found->rfReceiver ? found->rfReceiver->receiverSensitivity : 0;
  power = found->rfTransmitter->transmitPower;
  freq = caps_.hopping ? found->rfTransmitter->hopTableId : found->rfTransmitter->channelIndex;
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::setAntennaConfig(uint16_t antennaId, uint16_t rx, uint16_t power,
                                           uint16_t freq) {
  if (onReceiveThread())
    return fail(RFID_API_CALLBACK_CONTEXT, "RFID_SetAntennaConfig called from the event callback");
  std::lock_guard op(opLock_);
  llrp::SetReaderConfig cfg;
  std::vector<uint16_t> ids;
  const uint16_t n = antennaCount();
  if (antennaId > n) {
    return noSuchAntenna(antennaId, n);
  }
  {
    std::lock_guard g(stateLock_);
    if (caps_.numTransmitPowerLevels > 0) {
      bool known = false;
      for (uint16_t i = 0; i < caps_.numTransmitPowerLevels && !known; ++i) {
        known = caps_.transmitPowerIndexes[i] == power;
      }
      if (!known) {
        failLocked(
            RFID_API_PARAM_OUT_OF_RANGE,
            "power index " + std::to_string(power) + " is not in the reader's power table",
            "transmit power table of " + std::to_string(caps_.numTransmitPowerLevels) + " entries");
        return RFID_API_PARAM_OUT_OF_RANGE;
      }
    }
    if (antennaId == 0) {
      for (uint16_t i = 1; i <= n; ++i) ids.push_back(i);
    } else {
      ids.push_back(antennaId);
    }
    for (uint16_t id : ids) {
      const auto& a = antennas_[id - 1];
      llrp::AntennaConfiguration ac;
      ac.antennaId = id;
      ac.rfReceiver = llrp::RFReceiver{rx};
      llrp::RFTransmitter tx = a.transmitter.value_or(llrp::RFTransmitter{1, 1, power});
      tx.transmitPower = power;
      if (caps_.hopping) {
        tx.hopTableId = freq;
      } else {
        tx.channelIndex = freq;
      }
      ac.rfTransmitter = tx;
      cfg.antennaConfigurations.push_back(ac);
    }
  }
  llrp::Message reply;
  RfidStatus st = requestChecked(cfg, MessageType::kSetReaderConfigResponse, reply);
  if (st != RFID_API_SUCCESS) return st;
  std::lock_guard g(stateLock_);
  for (const auto& ac : cfg.antennaConfigurations) {
    auto& a = antennas_[ac.antennaId - 1];
    a.receiver = ac.rfReceiver;
    a.transmitter = ac.rfTransmitter;
    a.setByClient = true;
  }
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::getSingulation(uint16_t antennaId, SingulationControl& out) {
  std::unique_lock g(stateLock_);
  const uint16_t n = caps_.numAntennas;
  if (antennaId > n) {
    g.unlock();
    return noSuchAntenna(antennaId, n);
  }
  out = singulation_[antennaId == 0 ? 0 : antennaId - 1];
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::setSingulation(uint16_t antennaId, const SingulationControl& in) {
  std::unique_lock g(stateLock_);
  const uint16_t n = caps_.numAntennas;
  const bool stateAwareOk = caps_.stateAwareSingulation;
  g.unlock();
  if (antennaId > n) {
    return noSuchAntenna(antennaId, n);
  }
  if (in.session > 3 || in.inventoryState > 1 || in.slFlag > 1) {
    return fail(RFID_API_PARAM_OUT_OF_RANGE,
                "session must be 0..3, inventory state and SL flag 0 or 1");
  }
  if (in.stateAware && !stateAwareOk) {
    return fail(RFID_API_NOT_SUPPORTED, "the reader cannot do state-aware singulation");
  }
  g.lock();
  if (antennaId == 0) {
    for (auto& s : singulation_) s = in;
  } else {
    singulation_[antennaId - 1] = in;
  }
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::getTagStorage(TagStorageSettings& out) {
  std::lock_guard g(stateLock_);
  out = storage_;
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::setTagStorage(const TagStorageSettings& in) {
  if (in.maxTagCount == 0 || in.maxTagCount > TagBuffer::kMaxCapacity) {
    return fail(RFID_API_PARAM_OUT_OF_RANGE,
                "maxTagCount must be 1.." + std::to_string(TagBuffer::kMaxCapacity));
  }
  bool resize;
  {
    std::lock_guard g(stateLock_);
    resize = in.maxTagCount != storage_.maxTagCount;
    storage_ = in;
    storage_.maxSizeEpc = std::clamp<uint32_t>(in.maxSizeEpc, 1, kMaxTagIdBytes);
    maxEpcBytes_ = storage_.maxSizeEpc;
  }
  if (resize) link_.countDiscarded(tags_.resize(in.maxTagCount));
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::addPreFilter(uint16_t antennaId, const PreFilter& f, uint32_t& index) {
  if (f.patternBitCount > kMaxPreFilterBits || (f.patternBitCount > 0 && f.pattern == nullptr)) {
    return fail(RFID_API_PARAM_ERROR, "the pre-filter pattern is null or longer than " +
                                          std::to_string(kMaxPreFilterBits) + " bits");
  }
  if (f.memoryBank > 3) return fail(RFID_API_PARAM_OUT_OF_RANGE, "memory bank must be 0..3");
  if (f.filterType == PREFILTER_STATE_AWARE) {
    if (f.target > 4 || f.stateAwareAction > 7) {
      return fail(RFID_API_PARAM_OUT_OF_RANGE, "state-aware target must be 0..4 and action 0..7");
    }
  } else if (f.filterType == PREFILTER_STATE_UNAWARE) {
    if (f.stateUnawareAction > 5)
      return fail(RFID_API_PARAM_OUT_OF_RANGE, "state-unaware action must be 0..5");
  } else {
    return fail(RFID_API_PARAM_OUT_OF_RANGE,
                "filter type must be 1 (state-aware) or 2 (state-unaware)");
  }
  std::unique_lock g(stateLock_);
  const uint16_t n = caps_.numAntennas;
  if (antennaId > n) {
    g.unlock();
    return noSuchAntenna(antennaId, n);
  }
  if (f.filterType == PREFILTER_STATE_AWARE && !caps_.stateAwareSingulation) {
    g.unlock();
    return fail(RFID_API_NOT_SUPPORTED, "the reader cannot apply state-aware filters");
  }
  if (filters_.size() >= kMaxPreFilters) {
    g.unlock();
    return fail(RFID_API_RESOURCE_LIMIT,
                "already " + std::to_string(kMaxPreFilters) + " pre-filters");
  }
  StoredPreFilter s;
  s.index = nextFilterIndex_++;
  s.antennaId = antennaId;
  s.memoryBank = f.memoryBank;
  s.pattern.assign(f.pattern, f.pattern + (f.patternBitCount + 7) / 8);
  s.patternBitCount = f.patternBitCount;
  s.bitOffset = f.bitOffset;
  s.filterType = f.filterType;
  s.targetOrAction = f.filterType == PREFILTER_STATE_AWARE ? f.target : f.stateUnawareAction;
  s.stateAwareAction = f.stateAwareAction;
  filters_.push_back(std::move(s));
  index = filters_.back().index;
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::deletePreFilter(uint16_t antennaId, uint32_t index) {
  std::unique_lock g(stateLock_);
  const size_t before = filters_.size();
  std::erase_if(filters_, [&](const StoredPreFilter& f) {
    return (antennaId == 0 || f.antennaId == antennaId) && (index == 0 || f.index == index);
  });
  if (index != 0 && filters_.size() == before) {
    g.unlock();
    return fail(RFID_API_PARAM_OUT_OF_RANGE, "no pre-filter " + std::to_string(index));
  }
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::saveConfig() {
  if (onReceiveThread())
    return fail(RFID_API_CALLBACK_CONTEXT, "RFID_SaveLlrpConfig called from the event callback");
  std::lock_guard op(opLock_);
  uint32_t maker;
  {
    std::lock_guard g(stateLock_);
    maker = caps_.manufacturerId;
  }
  if (maker != llrp::kVendorId) {
    return fail(RFID_API_NOT_SUPPORTED,
                "this reader (manufacturer " + std::to_string(maker) +
                    ") offers no way to save its configuration over LLRP",
                "CUSTOM_MESSAGE");
  }
  llrp::CustomMessage save;
  save.vendorId = llrp::kVendorId;
  save.subtype = static_cast<uint8_t>(llrp::VendorMessage::kSaveConfig);
  llrp::Message reply;
  RfidStatus st = request(save, MessageType::kCustomMessage, reply);
  if (st != RFID_API_SUCCESS) return st;
  if (const auto* e = std::get_if<llrp::ErrorMessage>(&reply.body)) {
    return failWithLlrp(e->llrpStatus, static_cast<uint32_t>(MessageType::kCustomMessage));
  }
  const auto& c = std::get<llrp::CustomMessage>(reply.body);
  if (c.vendorId != llrp::kVendorId ||
      c.subtype != static_cast<uint8_t>(llrp::VendorMessage::kSaveConfigReply)) {
    return fail(RFID_API_PROTOCOL_ERROR, "unexpected answer to the save request", "CUSTOM_MESSAGE");
  }
  // The reply's data is one LLRPStatus parameter: decode it inside a status-only frame.
  std::vector<uint8_t> frame(llrp::kHeaderSize);
  const uint32_t len = static_cast<uint32_t>(llrp::kHeaderSize + c.data.size());
  const uint16_t type = static_cast<uint16_t>(MessageType::kSetReaderConfigResponse);
  frame[0] = static_cast<uint8_t>((llrp::kVersion << 2) | (type >> 8));
  frame[1] = static_cast<uint8_t>(type & 0xff);
  for (int i = 0; i < 4; ++i) frame[2 + i] = static_cast<uint8_t>(len >> (24 - 8 * i));
  frame.insert(frame.end(), c.data.begin(), c.data.end());
  llrp::Message status;
  if (!llrp::decode(frame, status).ok()) {
    return fail(RFID_API_PROTOCOL_ERROR, "the save answer carries no readable LLRPStatus",
                "CUSTOM_MESSAGE");
  }
  const auto& s = std::get<llrp::SetReaderConfigResponse>(status.body).llrpStatus;
  if (s.statusCode != llrp::StatusCode::kSuccess) {
    return failWithLlrp(s, static_cast<uint32_t>(MessageType::kCustomMessage));
  }
  return RFID_API_SUCCESS;
}

}  // namespace tessera::readerapi
