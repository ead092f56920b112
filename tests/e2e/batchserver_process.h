#pragma once
// The batchserver binary as a test runs it: a command line, a working
// directory (where the class-library trace goes), standard output and error
// in files, and its end by signal.

#include <string>
#include <vector>

#include "tests/support/processes.h"

namespace e2e {

// Poll, Terminate, Kill, ThreadCount: see testutil::ChildProcess.
class BatchServerProcess : public testutil::ChildProcess {
 public:
  // Starts <build>/bin/batchserver with `arguments` in `directory`; its
  // standard output and error go to the two files.
  BatchServerProcess(const std::vector<std::string>& arguments, const std::string& directory,
                     const std::string& out_path, const std::string& err_path);
};

// Runs a program in the background until the test kills it; its standard
// error goes next to its output, with ".err" appended.
class BackgroundCommand : public testutil::ChildProcess {
 public:
  BackgroundCommand(const std::vector<std::string>& argv, const std::string& out_path);
};

}  // namespace e2e
