// File errors of the daily log and of the XML documents, injected while the
// worker serves real batches: an XML file error loses only the file (the
// batch is logged and answered); a log error ends the cycle without an
// answer, its message names the cause, and the next cycle serves again.

#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "app/globals.h"
#include "platform/file.h"
#include "tests/faults/worker_fixture.h"
#include "tests/support/temp_dir.h"

namespace faults {
namespace {

using platform::testing::FileFault;
using platform::testing::FileOp;

struct Fault {
  const char* name;
  FileFault fault;
  int cause;  // as the log's file-error message numbers it
};

constexpr Fault kFaults[] = {
    {"disk full", FileFault::kDiskFull, 13},
    {"access denied", FileFault::kAccessDenied, 5},
    {"sharing violation", FileFault::kSharingViolation, 11},
    {"I/O error", FileFault::kIoError, 10},
};

enum class Target { kLog, kXml };

struct Where {
  Target target;
  FileOp op;
};

std::string Name(const ::testing::TestParamInfo<Where>& info) {
  return std::string(info.param.target == Target::kLog ? "Log" : "Xml") +
         (info.param.op == FileOp::kOpen ? "Open" : "Write");
}

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

int FileCount(const std::string& directory) {
  int count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory)) ++count;
  return count;
}

void PrintTo(const Where& where, std::ostream* out) {
  *out << (where.target == Target::kLog ? "log " : "XML ") << (where.op == FileOp::kOpen ? "open" : "write");
}

class FileFaultTest : public WorkerFixture, public ::testing::WithParamInterface<Where> {
 protected:
  void TearDown() override {
    platform::testing::ClearFileFaults();
    WorkerFixture::TearDown();
  }

  std::string LogPath() const {
    for (const auto& entry : std::filesystem::directory_iterator(logs_)) return entry.path().string();
    return std::string();
  }

  // A batch after the fault is taken whole: answered with 1, logged, written.
  void ExpectServedNormally(const std::string& tag) {
    const size_t received = ReceivedIds().size();
    const sapsim::testing::RunResult call = Call(2, tag);
    EXPECT_EQ(call.out, "BATCH_RC=1\n") << call.err;
    const std::vector<std::string> ids = ReceivedIds();
    ASSERT_EQ(ids.size(), received + 1);
    const std::string xml = testutil::ReadBytes(XmlPath(ids.back()));
    EXPECT_NE(xml.find("<H_IDENT>" + tag + "1</H_IDENT>"), std::string::npos) << xml;
    EXPECT_TRUE(EndsWith(xml, "\n</BATCH>")) << xml;
  }
};

TEST_P(FileFaultTest, EveryFaultCostsAtMostItsBatchAndTheNextBatchIsServed) {
  const Where where = GetParam();
  StartSapsim();
  StartWorker();
  ASSERT_TRUE(WaitForServing()) << LogText();

  for (const Fault& fault : kFaults) {
    SCOPED_TRACE(fault.name);
    const size_t cycles = Cycles().size();
    const size_t received = ReceivedIds().size();
    const int xml_files = FileCount(xml_);
    platform::testing::InjectFileFault(where.target == Target::kLog ? logs_ : xml_, where.op, fault.fault, 1);
    const sapsim::testing::RunResult call = Call(3, "F");

    if (where.target == Target::kXml) {
      // The save's result is not looked at: the batch is logged and answered.
      EXPECT_EQ(call.exit_code, 0) << call.err;
      EXPECT_EQ(call.out, "BATCH_RC=1\n");
      const std::vector<std::string> ids = ReceivedIds();
      ASSERT_EQ(ids.size(), received + 1);
      // No document and no file of any name: a failed write leaves nothing.
      EXPECT_FALSE(std::filesystem::exists(XmlPath(ids.back())));
      EXPECT_EQ(FileCount(xml_), xml_files);
      EXPECT_EQ(Cycles().size(), cycles);
      EXPECT_EQ(Cycles().back().UnknownEntries(), 0);
    } else {
      // The handler's log error ends the cycle before the answer is sent.
      EXPECT_NE(call.exit_code, 0);
      EXPECT_EQ(call.out.find("BATCH_RC"), std::string::npos) << call.out;
      ASSERT_TRUE(Eventually([&] { return Cycles().size() == cycles + 1 && Cycles().back().Serving(); }))
          << LogText();
      const std::vector<LoggedCycle> logged = Cycles();
      const LoggedCycle& failed = logged[cycles - 1];
      EXPECT_EQ(failed.UnknownEntries(), 1) << failed.body;
      EXPECT_TRUE(EndsWith(failed.body, " - UNKNOWN EXEPTION\n\r\n")) << failed.body;
      EXPECT_EQ(ReceivedIds().size(), received);
      // The document was saved before the entry failed.
      EXPECT_EQ(FileCount(xml_), xml_files + 1);
      EXPECT_EQ(ProcessLog().GetLastError(), "Error in log file for: '" + instance_ + "', file name: '" +
                                                 LogPath() + "', cause: '" + std::to_string(fault.cause) +
                                                 "'");
    }
    ExpectServedNormally(std::string("N") + std::to_string(fault.cause));
  }
  EXPECT_EQ(Cycles().size(), where.target == Target::kLog ? 1 + std::size(kFaults) : 1u);
}

INSTANTIATE_TEST_SUITE_P(LogAndXml, FileFaultTest,
                         ::testing::Values(Where{Target::kLog, FileOp::kOpen}, Where{Target::kLog, FileOp::kWrite},
                                           Where{Target::kXml, FileOp::kOpen}, Where{Target::kXml, FileOp::kWrite}),
                         Name);

}  // namespace
}  // namespace faults
