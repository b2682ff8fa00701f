// src/readerapi/rfid_api.cc — the RFID_* calls: handle lookup, argument checks and the texts;
// the work is done by ReaderSession.
#include "readerapi/rfid_api.h"

#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>

#include "readerapi/reader_session.h"

namespace tessera {

namespace {

using readerapi::ErrorRecord;
using readerapi::ReaderSession;

// The library's table of open handles. A handle-based API needs one process-wide table; it is
// built on first use and only ever reached through these calls.
class Registry {
 public:
  static Registry& instance() {
    static Registry registry;
    return registry;
  }
  std::shared_ptr<ReaderSession> find(ReaderHandle handle) {
    std::lock_guard g(lock_);
    auto it = sessions_.find(handle);
    return it == sessions_.end() ? nullptr : it->second;
  }
  ReaderHandle add(std::shared_ptr<ReaderSession>& out) {
    std::lock_guard g(lock_);
    ReaderHandle h = next_++;
    if (next_ == 0) next_ = 1;
    out = std::make_shared<ReaderSession>(h);
    sessions_[h] = out;
    return h;
  }
  std::shared_ptr<ReaderSession> remove(ReaderHandle handle) {
    std::lock_guard g(lock_);
    auto it = sessions_.find(handle);
    if (it == sessions_.end()) return nullptr;
    auto s = std::move(it->second);
    sessions_.erase(it);
    return s;
  }

 private:
  std::mutex lock_;  // guards sessions_ and next_
  std::map<ReaderHandle, std::shared_ptr<ReaderSession>> sessions_;
  ReaderHandle next_ = 1;
};

// What the last failed connect of this thread said, for RFID_GetLastErrorInfoW with handle 0.
thread_local ErrorRecord tlsConnectError;

RfidStatus noSession(ReaderHandle handle) {
  tlsConnectError = ErrorRecord{};
  tlsConnectError.status = RFID_API_INVALID_HANDLE;
  tlsConnectError.what = "handle " + std::to_string(handle) + " is not connected";
  return RFID_API_INVALID_HANDLE;
}

// Host names are plain ASCII (addresses and DNS names); anything else cannot name a reader.
bool narrowHost(const wchar_t* host, std::string& out) {
  out.clear();
  for (size_t i = 0; host[i] != L'\0'; ++i) {
    if (i >= 255 || host[i] <= 0x20 || host[i] > 0x7e) return false;
    out.push_back(static_cast<char>(host[i]));
  }
  return !out.empty();
}

// Runs one library call so that no exception leaves the library: running out of memory is a
// resource limit, any other throw becomes `onThrow`.
template <typename Work>
RfidStatus guarded(Work&& work, RfidStatus onThrow = RFID_API_RESOURCE_LIMIT) noexcept {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    return RFID_API_RESOURCE_LIMIT;
  } catch (...) {
    return onThrow;
  }
}

// Runs `work` on the session of `handle`, or answers that the handle is not connected.
template <typename Work>
RfidStatus withSession(ReaderHandle handle, Work&& work) noexcept {
  return guarded([&]() -> RfidStatus {
    auto s = Registry::instance().find(handle);
    if (!s) return noSession(handle);
    return work(*s);
  });
}

}  // namespace

RfidStatus RFID_ConnectW(ReaderHandle* handle, const wchar_t* host, uint32_t port,
                         uint32_t timeoutMs, const ConnectionOptions* options) {
  RfidStatus st = guarded(
      [&]() -> RfidStatus {
        if (handle == nullptr || host == nullptr) {
          tlsConnectError = ErrorRecord{};
          tlsConnectError.status = RFID_API_PARAM_ERROR;
          tlsConnectError.what = "the handle pointer or the host is null";
          return RFID_API_PARAM_ERROR;
        }
        *handle = 0;
        std::string narrow;
        if (!narrowHost(host, narrow)) {
          tlsConnectError = ErrorRecord{};
          tlsConnectError.status = RFID_HOST_UNRESOLVED;
          tlsConnectError.what = "the host is empty, too long or not a plain address or name";
          return RFID_HOST_UNRESOLVED;
        }
        const ConnectionSettings* settings = nullptr;
        if (options != nullptr && options->version == 2) settings = options->settings;
        std::shared_ptr<ReaderSession> session;
        ReaderHandle h = Registry::instance().add(session);
        RfidStatus connected = session->connect(narrow, port, timeoutMs, settings);
        if (connected != RFID_API_SUCCESS) {
          tlsConnectError = session->lastError();
          Registry::instance().remove(h);
          return connected;
        }
        *handle = h;
        return RFID_API_SUCCESS;
      },
      RFID_CONNECTION_FAILED);
  if (st != RFID_API_SUCCESS && handle != nullptr) *handle = 0;
  return st;
}

