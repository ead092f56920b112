#include "tests/rfc/function/fake_library_fixture.h"

#include <cstring>
#include <stdexcept>

#include "platform/dynamic_library.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_trace.h"
#include "rfc/function/rfc_byte_order.h"

namespace rfc_function_test {

fake_rfc::State& Fake() {
  static fake_rfc::State* state = [] {
    if (!LoadRfcLibrary(FAKE_RFC_LIBRARY)) throw std::runtime_error("cannot load the fake library");
    // The same file again gives the same handle.
    platform::LibraryHandle handle = platform::LoadDynamicLibrary(FAKE_RFC_LIBRARY);
    auto get = reinterpret_cast<FakeRfc_t>(platform::GetLibrarySymbol(handle, "FakeRfc"));
    if (get == nullptr) throw std::runtime_error("the fake library has no FakeRfc");
    return get();
  }();
  return *state;
}

void FakeLibraryTest::SetUp() {
  Fake().Reset();
  rfc::testing::ClearAllocationFaults();
  SetRfcByteOrderSwitch(0);
  GetRfcTrace().SetTraceOn(0);
}

void FakeLibraryTest::TearDown() {
  rfc::testing::ClearAllocationFaults();
  SetRfcByteOrderSwitch(0);
  GetRfcTrace().SetTraceOn(0);
}

namespace {

void Put(std::string& line, size_t offset, const std::string& text, size_t length) {
  std::string field = text.substr(0, length);
  field.resize(length, ' ');
  line.replace(offset, length, field);
}

void PutInt(std::string& line, size_t offset, int32_t value) {
  std::memcpy(&line[offset], &value, sizeof value);
}

}  // namespace

std::string PackParams(const ParamsLine& p, bool long_layout) {
  std::string line(long_layout ? 208 : 168, '\0');
  const size_t names = long_layout ? 30 : 10;
  const size_t after = long_layout ? 91 : 51;
  Put(line, 0, p.param_class, 1);
  Put(line, 1, p.parameter, 30);
  Put(line, 31, p.tab_name, names);
  Put(line, 31 + names, p.field_name, names);
  Put(line, after, p.exid, 1);
  PutInt(line, after + 1, 0);             // POSITION
  PutInt(line, after + 5, 0);             // OFFSET
  PutInt(line, after + 9, p.int_length);  // INTLENGTH
  PutInt(line, after + 13, p.decimals);   // DECIMALS
  Put(line, after + 17, "", 21);          // DEFAULT
  Put(line, after + 38, "", 79);          // PARAMTEXT
  return line;
}

std::string PackFields(const FieldsLine& f, bool long_layout) {
  std::string line(long_layout ? 80 : 40, '\0');
  const size_t names = long_layout ? 30 : 10;
  Put(line, 0, f.tab_name, names);
  Put(line, names, f.field_name, names);
  PutInt(line, 2 * names, f.position);
  PutInt(line, 2 * names + 4, f.offset);
  PutInt(line, 2 * names + 8, f.int_length);
  PutInt(line, 2 * names + 12, f.decimals);
  Put(line, 2 * names + 16, f.exid, 1);
  return line;
}

fake_rfc::ReceiveScript FillTable(const std::string& table, std::vector<std::string> lines) {
  return [table, lines](RfcParameterEntry*, RfcTableEntry* tables, char**) {
    fake_rfc::State& state = Fake();
    for (RfcTableEntry* entry = tables; entry != nullptr && entry->name != nullptr; ++entry) {
      if (std::string(static_cast<const char*>(entry->name), entry->name_length) != table) continue;
      if (entry->handle == nullptr) entry->handle = state.NewTable(table, entry->line_length);
      for (const std::string& line : lines) state.AppendLine(entry->handle, line);
    }
    return 0;
  };
}

void Answer(const Dictionary& dictionary) {
  fake_rfc::State& state = Fake();
  std::vector<std::string> params;
  for (const ParamsLine& line : dictionary.params) {
    params.push_back(PackParams(line, dictionary.long_layout));
  }
  state.receive_by_function["RFC_GET_FUNCTION_INTERFACE"] = FillTable("PARAMS", params);
  const bool long_layout = dictionary.long_layout;
  const auto structures = dictionary.structures;
  state.receive_by_function["RFC_GET_STRUCTURE_DEFINITION"] =
      [structures, long_layout](RfcParameterEntry* exports, RfcTableEntry* tables,
                                char** exception) -> int {
        // The structure asked for is the TABNAME import of the last call.
        fake_rfc::State& fake = Fake();
        const std::string name = ImportText(fake.calls.back(), "TABNAME");
        for (const auto& structure : structures) {
          if (structure.first != name) continue;
          std::vector<std::string> lines;
          for (const FieldsLine& field : structure.second) {
            lines.push_back(PackFields(field, long_layout));
          }
          return FillTable("FIELDS", lines)(exports, tables, exception);
        }
        static char not_active[] = "TABLE_NOT_ACTIVE";
        *exception = not_active;
        return RFC_EXCEPTION;
      };
}

std::string ImportText(const fake_rfc::Call& call, const std::string& name) {
  for (const fake_rfc::Param& param : call.imports) {
    if (param.name != name) continue;
    std::string text = param.bytes;
    while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.pop_back();
    return text;
  }
  return "<missing>";
}

}  // namespace rfc_function_test
