// src/llrp/llrp.h — the whole LLRP codec: records, encode/decode, framer, one-line rendering.
#pragma once

#include "llrp/codec.h"
#include "llrp/describe.h"
#include "llrp/framer.h"
#include "llrp/records.h"
