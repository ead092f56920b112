#include "sapsim/librfcsim/accept_arguments.h"

#include <cstdlib>
#include <cstring>

namespace rfcsim {

namespace {
// No sane command line has more; a vector without its null end stops here.
constexpr int kMaxArguments = 1024;
}  // namespace

bool ParseAcceptArguments(char** argv, AcceptArguments* out, std::string* error) {
  if (argv == nullptr) {
    *error = "RfcAccept: no argument vector";
    return false;
  }
  AcceptArguments parsed;
  for (int i = 0; argv[i] != nullptr; ++i) {
    if (i >= kMaxArguments) {
      *error = "RfcAccept: argument vector without its null end";
      return false;
    }
    const char* arg = argv[i];
    if (arg[0] != '-' || arg[1] == '\0') continue;
    const char* value = arg + 2;
    switch (arg[1]) {
      case 'a': parsed.program_id = value; break;
      case 'g': parsed.gateway_host = value; break;
      case 'x': parsed.gateway_service = value; break;
      case 't': parsed.trace = std::atoi(value); break;
      default: break;  // options of other programs
    }
  }
  std::string missing;
  if (parsed.program_id.empty()) missing += " -a<program id>";
  if (parsed.gateway_host.empty()) missing += " -g<gateway host>";
  if (parsed.gateway_service.empty()) missing += " -x<gateway service>";
  if (!missing.empty()) {
    *error = "RfcAccept: missing or empty" + missing;
    return false;
  }
  *out = parsed;
  return true;
}

}  // namespace rfcsim
