#pragma once
// The SAP side of a registered server program: connects to the system as a
// caller, looks up dictionary structures, and calls a function of a program
// registered at the gateway. Used by `sapsim call` and the benchmarks.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sapsim/wire/call_message.h"
#include "sapsim/wire/control_messages.h"
#include "sapsim/wire/frame.h"
#include "sapsim/wire/frame_channel.h"
#include "sapsim/wire/value_description.h"

namespace sapsim::wire {

// A table to send: lines in the layout `desc` describes, not copied.
struct OutgoingTable {
  std::string name;
  ValueDesc desc;
  uint32_t row_count = 0;
  const uint8_t* rows = nullptr;
};

class GatewayCaller {
 public:
  bool Connect(const std::string& host, uint16_t port, std::string* error);
  const Welcome& system() const { return system_; }

  // The structure's layout from the system's dictionary.
  bool LookUp(const std::string& structure, ValueDesc* layout, std::string* error);

  enum class Outcome {
    kReplied,   // *reply holds the server's REPLY (which may report an exception or failure)
    kRefused,   // the system refused: no server registered, ...; *refusal says why
    kBroken,    // the connection to the system broke; *error says why
  };
  Outcome Call(const std::string& program_id, const std::string& function, const std::vector<OutgoingTable>& tables,
               Frame* reply, ErrorNotice* refusal, std::string* error);

 private:
  std::unique_ptr<FrameChannel> channel_;
  Welcome system_;
};

}  // namespace sapsim::wire
