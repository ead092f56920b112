#pragma once
// The argument vector of RfcAccept: "-a<program id>" "-g<gateway host>"
// "-x<gateway service>" and optionally "-t<n>"; other options and words are
// ignored, as a program may pass its whole command line.

#include <string>

namespace rfcsim {

struct AcceptArguments {
  std::string program_id;
  std::string gateway_host;
  std::string gateway_service;
  int trace = 0;
};

// False with *error naming what is missing.
bool ParseAcceptArguments(char** argv, AcceptArguments* out, std::string* error);

}  // namespace rfcsim
