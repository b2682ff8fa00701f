#include "command/start_replies.h"

#include "command/dispatcher.h"
#include "platform/logger.h"
#include "state/console.h"

namespace tessera {
namespace {

// One outcome as the client and the operator see it; unused texts are null.
struct StartReply {
  const wchar_t* console;  // trace on standard output
  const char* logLine;     // information line in the log
  const char* reply;       // first reply
  const char* laterReply;  // a second reply right after the first
};

StartReply relayReply(RelayStartResult result) {
  switch (result) {
    case RelayStartResult::kStarted:
      return {nullptr, nullptr, "httppoststart:0\r\n\r\n", nullptr};
    case RelayStartResult::kNotEnabled:
      return {L"Tagrelay is not configured\n", nullptr, "httppoststart:1\r\n\r\n", nullptr};
    case RelayStartResult::kConnectedAlready:
      return {nullptr, "Tagrelay: RFID handle already exist.\n", "httppoststart:2\r\n\r\n",
              nullptr};
    case RelayStartResult::kModeMismatch:
      return {L"Tagrelay: Requested mode does not match with Configured mode\n", nullptr,
              "httppoststart:3\r\n\r\n", nullptr};
    case RelayStartResult::kReaderUnreachable:
    case RelayStartResult::kReaderRefused:
      return {L"Tagrelay: Unable to establish connection to the reader\n", nullptr,
              kReaderUnreachableReply, nullptr};
    case RelayStartResult::kNoChannel:
    case RelayStartResult::kInventoryControlRefused:
      break;
  }
  return {L"Tagrelay: Unknown Error \n", nullptr, "httppoststart:1\r\n\r\n", nullptr};
}

StartReply serialPushReply(SerialPushResult result) {
  switch (result) {
    case SerialPushResult::kStarted:
      return {nullptr, nullptr, "PushDataStart:0\r\n\r\n", nullptr};
    case SerialPushResult::kPortFailed:
      return {L"Unable to open Serial Port for sending data\n", nullptr, "PushDataStart:1\r\n\r\n",
              nullptr};
    case SerialPushResult::kNotPushMode:
      return {L"Serial Port is not configured in push data mode\n", nullptr,
              "PushDataStart:2\r\n\r\n", nullptr};
    case SerialPushResult::kConnectedAlready:
      return {nullptr, "Tessera: RFID handle already exist.\n", "PushDataStart:3\r\n\r\n", nullptr};
    case SerialPushResult::kReaderUnreachable:
      return {L"Serial Port: Unable to establish connection to the reader\n", nullptr,
              "PushDataStart:4\r\n\r\n", kReaderUnreachableReply};
    case SerialPushResult::kHeaderNotWritten:
      break;
  }
  return {L"Serial Port: Unknown Error \n", nullptr, "PushDataStart:5\r\n\r\n", nullptr};
}

void answer(int clientSocket, const StartReply& r) {
  if (r.console != nullptr) consolePrint(L"%ls", r.console);
  if (r.logLine != nullptr) Logger::log(LogLevel::kInfo, "%s", r.logLine);
  sendReply(clientSocket, r.reply);
  if (r.laterReply != nullptr) sendReply(clientSocket, r.laterReply);
}

}  // namespace

void replyToRelayStart(int clientSocket, RelayStartResult result) {
  answer(clientSocket, relayReply(result));
}

void replyToSerialPushStart(int clientSocket, SerialPushResult result) {
  answer(clientSocket, serialPushReply(result));
}

}  // namespace tessera
