#pragma once
// sapsim serve --system FILE [--port N] [--ms-port N] [--bind ADDR] [--quiet]

namespace sapsim::tool {

// Runs the system in the foreground until SIGTERM or SIGINT; returns the
// process exit code (2 for a bad system file or bad arguments).
int RunServe(int argc, char** argv);

}  // namespace sapsim::tool