RfidStatus RFID_Disconnect(ReaderHandle handle) {
  return withSession(handle, [&](ReaderSession& s) {
    RfidStatus st = s.disconnect();
    if (st == RFID_API_SUCCESS) Registry::instance().remove(handle);
    return st;
  });
}

RfidStatus RFID_Reconnect(ReaderHandle handle) {
  return withSession(handle, [](ReaderSession& s) { return s.reconnect(); });
}

RfidStatus RFID_GetReaderCapsW(ReaderHandle handle, ReaderCaps* caps) {
  return withSession(handle, [&](ReaderSession& s) {
    return caps == nullptr ? RFID_API_PARAM_ERROR : s.caps(*caps);
  });
}

RfidStatus RFID_RegisterEventNotificationCallback(ReaderHandle handle, const uint32_t* eventTypes,
                                                  uint32_t count, RfidEventCallback callback,
                                                  RfidEventContextCallback contextCallback,
                                                  void* context) {
  return withSession(handle, [&](ReaderSession& s) {
    return s.registerEvents(eventTypes, count, callback, contextCallback, context);
  });
}

namespace {
template <typename T>
RfidStatus getEventData(ReaderHandle handle, uint32_t eventType, T* data) {
  return withSession(handle, [&](ReaderSession& s) {
    return data == nullptr ? RFID_API_PARAM_ERROR : s.eventData(eventType, *data);
  });
}
}  // namespace

RfidStatus RFID_GetEventData(ReaderHandle handle, uint32_t eventType, GpiEventData* data) {
  return getEventData(handle, eventType, data);
}
RfidStatus RFID_GetEventData(ReaderHandle handle, uint32_t eventType, AntennaEventData* data) {
  return getEventData(handle, eventType, data);
}
RfidStatus RFID_GetEventData(ReaderHandle handle, uint32_t eventType, InventoryEventData* data) {
  return getEventData(handle, eventType, data);
}
RfidStatus RFID_GetEventData(ReaderHandle handle, uint32_t eventType, BufferEventData* data) {
  return getEventData(handle, eventType, data);
}
RfidStatus RFID_GetEventData(ReaderHandle handle, uint32_t eventType,
                             DisconnectionEventData* data) {
  return getEventData(handle, eventType, data);
}
RfidStatus RFID_GetEventData(ReaderHandle handle, uint32_t eventType,
                             ReaderExceptionEventData* data) {
  return getEventData(handle, eventType, data);
}

ReaderTagData* RFID_AllocateTag(ReaderHandle handle) {
  if (!Registry::instance().find(handle)) return nullptr;
  return new (std::nothrow) ReaderTagData{};
}

RfidStatus RFID_GetReadTag(ReaderHandle handle, ReaderTagData* tag) {
  return withSession(handle, [&](ReaderSession& s) {
    return tag == nullptr ? RFID_API_PARAM_ERROR : s.readTag(*tag);
  });
}

RfidStatus RFID_DeallocateTag(ReaderHandle /*handle*/, ReaderTagData* tag) {
  if (tag == nullptr) return RFID_API_PARAM_ERROR;
  delete tag;
  return RFID_API_SUCCESS;
}

RfidStatus RFID_PerformInventory(ReaderHandle handle, const PostFilter* postFilter,
                                 const AntennaInfo* antennas, const TriggerRecord* triggers,
                                 void* reserved) {
  return withSession(handle, [&](ReaderSession& s) {
    if (reserved != nullptr) return RFID_API_PARAM_ERROR;
    return s.performInventory(postFilter, antennas, triggers);
  });
}

RfidStatus RFID_StopInventory(ReaderHandle handle) {
  return withSession(handle, [](ReaderSession& s) { return s.stopInventory(); });
}

RfidStatus RFID_GetAntennaConfig(ReaderHandle handle, uint16_t antennaId,
                                 uint16_t* receiveSensitivityIndex, uint16_t* transmitPowerIndex,
                                 uint16_t* transmitFrequencyIndex) {
  return withSession(handle, [&](ReaderSession& s) {
    if (receiveSensitivityIndex == nullptr || transmitPowerIndex == nullptr ||
        transmitFrequencyIndex == nullptr) {
      return RFID_API_PARAM_ERROR;
    }
    return s.getAntennaConfig(antennaId, *receiveSensitivityIndex, *transmitPowerIndex,
                              *transmitFrequencyIndex);
  });
}

RfidStatus RFID_SetAntennaConfig(ReaderHandle handle, uint16_t antennaId,
                                 uint16_t receiveSensitivityIndex, uint16_t transmitPowerIndex,
                                 uint16_t transmitFrequencyIndex) {
  return withSession(handle, [&](ReaderSession& s) {
    return s.setAntennaConfig(antennaId, receiveSensitivityIndex, transmitPowerIndex,
                              transmitFrequencyIndex);
  });
}

