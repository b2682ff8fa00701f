// tools/readersim/requests.cc — the requests a client may send the simulated reader: one handler
// per message type, looked up in a table, and LLRP's answer to any other message.
#include <algorithm>
#include <optional>
#include <variant>

#include "bridge.h"
#include "capabilities.h"
#include "llrp/codec.h"
#include "llrp/vendor_extension.h"
#include "reader.h"

namespace tessera::readersim {

namespace {

// The response LLRP 1.0.1 defines for each request (the responseType of its definition in
// llrp-1x0-def.xml), by message type number. A request missing here has no response of its own.
struct ResponsePair {
  uint16_t request;
  uint16_t response;
};
constexpr ResponsePair kResponses[] = {
    {1, 11},   // GET_READER_CAPABILITIES
    {2, 12},   // GET_READER_CONFIG
    {3, 13},   // SET_READER_CONFIG
    {14, 4},   // CLOSE_CONNECTION
    {20, 30},  // ADD_ROSPEC
    {21, 31},  // DELETE_ROSPEC
    {22, 32},  // START_ROSPEC
    {23, 33},  // STOP_ROSPEC
    {24, 34},  // ENABLE_ROSPEC
    {25, 35},  // DISABLE_ROSPEC
    {26, 36},  // GET_ROSPECS
    {40, 50},  // ADD_ACCESSSPEC
    {41, 51},  // DELETE_ACCESSSPEC
    {42, 52},  // ENABLE_ACCESSSPEC
    {43, 53},  // DISABLE_ACCESSSPEC
    {44, 54},  // GET_ACCESSSPECS
};

std::optional<uint16_t> responseTypeOf(llrp::MessageType request) {
  for (const auto& p : kResponses) {
    if (p.request == static_cast<uint16_t>(request)) return p.response;
  }
  return std::nullopt;
}

// The message of type `type` carrying only `status`, when the codec has a record for it with an
// LLRPStatus; works for every record the codec has, so the answer follows the codec's growth.
template <size_t I = 0>
std::optional<llrp::MessageBody> statusOnly(uint16_t type, const llrp::LLRPStatus& status) {
  if constexpr (I == std::variant_size_v<llrp::MessageBody>) {
    return std::nullopt;
  } else {
    using T = std::variant_alternative_t<I, llrp::MessageBody>;
    if constexpr (requires(T t) { t.llrpStatus; }) {
      if (static_cast<uint16_t>(T::kMessageType) == type) {
        T body{};
        body.llrpStatus = status;
        return llrp::MessageBody{std::move(body)};
      }
    }
    return statusOnly<I + 1>(type, status);
  }
}

template <typename Response>
llrp::MessageBody withStatus(Response response, const Status& st) {
  response.llrpStatus = toLlrpStatus(st);
  return response;
}

}  // namespace

const Reader::HandlerEntry* Reader::handlerFor(llrp::MessageType type) {
  static constexpr HandlerEntry kHandlers[] = {
      {llrp::MessageType::kGetReaderCapabilities, &Reader::onGetReaderCapabilities},
      {llrp::MessageType::kGetReaderConfig, &Reader::onGetReaderConfig},
      {llrp::MessageType::kSetReaderConfig, &Reader::onSetReaderConfig},
      {llrp::MessageType::kCloseConnection, &Reader::onCloseConnection},
      {llrp::MessageType::kAddROSpec, &Reader::onAddROSpec},
      {llrp::MessageType::kDeleteROSpec,
       &Reader::onROSpecIdRequest<llrp::DeleteROSpec, llrp::DeleteROSpecResponse, &Engine::remove>},
      {llrp::MessageType::kStartROSpec,
       &Reader::onROSpecIdRequest<llrp::StartROSpec, llrp::StartROSpecResponse, &Engine::start>},
      {llrp::MessageType::kStopROSpec,
       &Reader::onROSpecIdRequest<llrp::StopROSpec, llrp::StopROSpecResponse, &Engine::stop>},
      {llrp::MessageType::kEnableROSpec,
       &Reader::onROSpecIdRequest<llrp::EnableROSpec, llrp::EnableROSpecResponse, &Engine::enable>},
      {llrp::MessageType::kDisableROSpec,
       &Reader::onROSpecIdRequest<llrp::DisableROSpec, llrp::DisableROSpecResponse,
                                  &Engine::disable>},
      {llrp::MessageType::kDeleteAccessSpec, &Reader::onDeleteAccessSpec},
      {llrp::MessageType::kGetReport, &Reader::onGetReport},
      {llrp::MessageType::kEnableEventsAndReports, &Reader::onEnableEventsAndReports},
      {llrp::MessageType::kCustomMessage, &Reader::onCustomMessage},
  };
  const auto* it = std::find_if(std::begin(kHandlers), std::end(kHandlers),
                                [type](const HandlerEntry& e) { return e.type == type; });
  return it == std::end(kHandlers) ? nullptr : it;
}

void Reader::handle(const llrp::Message& message, Outbox& out, bool& closeAfter) {
  std::unique_lock<std::mutex> g(lock_);
  Request request{out, message.id, Clock::now(), closeAfter};
  deferEvents_ = true;
  const HandlerEntry* entry = handlerFor(llrp::messageType(message.body));
  if (entry != nullptr) {
    (this->*entry->handler)(message, request);
  } else {
    answerUnsupported(message, request);
  }
  deferEvents_ = false;
  flushDeferred();
  g.unlock();
  wakeRadio();
}

// A request of a type LLRP gives a response gets that response with M_UnsupportedMessage; any
// other message (a reader-to-client one, say) gets ERROR_MESSAGE with the same status.
void Reader::answerUnsupported(const llrp::Message& message, Request& q) {
  const llrp::MessageType type = llrp::messageType(message.body);
  const std::optional<uint16_t> responseType = responseTypeOf(type);
  llrp::LLRPStatus s;
  s.statusCode = llrp::StatusCode::kMUnsupportedMessage;
  s.errorDescription =
      std::string(llrp::messageName(type)) +
      (responseType ? " is not supported by this reader" : " is not a request a reader accepts");
  if (responseType) {
    if (auto body = statusOnly(*responseType, s)) {
      respond(q.out, q.id, std::move(*body));
      return;
    }
  }
  respond(q.out, q.id, llrp::ErrorMessage{s});
  stats_.errorMessagesSent++;
}

void Reader::onGetReaderCapabilities(const llrp::Message& message, Request& q) {
  const auto& body = std::get<llrp::GetReaderCapabilities>(message.body);
  Status st = messageCustoms(body.customs, "GET_READER_CAPABILITIES");
  if (st.isOk() && static_cast<uint8_t>(body.requestedData) > 4) {
    st = Status::error(
        kFieldError,
        "RequestedData " + std::to_string(static_cast<int>(body.requestedData)) + " is unknown");
  }
  if (!st.isOk()) {
    respond(q.out, q.id, withStatus(llrp::GetReaderCapabilitiesResponse{}, st));
  } else {
    respond(q.out, q.id, buildCapabilities(options_, body.requestedData));
  }
}

void Reader::onGetReaderConfig(const llrp::Message& message, Request& q) {
  llrp::GetReaderConfigResponse r;
  Status st = getReaderConfig(std::get<llrp::GetReaderConfig>(message.body), r);
  if (!st.isOk()) r = llrp::GetReaderConfigResponse{};
  respond(q.out, q.id, withStatus(std::move(r), st));
}

void Reader::onSetReaderConfig(const llrp::Message& message, Request& q) {
  Status st = setReaderConfig(std::get<llrp::SetReaderConfig>(message.body));
  respond(q.out, q.id, withStatus(llrp::SetReaderConfigResponse{}, st));
}

void Reader::onCloseConnection(const llrp::Message&, Request& q) {
  respond(q.out, q.id, withStatus(llrp::CloseConnectionResponse{}, Status::ok()));
  q.closeAfter = true;
}

void Reader::onAddROSpec(const llrp::Message& message, Request& q) {
  RoSpecDef def;
  Status st = toRoSpecDef(std::get<llrp::AddROSpec>(message.body).roSpec, def);
  if (st.isOk()) st = engine_.add(std::move(def), q.now);
  respond(q.out, q.id, withStatus(llrp::AddROSpecResponse{}, st));
}

template <typename Message, typename Response, Status (Engine::*call)(uint32_t, Clock::time_point)>
void Reader::onROSpecIdRequest(const llrp::Message& message, Request& q) {
  Status st = (engine_.*call)(std::get<Message>(message.body).roSpecId, q.now);
  respond(q.out, q.id, withStatus(Response{}, st));
}

void Reader::onDeleteAccessSpec(const llrp::Message& message, Request& q) {
  const uint32_t id = std::get<llrp::DeleteAccessSpec>(message.body).accessSpecId;
  // The simulator keeps no AccessSpecs: deleting all of them always succeeds.
  Status st =
      id == 0 ? Status::ok() : Status::error(kInvalid, "no AccessSpec " + std::to_string(id));
  respond(q.out, q.id, withStatus(llrp::DeleteAccessSpecResponse{}, st));
}

void Reader::onGetReport(const llrp::Message&, Request& q) {
  // The reports a GET_REPORT flushes carry its message ID; an empty one when none.
  reportMessageId_ = q.id;
  reportsThisFlush_ = 0;
  engine_.flushReports();
  deferEvents_ = false;
  flushDeferred();
  if (reportsThisFlush_ == 0) {
    Deferred item;
    item.message = llrp::Message{q.id, llrp::ROAccessReport{}};
    item.isReport = true;
    deliver(std::move(item));
  }
  reportMessageId_ = 0;
}

void Reader::onEnableEventsAndReports(const llrp::Message&, Request& q) { q.out.release(); }

void Reader::onCustomMessage(const llrp::Message& message, Request& q) {
  const auto& body = std::get<llrp::CustomMessage>(message.body);
  if (body.vendorId != llrp::kVendorId ||
      body.subtype != static_cast<uint8_t>(llrp::VendorMessage::kSaveConfig)) {
    llrp::LLRPStatus s;
    s.statusCode = llrp::StatusCode::kMUnsupportedMessage;
    s.errorDescription = "CUSTOM_MESSAGE of vendor " + std::to_string(body.vendorId) + " subtype " +
                         std::to_string(body.subtype) + " is not supported";
    respond(q.out, q.id, llrp::ErrorMessage{s});
    stats_.errorMessagesSent++;
    return;
  }
  Status st = saveConfig();
  // The reply's data is one LLRPStatus parameter: the ERROR_MESSAGE frame of that status without
  // its 10-byte message header.
  std::vector<uint8_t> statusFrame;
  llrp::Error e =
      llrp::encode(llrp::Message{q.id, llrp::ErrorMessage{toLlrpStatus(st)}}, statusFrame);
  llrp::CustomMessage reply;
  reply.vendorId = llrp::kVendorId;
  reply.subtype = static_cast<uint8_t>(llrp::VendorMessage::kSaveConfigReply);
  if (e.ok() && statusFrame.size() > llrp::kHeaderSize) {
    reply.data.assign(statusFrame.begin() + llrp::kHeaderSize, statusFrame.end());
  }
  respond(q.out, q.id, std::move(reply));
}

}  // namespace tessera::readersim
