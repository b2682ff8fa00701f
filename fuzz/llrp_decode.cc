// libFuzzer entry: arbitrary bytes as one LLRP frame. Whatever decodes must encode again and
// decode to the same record; anything else must come back as an error, never a crash.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "llrp/codec.h"
#include "llrp/describe.h"

namespace {

[[noreturn]] void fail(const char* what, const tessera::llrp::Error& e) {
  std::fprintf(stderr, "%s: %s\n", what, e.text().c_str());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tessera::llrp;
  Message message;
  Error e = decode({data, size}, message);
  if (!e.ok()) {
    if (e.offset > size) fail("error offset past the input", e);
    (void)e.text();
    return 0;
  }
  (void)describe(message);
  std::vector<uint8_t> bytes;
  e = encode(message, bytes);
  if (!e.ok()) fail("a decoded message does not encode", e);
  if (bytes.size() > size) fail("re-encoding grew the frame", e);
  Message again;
  e = decode(bytes, again);
  if (!e.ok()) fail("a re-encoded message does not decode", e);
  if (!(again == message)) fail("the round trip changed the message", e);
  return 0;
}
