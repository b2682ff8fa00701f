// src/readerapi/reader_inventory.cc — the ReaderSession calls that start and stop inventories:
// the ROSpec built from the library's settings, added, enabled and started on the reader.
#include <algorithm>

#include "readerapi/reader_session.h"

namespace tessera::readerapi {

using llrp::MessageType;

RfidStatus ReaderSession::performInventory(const PostFilter* postFilter,
                                           const AntennaInfo* antennas,
                                           const TriggerRecord* triggers) {
  if (onReceiveThread())
    return fail(RFID_API_CALLBACK_CONTEXT, "RFID_PerformInventory called from the event callback");
  std::lock_guard op(opLock_);
  const uint16_t n = antennaCount();
  std::vector<uint16_t> ids;
  if (antennas != nullptr && antennas->count > 0) {
    if (antennas->antennaIds == nullptr)
      return fail(RFID_API_PARAM_ERROR, "the antenna list is null");
    for (uint32_t i = 0; i < antennas->count; ++i) {
      const uint16_t id = antennas->antennaIds[i];
      if (id == 0 || id > n) {
        return noSuchAntenna(id, n);
      }
      if (std::find(ids.begin(), ids.end(), id) == ids.end()) ids.push_back(id);
    }
  }
  std::shared_ptr<const PostFilterData> pf;
  if (postFilter != nullptr) {
    auto d = std::make_shared<PostFilterData>();
    if (postFilter->patternBitCount > 0) {
      if (postFilter->epcPattern == nullptr || postFilter->patternBitCount > kMaxTagIdBytes * 8) {
        return fail(RFID_API_PARAM_ERROR, "the post-filter pattern is null or longer than an EPC");
      }
      d->pattern.assign(postFilter->epcPattern,
                        postFilter->epcPattern + (postFilter->patternBitCount + 7) / 8);
      d->bits = postFilter->patternBitCount;
      d->offset = postFilter->epcBitOffset;
    }
    d->matchRssi = postFilter->matchRssi;
    d->rssiMin = postFilter->rssiMin;
    d->rssiMax = postFilter->rssiMax;
    pf = std::move(d);
  }
  if (triggers != nullptr) {
    if (triggers->start.type > StartTriggerType::Gpi ||
        triggers->stop.type > StopTriggerType::RoundCount) {
      return fail(RFID_API_PARAM_OUT_OF_RANGE, "unknown start or stop trigger type");
    }
  }
  if (roSpecInstalled_) {
    RfidStatus st = removeInventory();
    if (unreachable(st)) return st;
  }
  plan_.triggers = triggers != nullptr ? *triggers : TriggerRecord{};
  planAntennas_ = std::move(ids);
  {
    std::lock_guard g(stateLock_);
    postFilter_ = std::move(pf);
  }
  return installInventory();
}

// ADD + ENABLE (+ START for an immediate start) of a ROSpec built from the current settings.
RfidStatus ReaderSession::installInventory() {
  InventoryRequest req;
  req.triggers = plan_.triggers;
  {
    std::lock_guard g(stateLock_);
    std::vector<uint16_t> ids = planAntennas_;
    if (ids.empty()) {
      for (uint16_t i = 1; i <= caps_.numAntennas; ++i) ids.push_back(i);
    }
    for (uint16_t id : ids) {
      AntennaPlan a;
      a.antennaId = id;
      if (id <= antennas_.size()) {
        a.receiver = antennas_[id - 1].receiver;
        a.transmitter = antennas_[id - 1].transmitter;
      }
      if (id <= singulation_.size()) a.singulation = singulation_[id - 1];
      for (const auto& f : filters_) {
        if (f.antennaId == 0 || f.antennaId == id) a.filters.push_back(f);
      }
      req.antennas.push_back(std::move(a));
    }
    req.tagFields = storage_.tagFields;
    req.readerStateAware = caps_.stateAwareSingulation;
    tagFieldsInForce_ = storage_.tagFields;
  }
  req.roSpecId = nextRoSpecId_++;
  if (nextRoSpecId_ == 0) nextRoSpecId_ = 1;
  bool needsStart = false;
  llrp::AddROSpec add;
  add.roSpec = buildRoSpec(req, needsStart);
  llrp::Message reply;
  RfidStatus st = requestChecked(std::move(add), MessageType::kAddROSpecResponse, reply);
  if (st != RFID_API_SUCCESS) return st;
  roSpecInstalled_ = true;
  roSpecId_ = req.roSpecId;
  st = requestChecked(llrp::EnableROSpec{req.roSpecId}, MessageType::kEnableROSpecResponse, reply);
  if (st == RFID_API_SUCCESS && needsStart) {
    st = requestChecked(llrp::StartROSpec{req.roSpecId}, MessageType::kStartROSpecResponse, reply);
  }
  if (st != RFID_API_SUCCESS) {
    ErrorRecord saved = lastError();
    if (!unreachable(st)) {
      (void)requestChecked(llrp::DeleteROSpec{req.roSpecId}, MessageType::kDeleteROSpecResponse,
                           reply);
    }
    roSpecInstalled_ = false;
    std::lock_guard g(stateLock_);
    error_ = saved;
    return st;
  }
  std::lock_guard g(stateLock_);
  restoreInventory_ = true;
  return RFID_API_SUCCESS;
}

RfidStatus ReaderSession::removeInventory() {
  llrp::Message reply;
  const uint32_t id = roSpecId_;
  // STOP fails for a ROSpec that has already ended; DELETE decides the result. A silent or
  // lost reader ends the sequence at once, so that the call waits one time-out at most.
  RfidStatus st = requestChecked(llrp::StopROSpec{id}, MessageType::kStopROSpecResponse, reply);
  if (!unreachable(st))
    st = requestChecked(llrp::DisableROSpec{id}, MessageType::kDisableROSpecResponse, reply);
  if (!unreachable(st))
    st = requestChecked(llrp::DeleteROSpec{id}, MessageType::kDeleteROSpecResponse, reply);
  roSpecInstalled_ = false;
  return st;
}

RfidStatus ReaderSession::stopInventory() {
  if (onReceiveThread())
    return fail(RFID_API_CALLBACK_CONTEXT, "RFID_StopInventory called from the event callback");
  std::lock_guard op(opLock_);
  bool discard;
  {
    std::lock_guard g(stateLock_);
    restoreInventory_ = false;
    discard = storage_.discardTagsOnInventoryStop;
  }
  const bool connected = link_.connected();
  RfidStatus st = RFID_API_SUCCESS;
  if (roSpecInstalled_) {
    st = removeInventory();
  } else if (!connected) {
    st = fail(RFID_API_NOT_CONNECTED, "the connection to the reader is lost");
  }
  if (discard) link_.countDiscarded(tags_.clear());
  return st;
}

}  // namespace tessera::readerapi
