#include "sapsim/tool/serve_command.h"

#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sapsim/server/event_log.h"
#include "sapsim/server/kill_point.h"
#include "sapsim/server/sim_server.h"
#include "sapsim/server/simulated_system.h"
#include "sapsim/server/system_file.h"
#include "sapsim/tool/arguments.h"

namespace sapsim::tool {

int RunServe(int argc, char** argv) {
  Arguments args;
  std::string error;
  if (!args.Parse(argc, argv, {"--system", "--port", "--ms-port", "--bind", "--kill-at"}, {"--quiet"}, &error)) {
    std::fprintf(stderr, "sapsim serve: %s\n", error.c_str());
    return 2;
  }
  if (!args.Has("--system")) {
    std::fprintf(stderr,
                 "usage: sapsim serve --system FILE [--port N] [--ms-port N] [--bind ADDR] [--quiet]\n"
                 "                    [--kill-at logon|registration|call-table|reply-table]\n");
    return 2;
  }
  server::ServerOptions options;
  uint16_t port = 0;
  if (!args.Port("--port", &port, &error) || !args.Port("--ms-port", &options.ms_port, &error)) {
    std::fprintf(stderr, "sapsim serve: %s\n", error.c_str());
    return 2;
  }
  options.port = port;
  options.message_server = args.Has("--ms-port");
  if (args.Has("--bind")) options.bind_address = args.Value("--bind");
  options.log_calls = !args.Flag("--quiet");
  server::KillPoint kill_at = server::KillPoint::kNone;
  if (args.Has("--kill-at") && !server::ParseKillPoint(args.Value("--kill-at"), &kill_at)) {
    std::fprintf(stderr, "sapsim serve: --kill-at: unknown point '%s' (known: logon registration call-table reply-table)\n",
                 args.Value("--kill-at").c_str());
    return 2;
  }
  server::ArmKillPoint(kill_at);

  std::unique_ptr<server::SimulatedSystem> system;
  try {
    system = std::make_unique<server::SimulatedSystem>(server::LoadSystemFile(args.Value("--system")));
  } catch (const server::SystemFileError& e) {
    std::fprintf(stderr, "sapsim: %s\n", e.what());
    return 2;
  }

  // Signals are taken by sigwait below, never by a handler: block them
  // before any thread starts so every thread inherits the mask.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGTERM);
  sigaddset(&stop_signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  server::SimServer running(*system, options);
  if (!running.Start(&error)) {
    std::fprintf(stderr, "sapsim: %s\n", error.c_str());
    return 1;
  }
  const server::SystemDefinition& definition = system->definition();
  server::EventLog::Write("system " + definition.system_id + " release " +
                          (definition.release.empty() ? std::string("(none)") : definition.release) + " from " +
                          args.Value("--system"));
  std::printf("sapsim: listening on port %u\n", static_cast<unsigned>(running.port()));
  if (options.message_server) {
    std::printf("sapsim: message server on port %u\n", static_cast<unsigned>(running.ms_port()));
  }
  std::fflush(stdout);

  int received = 0;
  sigwait(&stop_signals, &received);
  server::EventLog::Write(std::string("stopping on ") + (received == SIGINT ? "SIGINT" : "SIGTERM"));
  running.Stop();
  return 0;
}

}  // namespace sapsim::tool
