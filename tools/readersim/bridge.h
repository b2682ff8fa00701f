// tools/readersim/bridge.h — conversions between the codec's LLRP records and the simulator's
// model, with the checks a reader makes on what a client sends.
#pragma once

#include "llrp/records.h"
#include "model.h"
#include "options.h"
#include "population.h"

namespace tessera::readersim {

// A client's ROSpec as the engine runs it; an error status for what the reader cannot do.
Status toRoSpecDef(const llrp::ROSpec& in, RoSpecDef& out);
// A client's AntennaConfiguration as an override of the antenna settings.
Status toAntennaOverride(const llrp::AntennaConfiguration& in, AntennaOverride& out);
// A client's C1G2InventoryCommand.
Status toInventoryCommand(const llrp::C1G2InventoryCommand& in, InventoryCommand& out);
// A client's ROReportSpec.
Status toRoReportDef(const llrp::ROReportSpec& in, RoReportDef& out);
// Applies an override to stored antenna settings (filters replaced, the rest when given).
void applyOverride(const AntennaOverride& ov, AntennaSettings& a);
// The reader's ROReportSpec as LLRP.
llrp::ROReportSpec fromRoReportDef(const RoReportDef& in);
// An antenna's settings as LLRP (RFReceiver, RFTransmitter, C1G2InventoryCommand).
llrp::AntennaConfiguration fromAntennaSettings(const AntennaSettings& in);
// One read as TagReportData with the fields the selector enables (EPC always).
llrp::TagReportData toTagReportData(const TagRead& read, const Tag& tag,
                                    const ContentSelector& content);
// Leaves out the fields that --omit-field picks for read number readNo (the choice depends on
// the seed and readNo only); bit f of the result is set when ReportField f was left out.
uint32_t omitReportFields(const Options& options, uint64_t readNo, llrp::TagReportData& data);
// A status as LLRPStatus.
llrp::LLRPStatus toLlrpStatus(const Status& status);
// Error for Custom parameters a client sent (the reader supports none in requests).
Status rejectCustoms(const std::vector<llrp::Custom>& customs, const char* where);
// The same for a message's own parameter list: there a Custom is an unsupported parameter of
// the message.
Status messageCustoms(const std::vector<llrp::Custom>& customs, const char* where);

}  // namespace tessera::readersim
