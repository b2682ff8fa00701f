// src/llrp/describe.cc — one-line rendering of messages.
#include "llrp/describe.h"

namespace tessera::llrp {

std::string describe(const Message& message) {
  return std::string(messageName(messageType(message.body))) + " id=" +
         std::to_string(message.id);
}

}  // namespace tessera::llrp
