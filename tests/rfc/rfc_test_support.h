#pragma once
// What the class-library tests share: traced runs and transcripts, and a fixture
// on the stand-in RFC library with its dictionary answers (PARAMS, FIELDS lines).

#include <gmock/gmock.h>

#include <exception>
#include <filesystem>
#include <future>
#include <regex>
#include <stdexcept>
#include <thread>

#include "platform/path.h"
#include "platform/thread.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_trace.h"
#include "rfc/function/rfc_byte_order.h"
#include "tests/support/expected_file.h"
#include "tests/support/stand_in_rfc.h"
#include "tests/support/polling.h"
#include "tests/support/temp_dir.h"

namespace rfc_test {

struct TracedRun {
  bool file_exists = false;
  std::string content;             // the trace file as written
  std::vector<std::string> lines;  // split at CR LF
  bool threw_text = false;         // a const char* left the code ...
  std::string thrown;              // ... with this text
};

inline std::string TraceFileOf(const std::string& directory, uint32_t thread_id) {
  return directory + platform::kPathSeparator + "crfc" + std::to_string(static_cast<int>(thread_id)) + ".trc";
}

// Runs `code` on a thread of its own, so that its trace file holds exactly
// what it traced, with the trace on (or off) in a fresh directory. Exceptions
// other than const char* are rethrown in the caller.
inline TracedRun RunTraced(const std::function<void()>& code, bool trace_on = true) {
  testutil::TempDir dir;
  GetRfcTrace().SetDirectory(dir.path());
  GetRfcTrace().SetTraceOn(trace_on ? 1 : 0);
  TracedRun run;
  uint32_t thread_id = 0;
  std::exception_ptr other;
  // The trace keeps a thread's file by thread id for good, and Windows gives
  // the id of an ended thread to the next one at once: the code runs only on
  // a thread whose id is new to this process. Threads with a used id wait,
  // so that the next one gets another id, and end without running the code.
  static std::set<uint32_t> used_ids;
  std::vector<std::pair<std::promise<bool>, std::thread>> parked;
  for (;;) {
    std::promise<uint32_t> id;
    std::promise<bool> go;
    std::thread thread([&, run_it = go.get_future()]() mutable {
      id.set_value(platform::CurrentThreadId());
      if (!run_it.get()) return;
      try {
        code();
      } catch (const char* text) {
        run.threw_text = true;
        run.thrown = text;
      } catch (...) {
        other = std::current_exception();
      }
    });
    thread_id = id.get_future().get();
    if (used_ids.insert(thread_id).second) {
      go.set_value(true);
      thread.join();
      break;
    }
    parked.emplace_back(std::move(go), std::move(thread));
  }
  for (auto& [go, thread] : parked) {
    go.set_value(false);
    thread.join();
  }
  GetRfcTrace().SetTraceOn(0);
  const std::string file = TraceFileOf(dir.path(), thread_id);
  run.file_exists = std::filesystem::exists(file);
  run.content = testutil::ReadBytes(file);
  run.lines = testutil::CrLfLines(run.content);
  if (other) std::rethrow_exception(other);
  return run;
}

// The text of the plain-text exception `code` throws, "" when it throws none.
inline std::string Thrown(const std::function<void()>& code) {
  try {
    code();
  } catch (const char* text) {
    return text;
  }
  return "";
}

// A trace header's date and time (they vary) as a placeholder. Only a header
// of the right form is changed, so the rest of its format stays pinned.
inline std::string WithTraceTime(const std::string& text) {
  static const std::regex time(R"((Rfc Class Library Trace at   )\d{4}\.\d\d\.\d\d   \d\d:\d\d:\d\d)");
  return std::regex_replace(text, time, "$1YYYY.MM.DD   hh:mm:ss");
}

// A step of a transcript: what it does, and what it shows afterwards.
struct Step {
  std::string name;
  std::function<void()> run;
  std::function<std::string()> then = {};
};

// Runs `steps` in order on one traced thread, the trace switched on before
// each, and writes per step its name, what it threw, what it showed and the
// trace lines it wrote (the header's time as a placeholder).
inline std::string Transcript(const std::vector<Step>& steps) {
  std::string out;
  RunTraced([&] {
    const std::string file = TraceFileOf(GetRfcTrace().GetDirectory(), platform::CurrentThreadId());
    size_t seen = 0;
    for (const Step& step : steps) {
      GetRfcTrace().SetTraceOn(1);
      out += "## " + step.name + "\n";
      try {
        step.run();
      } catch (const char* text) {
        out += "throws: " + std::string(text) + "\n";
      } catch (const RFC_ERROR_INFO& error) {
        out += "throws error: " + std::string(error.key) + "/" + error.status + "/" + error.message + "\n";
      }
      if (step.then) out += "then: " + step.then() + "\n";
      const std::string content = testutil::ReadBytes(file);
      for (const std::string& line : testutil::CrLfLines(content.substr(std::min(seen, content.size())))) {
        out += "| " + WithTraceTime(line) + "\n";
      }
      seen = content.size();
    }
  });
  return out;
}

// The stand-in library's state; loaded on first use.
inline stand_in::State& Fake() {
  static stand_in::State& state =
      LoadRfcLibrary(STAND_IN_RFC) ? stand_in::StandIn(STAND_IN_RFC) : throw std::runtime_error("cannot load " STAND_IN_RFC);
  return state;
}

// Every test starts with a fresh library state, no planned allocation
// failures, native byte order and the trace off.
class StandInTest : public ::testing::Test {
 protected:
  void SetUp() override { Clean(); }
  void TearDown() override { Clean(); }
  static void Clean() {
    Fake().Reset();
    rfc::testing::ClearAllocationFaults();
    SetRfcByteOrderSwitch(0);
    GetRfcTrace().SetTraceOn(0);
  }
  stand_in::State& fake() { return Fake(); }
};

// A line of RFC_GET_FUNCTION_INTERFACE's PARAMS table.
struct ParamsLine {
  std::string param_class, parameter, tab_name, field_name, exid;
  int32_t int_length = 0, decimals = 0;
};
// A line of RFC_GET_STRUCTURE_DEFINITION's FIELDS table.
struct FieldsLine {
  std::string tab_name, field_name;
  int32_t position = 0, offset = 0, int_length = 0, decimals = 0;
  std::string exid;
};

// A number's bytes in the machine's order.
inline std::string Int(int32_t value) { return std::string(reinterpret_cast<const char*>(&value), sizeof value); }
// `fields` in order, each a text blank-padded to its width; zeros to `length`.
inline std::string Packed(const std::vector<std::pair<std::string, size_t>>& fields, size_t length) {
  std::string line;
  for (const auto& [text, width] : fields) line += text.substr(0, width) + std::string(width - std::min(width, text.size()), ' ');
  line.resize(length, '\0');
  return line;
}
// The lines in the long (208/80 bytes) or short (168/40) layout.
inline std::string PackParams(const ParamsLine& p, bool long_layout) {
  const size_t names = long_layout ? 30 : 10;
  return Packed({{p.param_class, 1}, {p.parameter, 30}, {p.tab_name, names}, {p.field_name, names}, {p.exid, 1},
                 {std::string(8, '\0'), 8}, {Int(p.int_length), 4}, {Int(p.decimals), 4}, {"", 100}},  // DEFAULT, PARAMTEXT
                long_layout ? 208 : 168);
}
inline std::string PackFields(const FieldsLine& f, bool long_layout) {
  const size_t names = long_layout ? 30 : 10;
  return Packed({{f.tab_name, names}, {f.field_name, names}, {Int(f.position), 4}, {Int(f.offset), 4}, {Int(f.int_length), 4},
                 {Int(f.decimals), 4}, {f.exid, 1}}, long_layout ? 80 : 40);
}

// A receive that appends `lines` to the table entry named `table` (making the
// table as the library would when the entry has none) and answers 0.
inline stand_in::ReceiveScript FillTable(const std::string& table, std::vector<std::string> lines) {
  return [table, lines](RfcParameterEntry*, RfcTableEntry* tables, char**) {
    for (RfcTableEntry* entry = tables; entry != nullptr && entry->name != nullptr; ++entry) {
      if (std::string(static_cast<const char*>(entry->name), entry->name_length) != table) continue;
      if (entry->handle == nullptr) entry->handle = Fake().NewTable(entry->line_length);
      for (const std::string& line : lines) Fake().AppendLine(entry->handle, line);
    }
    return 0;
  };
}

// A receive that raises the exception `name` (static storage: the library's).
inline stand_in::ReceiveScript Raising(char* name) {
  return [name](RfcParameterEntry*, RfcTableEntry*, char** exception) {
    *exception = name;
    return RFC_EXCEPTION;
  };
}

// Answers RFC_GET_FUNCTION_INTERFACE with `params` and RFC_GET_STRUCTURE_DEFINITION
// from `structures` (TABLE_NOT_ACTIVE for any other).
struct Dictionary {
  std::vector<ParamsLine> params;
  std::vector<std::pair<std::string, std::vector<FieldsLine>>> structures;
  bool long_layout = true;
};
inline void Answer(const Dictionary& dictionary) {
  std::vector<std::string> params;
  for (const ParamsLine& line : dictionary.params) params.push_back(PackParams(line, dictionary.long_layout));
  Fake().receive_by_function["RFC_GET_FUNCTION_INTERFACE"] = FillTable("PARAMS", params);
  Fake().receive_by_function["RFC_GET_STRUCTURE_DEFINITION"] =
      [dictionary](RfcParameterEntry* exports, RfcTableEntry* tables, char** exception) -> int {
    std::string name;  // the import TABNAME, without its trailing blanks
    for (const stand_in::Entry& param : Fake().calls.back().params) name = param.name == "TABNAME" ? param.bytes : name;
    name.erase(name.find_last_not_of(std::string(" \0", 2)) + 1);
    for (const auto& [structure, fields] : dictionary.structures) {
      if (structure != name) continue;
      std::vector<std::string> lines;
      for (const FieldsLine& field : fields) lines.push_back(PackFields(field, dictionary.long_layout));
      return FillTable("FIELDS", lines)(exports, tables, exception);
    }
    static char not_active[] = "TABLE_NOT_ACTIVE";
    return Raising(not_active)(exports, tables, exception);
  };
}

}  // namespace rfc_test
