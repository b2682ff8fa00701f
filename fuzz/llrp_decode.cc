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
  // A Message reused across inputs, as a client reuses one for every frame it receives: the
  // leftovers of the previous input must never show in the next.
  static Message reused;
  Message message;
  Error e = decode({data, size}, message);
  Error again = decode({data, size}, reused);
  if (again.code != e.code || again.offset != e.offset)
    fail("a reused Message decodes differently", again);
  if (!e.ok()) {
    if (e.offset > size) fail("error offset past the input", e);
    (void)e.text();
    return 0;
  }
  if (!(reused == message)) fail("a reused Message holds something else", e);
  (void)describe(message);
  std::vector<uint8_t> bytes;
  e = encode(message, bytes);
  if (!e.ok()) fail("a decoded message does not encode", e);
  if (bytes.size() > size) fail("re-encoding grew the frame", e);
  Message back;
  e = decode(bytes, back);
  if (!e.ok()) fail("a re-encoded message does not decode", e);
  if (!(back == message)) fail("the round trip changed the message", e);
  return 0;
}
