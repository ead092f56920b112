#include "sapsim/tool/call_command.h"

#include <signal.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "sapsim/tool/arguments.h"
#include "sapsim/tool/batch_rows.h"
#include "sapsim/tool/csv_reader.h"
#include "sapsim/wire/call_message.h"
#include "sapsim/wire/decode_error.h"
#include "sapsim/wire/gateway_caller.h"
#include "sapsim/wire/value_converter.h"

namespace sapsim::tool {

namespace {

constexpr const char* kUsage =
    "usage: sapsim call --port N --program-id ID --function NAME --structure NAME --csv FILE\n"
    "                   [--host H] [--table BATCH_TABLE] [--repeat N]\n";

int Fail(int code, const std::string& message) {
  std::fprintf(stderr, "sapsim call: %s\n", message.c_str());
  return code;
}

void PrintExports(const wire::ReplyMessage& reply) {
  for (const wire::WireValue& value : reply.values) {
    if (value.desc.kind == wire::ValueDesc::Kind::kStructure) {
      for (const wire::FieldDesc& field : value.desc.fields) {
        std::printf("%s-%s=%s\n", value.name.c_str(), field.name.c_str(),
                    wire::ValueToText(wire::SimpleType{field.type, field.length, field.decimals},
                                      value.data + field.offset)
                        .c_str());
      }
    } else if (value.desc.kind == wire::ValueDesc::Kind::kSimple) {
      std::printf("%s=%s\n", value.name.c_str(),
                  wire::ValueToText(wire::SimpleType{value.desc.type, value.desc.length, value.desc.decimals},
                                    value.data)
                      .c_str());
    } else {
      std::printf("%s=%s\n", value.name.c_str(),
                  wire::ValueToText(wire::SimpleType{value.desc.type, value.desc.length, 0}, value.data).c_str());
    }
  }
}

}  // namespace

int RunCall(int argc, char** argv) {
  Arguments args;
  std::string error;
  if (!args.Parse(argc, argv,
                  {"--port", "--program-id", "--function", "--structure", "--csv", "--host", "--table", "--repeat"},
                  {}, &error)) {
    return Fail(2, error + "\n" + kUsage);
  }
  for (const char* required : {"--port", "--program-id", "--function", "--structure", "--csv"}) {
    if (!args.Has(required)) return Fail(2, std::string(required) + " is missing\n" + kUsage);
  }
  uint16_t port = 0;
  long repeat = 1;
  if (!args.Port("--port", &port, &error) || !args.Count("--repeat", &repeat, &error)) return Fail(2, error);
  bool summary = args.Has("--repeat");
  std::string host = args.Value("--host", "127.0.0.1");
  std::string program_id = args.Value("--program-id");
  std::string function = args.Value("--function");
  std::string structure = args.Value("--structure");
  std::string table_name = args.Value("--table", "BATCH_TABLE");
  std::string csv_path = args.Value("--csv");
  signal(SIGPIPE, SIG_IGN);

  std::ifstream in(csv_path, std::ios::binary);
  if (!in) return Fail(2, csv_path + ": cannot read: " + std::strerror(errno));
  std::ostringstream text;
  text << in.rdbuf();
  std::vector<CsvRecord> records;
  if (!ParseCsv(text.str(), &records, &error)) return Fail(2, csv_path + ": " + error);

  wire::GatewayCaller caller;
  if (!caller.Connect(host, port, &error)) return Fail(1, "system not reached: " + error);
  wire::ValueDesc layout;
  if (!caller.LookUp(structure, &layout, &error)) return Fail(1, error);
  BatchRows rows;
  if (!BuildBatchRows(records, structure, layout, &rows, &error)) return Fail(2, csv_path + ": " + error);

  std::vector<wire::OutgoingTable> tables = {{table_name, layout, rows.row_count, rows.bytes.data()}};
  auto start = std::chrono::steady_clock::now();
  for (long i = 0; i < repeat; ++i) {
    wire::Frame frame;
    wire::ErrorNotice refusal;
    switch (caller.Call(program_id, function, tables, &frame, &refusal, &error)) {
      case wire::GatewayCaller::Outcome::kBroken:
        return Fail(1, "connection to the system broke: " + error);
      case wire::GatewayCaller::Outcome::kRefused:
        return Fail(1, "call of " + function + " refused: " + refusal.message);
      case wire::GatewayCaller::Outcome::kReplied:
        break;
    }
    wire::ReplyMessage reply;
    try {
      reply = wire::DecodeReply(frame.payload.data(), frame.payload.size());
    } catch (const wire::DecodeError& e) {
      return Fail(1, std::string("the reply of program ") + program_id + " is malformed: " + e.what());
    }
    if (reply.status == wire::ReplyStatus::kException) {
      std::printf("EXCEPTION=%s\n", reply.key.c_str());
      std::fflush(stdout);
      return Fail(1, "program " + program_id + " raised exception " + reply.key + " in " + function);
    }
    if (reply.status == wire::ReplyStatus::kSystemFailure) {
      return Fail(1, "call of " + function + " failed in program " + program_id + ": " + reply.key + ": " +
                         reply.message);
    }
    if (!summary) PrintExports(reply);
  }
  if (summary) {
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    double per_second = seconds > 0 ? static_cast<double>(repeat) / seconds : 0.0;
    std::printf("calls=%ld seconds=%.3f calls_per_second=%.1f rows_per_second=%.1f\n", repeat, seconds, per_second,
                per_second * rows.row_count);
  }
  std::fflush(stdout);
  return 0;
}

}  // namespace sapsim::tool
