#pragma once
// The SAP side in tests: calls a function of a registered program with one
// table built from CSV text, and decodes the reply.

#include <string>

#include "sapsim/wire/call_message.h"
#include "sapsim/wire/frame.h"
#include "sapsim/wire/gateway_caller.h"

namespace sapsim::testing {

struct CallOutcome {
  std::string refused;  // the system's refusal, or why the connection broke
  wire::Frame frame;    // keeps the reply's bytes
  wire::ReplyMessage reply;
  // An export as text ("" when absent).
  std::string Export(const std::string& name) const;
};

class SapCaller {
 public:
  explicit SapCaller(uint16_t port);
  // Calls `function` of `program_id` with `table` holding the CSV's rows in
  // the layout of dictionary structure `structure` ("" for no table).
  CallOutcome Call(const std::string& program_id, const std::string& function, const std::string& structure = "",
                   const std::string& csv = "", const std::string& table = "BATCH_TABLE");

 private:
  wire::GatewayCaller caller_;
};

}  // namespace sapsim::testing
