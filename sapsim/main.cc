// sapsim: a simulated SAP system for testing RFC server programs.
//   sapsim serve ...   run the system (gateway, application server, message server)
//   sapsim call ...    play SAP calling a registered server program with a batch

#include <cstdio>
#include <cstring>

#include "sapsim/tool/call_command.h"
#include "sapsim/tool/serve_command.h"

int main(int argc, char** argv) {
  if (argc >= 2 && std::strcmp(argv[1], "serve") == 0) return sapsim::tool::RunServe(argc - 2, argv + 2);
  if (argc >= 2 && std::strcmp(argv[1], "call") == 0) return sapsim::tool::RunCall(argc - 2, argv + 2);
  std::fprintf(stderr,
               "usage: sapsim serve --system FILE [--port N] [--ms-port N] [--bind ADDR] [--quiet]\n"
               "                    [--kill-at logon|registration|call-table|reply-table]\n"
               "       sapsim call --port N --program-id ID --function NAME --structure NAME --csv FILE\n"
               "                   [--host H] [--table BATCH_TABLE] [--repeat N]\n");
  return 2;
}
