#pragma once
// sapsim call --port N --program-id ID --function NAME --structure NAME --csv FILE
//             [--host H] [--table BATCH_TABLE] [--repeat N]

namespace sapsim::tool {

// Plays SAP calling a registered server program with the CSV's rows as a
// table; prints the reply's exports as NAME=VALUE (or the exception the
// server raised). With --repeat, prints one summary line instead. Exit code
// 0 only when every call succeeded; 2 for bad arguments or a bad CSV.
int RunCall(int argc, char** argv);

}  // namespace sapsim::tool
