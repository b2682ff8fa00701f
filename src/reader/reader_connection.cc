#include "reader/reader_connection.h"

#include <cstring>
#include <cwchar>
#include <memory>

#include "state/console.h"
#include "state/service_state.h"
#include "platform/platform.h"
#include "reader/event_thread.h"
#include "readerapi/rfid_api.h"

namespace tessera {
namespace {

// The order in which the reader events are registered.
constexpr uint32_t kReaderEventTypes[12] = {0, 1, 9, 2, 3, 8, 4, 5, 6, 7, 10, 11};

}  // namespace

const wchar_t* readerHost() {
  // Converted once on first use; the settings never change after start-up.
  static const std::wstring host = [] {
    const std::string& narrow = platform::settings().readerHost;
    return std::wstring(narrow.begin(), narrow.end());
  }();
  return host.c_str();
}

uint32_t readerPort(int32_t modePort) {
  int overridePort = platform::settings().readerPort;
  return static_cast<uint32_t>(overridePort != 0 ? overridePort : modePort);
}

void reportReaderError(ReaderHandle handle, uint32_t status) {
  ErrorInfo info{};
  if (RFID_GetLastErrorInfoW(handle, &info) != RFID_API_SUCCESS) {
    info = ErrorInfo{};
  }
  consolePrint(L"Error: %ls\n\t%ls\n\t%ls", RFID_GetErrorDescriptionW(status), info.statusDesc,
               info.vendorMessage);
}

uint32_t connectReader(ReaderHandle* handle, const wchar_t* host, uint32_t port, uint8_t) {
  // The settings block is the library's optional tuning; a zero first byte asks for defaults.
  auto block = std::make_unique<ConnectionSettings>();
  block->flags = 0;
  ConnectionOptions options;
  options.version = 2;
  options.settings = block.get();
  uint32_t status = RFID_ConnectW(handle, host, port, 0, &options);
  if (status != RFID_API_SUCCESS) {
    reportReaderError(*handle, status);
    return status;
  }
  ReaderCaps caps;
  status = RFID_GetReaderCapsW(*handle, &caps);
  serviceState.antennaCount = caps.numAntennas;
  if (status != RFID_API_SUCCESS) {
    reportReaderError(*handle, status);
    return status;
  }
  return 0;
}

void registerReaderEvents() {
  ReaderHandle handle = serviceState.readerHandle;
  uint32_t status = RFID_RegisterEventNotificationCallback(handle, kReaderEventTypes, 12,
                                                           onReaderEvent, nullptr, nullptr);
  if (status != RFID_API_SUCCESS) reportReaderError(handle, status);
}

}  // namespace tessera
