#pragma once
// RFC_READ_TABLE: the rows of a table as text lines. Each field is shown in
// its character form (CHAR, NUM, DATE and TIME as they are, numbers right
// aligned, BYTE in hex) at the offsets the FIELDS table reports, with the
// delimiter between fields when it is not blank.

#include "sapsim/server/function_module.h"

namespace sapsim::server {

class ReadTableModule : public FunctionModule {
 public:
  // Longest line the DATA table holds.
  static constexpr uint32_t kLineWidth = 512;

  std::string Name() const override { return "RFC_READ_TABLE"; }
  FunctionInterface Interface(const SimulatedSystem& system) const override;
  void Execute(CallContext& call) const override;
};

}  // namespace sapsim::server
