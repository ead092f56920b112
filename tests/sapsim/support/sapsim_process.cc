#include "tests/sapsim/support/sapsim_process.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

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
  pid_ = testutil::Spawn(args, "", out_path, log_path_);
  // The ports are announced on standard output once the system listens.
  testutil::Eventually(
      [&] {
        const std::string out = testutil::ReadBytes(out_path);
        port_ = PortAfter(out, "sapsim: listening on port ");
        ms_port_ = PortAfter(out, "sapsim: message server on port ");
        int status = 0;
        const bool ended = waitpid(pid_, &status, WNOHANG) == pid_;
        if (ended) pid_ = -1;
        return ended || (port_ != 0 && (!options.message_server || ms_port_ != 0));
      },
      std::chrono::seconds(20));
  if (port_ == 0 || (options.message_server && ms_port_ == 0)) {
    const std::string output = testutil::ReadBytes(out_path);
    Stop();
    throw std::runtime_error("sapsim did not come up; output: " + output + "; log: " + Log());
  }
}

SapsimProcess::~SapsimProcess() { Stop(); }

int SapsimProcess::Stop() {
  if (pid_ <= 0) return -1;
  kill(pid_, SIGCONT);  // a stopped process cannot act on SIGTERM
  kill(pid_, SIGTERM);
  int status = 0;
  const bool ended =
      testutil::Eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, std::chrono::seconds(10));
  if (!ended) kill(pid_, SIGKILL), waitpid(pid_, &status, 0);
  pid_ = -1;
  return ended ? testutil::ExitCode(status) : -1;
}

std::string SapsimProcess::Log() const { return testutil::ReadBytes(log_path_); }

}  // namespace sapsim::testing
