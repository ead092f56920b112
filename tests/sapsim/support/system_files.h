#pragma once
// System files for tests.

#include <string>

#include "tests/support/temp_dir.h"

namespace sapsim::testing {

// A small system: DEV, logon 100/BATCH/secret, group PUBLIC, the structure
// and table ZORDERS (IDENT C10, QTY N6, PRICE P 6.2) and the structure
// ZBATCH_LINE.
inline std::string SmallSystem() {
  return testutil::ReadBytes(testutil::SourceDir() + "/tests/sapsim/data/small_system.json");
}

}  // namespace sapsim::testing
