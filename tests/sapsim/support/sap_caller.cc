#include "tests/sapsim/support/sap_caller.h"

#include <stdexcept>

#include "sapsim/tool/batch_rows.h"
#include "sapsim/tool/csv_reader.h"
#include "sapsim/wire/decode_error.h"
#include "sapsim/wire/value_converter.h"

namespace sapsim::testing {

std::string CallOutcome::Export(const std::string& name) const {
  const wire::WireValue* value = reply.FindValue(name);
  if (value == nullptr || value->desc.kind != wire::ValueDesc::Kind::kSimple) return "";
  return wire::ValueToText(wire::SimpleType{value->desc.type, value->desc.length, value->desc.decimals}, value->data);
}

SapCaller::SapCaller(uint16_t port) {
  std::string error;
  if (!caller_.Connect("127.0.0.1", port, &error)) throw std::runtime_error("caller cannot connect: " + error);
}

CallOutcome SapCaller::Call(const std::string& program_id, const std::string& function, const std::string& structure,
                            const std::string& csv, const std::string& table) {
  CallOutcome outcome;
  std::vector<wire::OutgoingTable> tables;
  tool::BatchRows rows;
  if (!structure.empty()) {
    std::string error;
    wire::ValueDesc layout;
    std::vector<tool::CsvRecord> records;
    if (!caller_.LookUp(structure, &layout, &error) || !tool::ParseCsv(csv, &records, &error) ||
        !tool::BuildBatchRows(records, structure, layout, &rows, &error)) {
      throw std::runtime_error("cannot build the batch: " + error);
    }
    tables.push_back(wire::OutgoingTable{table, layout, rows.row_count, rows.bytes.data()});
  }
  wire::ErrorNotice refusal;
  std::string error;
  switch (caller_.Call(program_id, function, tables, &outcome.frame, &refusal, &error)) {
    case wire::GatewayCaller::Outcome::kBroken:
      outcome.refused = "broken: " + error;
      return outcome;
    case wire::GatewayCaller::Outcome::kRefused:
      outcome.refused = refusal.message;
      return outcome;
    case wire::GatewayCaller::Outcome::kReplied:
      break;
  }
  outcome.reply = wire::DecodeReply(outcome.frame.payload.data(), outcome.frame.payload.size());
  return outcome;
}

}  // namespace sapsim::testing
