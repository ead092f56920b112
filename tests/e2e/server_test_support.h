#pragma once
// What the server framework's tests on the stand-in library share: a server
// function, and steps written into a transcript that is compared whole.

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_table_param.h"
#include "rfc/server/rfc_server_func.h"
#include "tests/rfc/rfc_test_support.h"
#include "tests/support/expected_file.h"

namespace server_test {

using testutil::Join;

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

class TranscriptTest : public ::testing::Test {
 protected:
  static stand_in::State& script() { return rfc_test::Fake(); }

  // Runs `step` traced (on a thread of its own) with standard output captured;
  // the transcript gets what it answered, printed and traced, and the library
  // entries it called.
  void Step(const std::string& title, const std::function<std::string()>& step) {
    script().log.clear();
    std::string answer;
    testing::internal::CaptureStdout();
    const rfc_test::TracedRun run = rfc_test::RunTraced([&] { answer = step(); });
    transcript_ += "## " + title + "\n-> " + answer + (run.threw_text ? " threw: " + run.thrown : "");
    transcript_ += "\nout: " + testing::internal::GetCapturedStdout() + "\ntrace:\n" + run.content;
    transcript_ += "\ncalls:";
    for (const stand_in::Record& call : script().log) transcript_ += " " + call.entry + "(" + std::to_string(call.handle) + ")";
    transcript_ += "\n";
  }
  // The transcript, its trace times as a placeholder, against `expected`.
  ::testing::AssertionResult TranscriptMatches(const std::string& expected) const {
    return testutil::MatchesExpectedFile(rfc_test::WithTraceTime(transcript_), expected);
  }

  std::string transcript_;
};

}  // namespace server_test
