// Hand-checked LLRP frames: each vector below was worked out byte by byte from the LLRP 1.0.1
// encoding rules, then decoded and re-encoded by the codec.
#include "llrp/codec.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace tessera::llrp {
namespace {

// Bytes from hex digits; blanks and any other separators are ignored.
std::vector<uint8_t> hex(std::string text) {
  std::erase_if(text, [](char c) { return !std::isxdigit(static_cast<unsigned char>(c)); });
  std::vector<uint8_t> out;
  for (size_t i = 0; i + 1 < text.size(); i += 2)
    out.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
  return out;
}

Message decoded(const std::vector<uint8_t>& bytes) {
  Message m;
  Error e = decode(bytes, m);
  EXPECT_TRUE(e.ok()) << e.text();
  return m;
}

// Encodes the record, compares with the hand-made bytes, decodes the bytes and compares with
// the record.
void expectWire(const Message& m, const std::string& wire) {
  std::vector<uint8_t> out;
  Error e = encode(m, out);
  EXPECT_TRUE(e.ok()) << e.text();
  EXPECT_EQ(out, hex(wire));
  EXPECT_EQ(decoded(hex(wire)), m);
}

TEST(LlrpWire, HeaderCarriesVersionTypeLengthAndId) {
  // 3 reserved bits 000, version 001, type 62 (0000111110) -> 0x043E.
  expectWire(Message{5, Keepalive{}}, "043E 0000000A 00000005");
  // Type 1023 fills all ten type bits -> 0x07FF.
  expectWire(Message{3, CustomMessage{32473, 21, {1, 2}}},
             "07FF 00000011 00000003 00007ED9 15 0102");
  expectWire(Message{0x01020304, DeleteROSpec{0}}, "0415 0000000E 01020304 00000000");
}

TEST(LlrpWire, TagReportMixesTvAndTlvParameters) {
  ROAccessReport report;
  TagReportData& tag = report.tagReportData.emplace_back();
  tag.epc = EPC96{{0x30, 0x08, 0x33, 0xB2, 0xDD, 0xD9, 0x01, 0x40, 0x00, 0x00, 0x00, 0x01}};
  tag.antennaId = 1;
  tag.peakRSSI = -52;
  tag.customs.push_back(Custom{32473, 7, {0xAB}});
  // A tag that an AccessSpec read: its result comes after AccessSpecID, before the Custom.
  tag.accessSpecId = 9;
  tag.opSpecResults = {C1G2ReadOpSpecResult{C1G2ReadResultType::kSuccess, 1, {0xE280}}};
  expectWire(Message{7, report},
             "043D 0000003D 00000007"
             "00F0 0033"                         // TagReportData, 51 bytes
             "8D 300833B2DDD9014000000001"       // EPC_96: TV, no length
             "81 0001"                           // AntennaID
             "86 CC"                             // PeakRSSI -52
             "90 00000009"                       // AccessSpecID: TV 16
             "015D 000B 00 0001 0001 E280"       // C1G2ReadOpSpecResult: one word read
             "03FF 000D 00007ED9 00000007 AB");  // Custom
}

TEST(LlrpWire, AccessSpecKeepsItsOpSpecsAndVendorOnesInOrder) {
  AccessSpec accessSpec;
  accessSpec.accessSpecId = 1;
  accessSpec.currentState = AccessSpecState::kActive;
  accessSpec.accessSpecStopTrigger = {AccessSpecStopTriggerType::kOperationCount, 1};
  accessSpec.accessCommand.tagSpec.targetTags.push_back(
      C1G2TargetTag{1, true, 0x20, BitString{16, {0xFF, 0xFF}}, BitString{16, {0x30, 0x08}}});
  accessSpec.accessCommand.opSpecs = {C1G2Read{1, 0, 3, 0, 2}, Custom{32473, 7, {}}};
  expectWire(Message{4, AddAccessSpec{accessSpec}},
             "0428 00000053 00000004"
             "00CF 0049 00000001 0000 01 80 00000000"           // AccessSpec: CurrentState u1 = 1
             "00D0 0007 01 0001"                                // AccessSpecStopTrigger
             "00D1 0032"                                        // AccessCommand
             "0152 0013 0153 000F 60 0020 0010 FFFF 0010 3008"  // MB 1, Match 1: 011 00000
             "0155 000F 0001 00000000 C0 0000 0002"  // C1G2Read: MB 3 in the top two bits
             "03FF 000C 00007ED9 00000007");         // a vendor's OpSpec among them
}

TEST(LlrpWire, ReportSpecFlagsArePackedMostSignificantBitFirst) {
  SetReaderConfig set;
  ROReportSpec& reportSpec = set.roReportSpec.emplace();
  reportSpec.roReportTrigger = ROReportTriggerType::kUponNTagsOrEndOfROSpec;
  auto& sel = reportSpec.tagReportContentSelector;
  sel.enableAntennaId = true;           // bit 12
  sel.enablePeakRSSI = true;            // bit 10
  sel.enableFirstSeenTimestamp = true;  // bit 9
  sel.enableTagSeenCount = true;        // bit 7
  sel.epcMemorySelectors.push_back(C1G2EPCMemorySelector{false, true});
  set.keepaliveSpec = KeepaliveSpec{KeepaliveTriggerType::kPeriodic, 10000};
  expectWire(Message{1, set},
             "0403 00000026 00000001"
             "00"                       // ResetToFactoryDefault 0 + 7 reserved bits
             "00ED 0012 02 0000"        // ROReportSpec, trigger 2, N 0
             "00EE 000B 1680"           // TagReportContentSelector
             "015C 0005 40"             // C1G2EPCMemorySelector: PC bits only
             "00DC 0009 01 00002710");  // KeepaliveSpec periodic 10 s
}

TEST(LlrpWire, NestedParameterErrorsFlattenIntoAChain) {
  LLRPStatus status;
  status.statusCode = StatusCode::kMParameterError;
  status.parameterErrors.push_back(ParameterError{177, StatusCode::kPParameterError, {}});
  status.parameterErrors.push_back(
      ParameterError{178, StatusCode::kPMissingParameter, FieldError{2, StatusCode::kMFieldError}});
  expectWire(Message{9, AddROSpecResponse{status}},
             "041E 0000002A 00000009"
             "011F 0020 0064 0000"    // LLRPStatus M_ParameterError, no text
             "0121 0018 00B1 00C8"    // ParameterError ROSpec
             "0121 0010 00B2 00CB"    //   ParameterError ROBoundarySpec
             "0120 0008 0002 0065");  //     FieldError
  LLRPStatus version;
  version.statusCode = StatusCode::kMUnsupportedVersion;
  version.errorDescription = "v2";
  expectWire(Message{4, ErrorMessage{version}}, "0464 00000014 00000004 011F 000A 006E 0002 7632");
}

TEST(LlrpWire, AddROSpecWithTriggersAndAntennaConfiguration) {
  ROSpec roSpec;
  roSpec.roSpecId = 1;
  roSpec.roBoundarySpec.roSpecStartTrigger.roSpecStartTriggerType =
      ROSpecStartTriggerType::kImmediate;
  roSpec.roBoundarySpec.roSpecStopTrigger.roSpecStopTriggerType = ROSpecStopTriggerType::kNull;
  AISpec& ai = roSpec.aiSpecs.emplace_back();
  ai.antennaIds = {1, 2};
  ai.aiSpecStopTrigger.aiSpecStopTriggerType = AISpecStopTriggerType::kTagObservation;
  ai.aiSpecStopTrigger.tagObservationTrigger = TagObservationTrigger{
      TagObservationTriggerType::kNAttemptsToSeeAllTagsInFOVOrTimeout, 0, 3, 0, 5000};
  InventoryParameterSpec& ips = ai.inventoryParameterSpecs.emplace_back();
  ips.inventoryParameterSpecId = 1;
  AntennaConfiguration& ac = ips.antennaConfigurations.emplace_back();
  ac.antennaId = 1;
  ac.rfTransmitter = RFTransmitter{1, 0, 81};
  C1G2InventoryCommand& cmd = ac.inventoryCommands.emplace_back();
  C1G2Filter& filter = cmd.filters.emplace_back();
  filter.t = C1G2TruncateAction::kDoNotTruncate;
  filter.tagInventoryMask = C1G2TagInventoryMask{1, 32, BitString{12, {0x30, 0x10}}};
  filter.stateUnawareAction =
      C1G2TagInventoryStateUnawareFilterAction{C1G2StateUnawareAction::kSelectUnselect};
  cmd.singulationControl = C1G2SingulationControl{2, 32, 0, {}};
  expectWire(Message{2, AddROSpec{roSpec}},
             "0414 00000085 00000002"
             "00B1 007B 00000001 00 00"  // ROSpec 1, priority 0, disabled
             "00B2 0012"                 // ROBoundarySpec
             "00B3 0005 01"              //   start: immediate
             "00B6 0009 00 00000000"     //   stop: null
             "00B7 005F 0002 0001 0002"  // AISpec antennas 1, 2
             "00B8 0019 03 00000000"     //   stop: tag observation
             "00B9 0010 02 00 0000 0003 0000 00001388"
             "00BA 003C 0001 01"             //   InventoryParameterSpec 1, C1G2
             "00DE 0035 0001"                //     AntennaConfiguration 1
             "00E0 000A 0001 0000 0051"      //       RFTransmitter power index 81
             "014A 0025 00"                  //       C1G2InventoryCommand
             "014B 0015 40"                  //         C1G2Filter T=1
             "014C 000B 40 0020 000C 3010"   //           mask MB=1 ptr 32, 12 bits
             "014E 0005 00"                  //           unaware action 0
             "0150 000B 80 0020 00000000");  //         singulation session 2
}

// What LLRP tells a receiver to ignore decodes as if it were not there; the plain frames are made
// of parameters checked bit by bit above.
TEST(LlrpWire, IgnoredInputDecodesAsIfAbsent) {
  const std::pair<const char*, const char*> cases[] = {
      // C1G2InventoryCommand and C1G2SingulationControl (session 2) with all reserved bits set.
      {"0403 00000021 00000001 00 00DE 0016 0001 014A 0010 7F 0150 000B BF 0020 00000000",
       "0403 00000021 00000001 00 00DE 0016 0001 014A 0010 00 0150 000B 80 0020 00000000"},
      // A TagReportData carrying a KeepaliveSpec, which LLRP does not define there.
      {"043D 00000027 00000001 00F0 001D 8D 300833B2DDD9014000000001 00DC 0009 01 00002710 81 0002",
       "043D 0000001E 00000001 00F0 0014 8D 300833B2DDD9014000000001 81 0002"},
  };
  for (const auto& [ignored, plain] : cases) EXPECT_EQ(decoded(hex(ignored)), decoded(hex(plain)));
}

// Where each malformed frame fails, the full text only where it names a parameter or field, and
// the status a reader answers it with.
TEST(LlrpMalformed, FailsWithLocationAndStatus) {
  const struct {
    const char* name;
    const char* wire;
    ErrorCode code;
    uint32_t offset;
    const char* text;
  } cases[] = {
      {"LengthBelowHeader", "043E 00000009 00000005", ErrorCode::kBadLength, 2, nullptr},
      {"ShortHeader", "043E 0000", ErrorCode::kTruncated, 4, nullptr},
      {"Oversized", "043D 01000001 00000001", ErrorCode::kFrameTooLarge, 2, nullptr},
      {"BodyCut", "043D 00000020 00000007 00F0 0016 8D 3008", ErrorCode::kTruncated, 17,
       "truncated at byte 17 in header (message body)"},
      {"BytesAfterFrame", "043E 0000000A 00000005 00", ErrorCode::kBadLength, 10, nullptr},
      {"Version2", "083E 0000000A 00000005", ErrorCode::kBadVersion, 0, nullptr},
      {"UnknownMessage", "0405 0000000A 00000005", ErrorCode::kUnknownMessage, 0, nullptr},
      {"NestedLongerThanParent",
       "043D 00000020 00000007 00F0 0017 8D 300833B2DDD9014000000001 81 0001 86 CC",
       ErrorCode::kBadLength, 12,
       "bad length at byte 12 in RO_ACCESS_REPORT (parameter longer than its parent, parameter "
       "type 240)"},
      {"TvPastTlvEnd", "043D 0000001F 00000007 00F0 0015 8D 300833B2DDD9014000000001 81 0001 86",
       ErrorCode::kBadLength, 30, nullptr},
      {"UnknownTvType", "043D 0000001E 00000007 00F0 0014 8D 300833B2DDD9014000000001 8F 0001",
       ErrorCode::kUnknownTvType, 27, nullptr},
      {"ZeroLengthParameter", "043D 00000012 00000007 00F0 0000 00F0 0000", ErrorCode::kBadLength,
       12, nullptr},
      {"HeaderOnlyParameterLoop", "043D 00000012 00000007 00F0 0004 00F0 0004",
       ErrorCode::kMissingParameter, 10, nullptr},
      {"HalfParameterHeader", "043D 0000000C 00000007 00F0", ErrorCode::kTruncated, 10, nullptr},
      {"DuplicateAntenna",
       "043D 00000021 00000007 00F0 0017 8D 300833B2DDD9014000000001 81 0001 81 0002",
       ErrorCode::kDuplicateParameter, 30,
       "duplicate parameter at byte 30 in TagReportData (AntennaID, parameter type 1)"},
      {"BitCountPastParameter", "043D 0000001A 00000007 00F0 0010 00F1 000C 0080 010203040506",
       ErrorCode::kTruncated, 20, nullptr},
      {"MissingStatus", "041E 0000000A 00000009", ErrorCode::kMissingParameter, 10, nullptr},
      {"FixedParameterTooLong", "0403 00000015 00000001 00 00DC 000A 01 00002710 00",
       ErrorCode::kBadLength, 20, nullptr},
      {"StringPastParameter", "041E 00000012 00000009 011F 0008 0000 0005", ErrorCode::kTruncated,
       18, nullptr},
      {"FieldsPastMessage", "0415 0000000C 00000001 0000", ErrorCode::kTruncated, 10,
       "truncated at byte 10 in DELETE_ROSPEC (ROSpecID)"},
      {"KeepaliveWithBody", "043E 0000000B 00000005 00", ErrorCode::kBadLength, 10, nullptr},
  };
  // LLRP's names for the failures that have one; any other is a parameter error.
  const std::map<ErrorCode, StatusCode> statuses = {
      {ErrorCode::kBadVersion, StatusCode::kMUnsupportedVersion},
      {ErrorCode::kUnknownMessage, StatusCode::kMUnsupportedMessage},
      {ErrorCode::kMissingParameter, StatusCode::kMMissingParameter},
      {ErrorCode::kDuplicateParameter, StatusCode::kMDuplicateParameter},
      {ErrorCode::kUnknownTvType, StatusCode::kMUnknownParameter}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Message m;
    Error e = decode(hex(c.wire), m);
    EXPECT_EQ(e.code, c.code) << e.text();
    EXPECT_EQ(e.offset, c.offset);
    if (c.text != nullptr) {
      EXPECT_EQ(e.text(), c.text);
    }
    const auto named = statuses.find(e.code);
    const LLRPStatus status = statusForError(e);
    EXPECT_EQ(status.statusCode,
              named == statuses.end() ? StatusCode::kMParameterError : named->second);
    EXPECT_EQ(status.errorDescription, e.text());
  }
  EXPECT_EQ(statusForError(Error{}).statusCode, StatusCode::kSuccess);
}

TEST(LlrpMalformed, NestingDeeperThanTheCapFails) {
  // An LLRPStatus whose ParameterError nests 20 deep, each level 8 bytes of its own; the
  // encoder refuses to write it and the decoder to read it.
  LLRPStatus status;
  status.parameterErrors.assign(20, ParameterError{177, StatusCode::kPParameterError, {}});
  std::vector<uint8_t> frame;
  EXPECT_EQ(encode(Message{1, AddROSpecResponse{status}}, frame).code, ErrorCode::kTooDeep);
  frame = hex("041E 000000B2 00000001 011F 00A8 0000 0000");
  for (int size = 160; size > 0; size -= 8)
    frame.insert(frame.end(),
                 {0x01, 0x21, 0x00, static_cast<uint8_t>(size), 0x00, 0xB1, 0x00, 0xC8});
  Message m;
  Error e = decode(frame, m);
  EXPECT_EQ(e.code, ErrorCode::kTooDeep) << e.text();
  EXPECT_EQ(e.messageId, 1u);
  EXPECT_EQ(e.messageType, 30);
}

TEST(LlrpEncode, RefusesRecordsThatDoNotFitTheWire) {
  SetReaderConfig session4;  // a Session of 4 in two bits
  session4.antennaConfigurations.emplace_back()
      .inventoryCommands.emplace_back()
      .singulationControl = C1G2SingulationControl{4, 0, 0, {}};
  ROAccessReport nineBitsInOneByte;
  nineBitsInOneByte.tagReportData.emplace_back().epc = EPCData{BitString{9, {0xFF}}};
  LLRPStatus longText;
  longText.errorDescription.assign(70000, 'x');
  TagReportData tag;
  tag.customs.push_back(Custom{1, 1, std::vector<uint8_t>(60000)});
  ROAccessReport big;
  big.tagReportData.assign(300, tag);
  const std::pair<Message, ErrorCode> cases[] = {
      {Message{1, session4}, ErrorCode::kBadField},
      {Message{1, nineBitsInOneByte}, ErrorCode::kBadField},
      {Message{1, ErrorMessage{longText}}, ErrorCode::kTooLong},
      {Message{1, big}, ErrorCode::kFrameTooLarge},
  };
  for (const auto& [m, code] : cases) {
    std::vector<uint8_t> out = {0xEE};
    const Error e = encode(m, out);
    EXPECT_EQ(e.code, code) << e.text();
    EXPECT_EQ(out, std::vector<uint8_t>{0xEE}) << "a failed encode leaves the output as it was";
  }
  std::vector<uint8_t> out;
  const Error e = encode(Message{1, session4}, out);
  EXPECT_STREQ(e.parameter, "C1G2SingulationControl");
  EXPECT_STREQ(e.field, "Session");
}

}  // namespace
}  // namespace tessera::llrp
