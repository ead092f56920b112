#pragma once
// The fixture of the class-library tests that run against the fake RFC
// library: loads it once per process, resets its state and the planned
// allocation failures around every test, and builds the dictionary answers
// (PARAMS and FIELDS lines) that the fake hands back.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "rfc/binding/rfc_library_api.h"
#include "tests/rfc/function/fake_rfc_library.h"

namespace rfc_function_test {

// The fake's state; the library is loaded on first use.
fake_rfc::State& Fake();

class FakeLibraryTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  fake_rfc::State& fake() { return Fake(); }
};

// One line of RFC_GET_FUNCTION_INTERFACE's PARAMS table.
struct ParamsLine {
  std::string param_class;  // "I", "E", "T", "X"
  std::string parameter;
  std::string tab_name;
  std::string field_name;
  std::string exid;
  int32_t int_length = 0;
  int32_t decimals = 0;
};

// One line of RFC_GET_STRUCTURE_DEFINITION's FIELDS table.
struct FieldsLine {
  std::string tab_name;
  std::string field_name;
  int32_t position = 0;  // from 1
  int32_t offset = 0;
  int32_t int_length = 0;
  int32_t decimals = 0;
  std::string exid;
};

// The line's bytes in the long (208/80 bytes) or short (168/40) layout.
std::string PackParams(const ParamsLine& line, bool long_layout);
std::string PackFields(const FieldsLine& line, bool long_layout);

// A receive that appends `lines` to the table entry named `table` (creating
// the table as the library would when the entry has none) and returns 0.
fake_rfc::ReceiveScript FillTable(const std::string& table, std::vector<std::string> lines);

// Scripts the fake to answer RFC_GET_FUNCTION_INTERFACE with `params` and
// RFC_GET_STRUCTURE_DEFINITION for any structure from `structures`.
struct Dictionary {
  std::vector<ParamsLine> params;
  // structure name -> its fields
  std::vector<std::pair<std::string, std::vector<FieldsLine>>> structures;
  bool long_layout = true;
};
void Answer(const Dictionary& dictionary);

// The text value of an import the fake received in call `call` under `name`
// (trailing blanks removed), or "<missing>".
std::string ImportText(const fake_rfc::Call& call, const std::string& name);

}  // namespace rfc_function_test
