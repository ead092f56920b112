#pragma once
// One line per notable event on standard error, so that users can follow
// what the simulated system does. Lines from different threads never mix.

#include <string>

namespace sapsim::server {

class EventLog {
 public:
  // Writes "sapsim: " + text + "\n" and flushes.
  static void Write(const std::string& text);
  // Silences the log (unit tests that drive the system in-process).
  static void SetQuiet(bool quiet);
};

}  // namespace sapsim::server
