#pragma once
// Server functions and small helpers shared by the server framework's tests.

#include <algorithm>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_table_param.h"
#include "rfc/server/rfc_server_func.h"
#include "tests/support/polling.h"

namespace server_test {

// The explanation the base clone writes to the trace.
inline constexpr const char* kCloneExplanation =
    "\n\nYou have to implement this clone function CRfcServerFunc::clone() \n \tin the derived "
    "class of CRfcServerFunc. \n     Suppose the derived class is Derived (: public "
    "CRfcServerFunc), \n \tthe clone function can then be defined in the following: \n     "
    "CRfcServerFunc * Dervied::clone() {return new Derived(*this);}.  \n \tBut it requires "
    "implementation of a copy constructor. \n     Derived::Derived(Derived & ).  \n \tTherefore, "
    "in the derived class of CRfc ServerFunc, \n \tthe copy constructor must be implemented. \n "
    "\tPlease see the multithreading server documentation and/or sample\n\n";

// A server function with an import, an export and a table that counts its
// calls. It does not implement clone.
class EchoFunc : public CRfcServerFunc {
 public:
  explicit EchoFunc(const char* name, const char* docu = nullptr) : CRfcServerFunc(name), docu_(docu) {
    AddImport(&in_);
    AddExport(&out_);
    AddTable(&lines_);
  }

  int Process() override {
    ++processed;
    if (throw_text != nullptr) throw throw_text;
    if (!throw_string.empty()) throw throw_string;
    out_.Value() = processed;
    out_.SetActive(1);
    return 0;
  }
  const char* GetDocu() override {
    return docu_ != nullptr ? docu_ : CRfcServerFunc::GetDocu();
  }

  int processed = 0;
  const char* throw_text = nullptr;
  std::string throw_string;

 private:
  const char* docu_;
  CRfcSimpleParam in_{"IN_VALUE", TYPE_CHAR, 10, 0, 0};
  CRfcSimpleParam out_{"OUT_VALUE", TYPE_INT, 4, 0, 0};
  CRfcTableParam lines_{"LINES", 10, 0, 0, nullptr, ""};
};

using testutil::CountOf;
inline int CountOf(const std::vector<std::string>& items, const std::string& item) {
  return static_cast<int>(std::count(items.begin(), items.end(), item));
}

// kCloneExplanation as a trace file holds it: every line feed ends in CR LF.
inline std::string CloneExplanationInTrace() { return std::regex_replace(kCloneExplanation, std::regex("\n"), "\r\n"); }

// True when `lines` hold `run` as consecutive lines.
inline bool Contains(const std::vector<std::string>& lines, const std::vector<std::string>& wanted) {
  return std::search(lines.begin(), lines.end(), wanted.begin(), wanted.end()) != lines.end();
}

}  // namespace server_test
