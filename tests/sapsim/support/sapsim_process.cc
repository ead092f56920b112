#include "tests/sapsim/support/sapsim_process.h"

#include <chrono>
#include <cstdlib>
#include <stdexcept>

#include "tests/sapsim/support/rfc_library.h"
#include "tests/support/polling.h"

namespace sapsim::testing {
namespace {

uint16_t PortAfter(const std::string& text, const std::string& prefix) {
  const size_t at = text.find(prefix);
  if (at == std::string::npos || text.find('\n', at) == std::string::npos) return 0;
  return static_cast<uint16_t>(std::atoi(text.c_str() + at + prefix.size()));
}

}  // namespace

SapsimProcess::SapsimProcess(const Options& options) {
  log_path_ = dir_.File("sapsim.log");
  const std::string out_path = dir_.File("sapsim.out");
  std::vector<std::string> args = {SapsimPath(), "serve", "--system", options.system_file, "--port",
                                   std::to_string(options.port)};
  if (options.message_server) args.insert(args.end(), {"--ms-port", "0"});
  args.insert(args.end(), options.extra.begin(), options.extra.end());
  process_ = std::make_unique<testutil::ChildProcess>(args, "", out_path, log_path_);
  // The ports are announced on standard output once the system listens.
  testutil::Eventually(
      [&] {
        const std::string out = testutil::ReadBytes(out_path);
        port_ = PortAfter(out, "sapsim: listening on port ");
        ms_port_ = PortAfter(out, "sapsim: message server on port ");
        return process_->Poll() || (port_ != 0 && (!options.message_server || ms_port_ != 0));
      },
      std::chrono::seconds(20));
  if (port_ == 0 || (options.message_server && ms_port_ == 0)) {
    const std::string output = testutil::ReadBytes(out_path);
    Stop();
    throw std::runtime_error("sapsim did not come up; output: " + output + "; log: " + Log());
  }
}

int SapsimProcess::Stop() {
  const std::optional<int> status = process_->Terminate(10000);
  return status ? testutil::ExitCode(*status) : -1;
}

std::string SapsimProcess::Log() const { return testutil::ReadBytes(log_path_); }

}  // namespace sapsim::testing