RfidStatus RFID_GetSingulationControl(ReaderHandle handle, uint16_t antennaId,
                                      SingulationControl* control) {
  return withSession(handle, [&](ReaderSession& s) {
    return control == nullptr ? RFID_API_PARAM_ERROR : s.getSingulation(antennaId, *control);
  });
}

RfidStatus RFID_SetSingulationControl(ReaderHandle handle, uint16_t antennaId,
                                      const SingulationControl* control) {
  return withSession(handle, [&](ReaderSession& s) {
    return control == nullptr ? RFID_API_PARAM_ERROR : s.setSingulation(antennaId, *control);
  });
}

RfidStatus RFID_GetTagStorageSettings(ReaderHandle handle, TagStorageSettings* settings) {
  return withSession(handle, [&](ReaderSession& s) {
    return settings == nullptr ? RFID_API_PARAM_ERROR : s.getTagStorage(*settings);
  });
}

RfidStatus RFID_SetTagStorageSettings(ReaderHandle handle, const TagStorageSettings* settings) {
  return withSession(handle, [&](ReaderSession& s) {
    return settings == nullptr ? RFID_API_PARAM_ERROR : s.setTagStorage(*settings);
  });
}

RfidStatus RFID_AddPreFilter(ReaderHandle handle, uint16_t antennaId, const PreFilter* filter,
                             uint32_t* index) {
  return withSession(handle, [&](ReaderSession& s) {
    if (filter == nullptr || index == nullptr) return RFID_API_PARAM_ERROR;
    return s.addPreFilter(antennaId, *filter, *index);
  });
}

RfidStatus RFID_DeletePreFilter(ReaderHandle handle, uint16_t antennaId, uint32_t index) {
  return withSession(handle, [&](ReaderSession& s) { return s.deletePreFilter(antennaId, index); });
}

RfidStatus RFID_SaveLlrpConfig(ReaderHandle handle, void* reserved) {
  return withSession(handle, [&](ReaderSession& s) {
    return reserved != nullptr ? RFID_API_PARAM_ERROR : s.saveConfig();
  });
}

RfidStatus RFID_GetLastErrorInfoW(ReaderHandle handle, ErrorInfo* info) {
  return guarded([&]() -> RfidStatus {
    if (info == nullptr) return RFID_API_PARAM_ERROR;
    if (handle == 0) {
      readerapi::fillErrorInfo(tlsConnectError, *info);
      return RFID_API_SUCCESS;
    }
    auto s = Registry::instance().find(handle);
    if (!s) {
      ErrorRecord r;
      r.status = RFID_API_INVALID_HANDLE;
      r.what = "handle " + std::to_string(handle) + " is not connected";
      readerapi::fillErrorInfo(r, *info);
      return RFID_API_INVALID_HANDLE;
    }
    readerapi::fillErrorInfo(s->lastError(), *info);
    return RFID_API_SUCCESS;
  });
}

const wchar_t* RFID_GetErrorDescriptionW(uint32_t status) {
  switch (status) {
    case RFID_API_SUCCESS:
      return L"Success";
    case RFID_API_INVALID_HANDLE:
      return L"Invalid handle: the reader is not connected";
    case RFID_API_PARAM_ERROR:
      return L"Invalid argument";
    case RFID_API_PARAM_OUT_OF_RANGE:
      return L"Argument out of range for this reader";
    case RFID_API_NO_DATA:
      return L"No data available";
    case RFID_API_NOT_SUPPORTED:
      return L"Not supported by this reader";
    case RFID_API_CALLBACK_CONTEXT:
      return L"Call not allowed from the event callback";
    case RFID_API_COMMAND_TIMEOUT:
      return L"The reader did not answer in time";
    case RFID_API_READER_ERROR:
      return L"The reader reported an error";
    case RFID_API_PROTOCOL_ERROR:
      return L"The reader's answer could not be understood";
    case RFID_API_NOT_CONNECTED:
      return L"Connection to the reader lost";
    case RFID_API_RESOURCE_LIMIT:
      return L"Out of memory or table full";
    case RFID_CONNECTION_REFUSED:
      return L"Connection refused: nothing listens at the reader port";
    case RFID_CONNECTION_DENIED:
      return L"Connection denied by the reader";
    case RFID_CONNECTION_TIMEOUT:
      return L"Connection timed out: the reader did not answer";
    case RFID_HOST_UNRESOLVED:
      return L"Unknown reader host";
    case RFID_CONNECTION_FAILED:
      return L"Connection to the reader failed";
    case RFID_NOT_AN_LLRP_READER:
      return L"The peer is not an LLRP 1.0.1 reader";
    default:
      return L"Unknown status";
  }
}

}  // namespace tessera
