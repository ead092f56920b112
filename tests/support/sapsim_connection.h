#pragma once
// sapsim serving its small system and a client connection to it (load the RFC library first).

#include <memory>

#include "access/client_connection.h"
#include "tests/sapsim/support/sapsim_process.h"
#include "tests/sapsim/support/system_files.h"

namespace testutil {

struct SapsimConnection {
  SapsimConnection() {
    sapsim::testing::SapsimProcess::Options options;
    options.system_file = dir.Write("system.json", sapsim::testing::SmallSystem());
    sapsim = std::make_unique<sapsim::testing::SapsimProcess>(options);
    connection.SetAppServerLogon("127.0.0.1", 0, "100", "BATCH", "secret", "E", sapsim->port_text(), 0);
    connection.Open();
  }

  TempDir dir;
  std::unique_ptr<sapsim::testing::SapsimProcess> sapsim;
  CClientConnection connection;  // closed before the system stops
};

}  // namespace testutil
