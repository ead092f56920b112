// The failures of the class library and its trace: the header line, the
// trace directory's rules, and one transcript of every failure path with what
// it throws, what it leaves and what it traces, compared whole with
// tests/rfc/expected/failures.txt.

#include "rfc/core/rfc_allocation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "rfc/core/rfc_data.h"
#include "rfc/core/rfc_error.h"
#include "rfc/core/rfc_list.h"
#include "rfc/core/rfc_string.h"
#include "tests/rfc/rfc_test_support.h"
#include "tests/support/expected_file.h"

namespace {

using rfc_test::Step;
using rfc_test::TraceFileOf;

// WriteHeader: three empty lines and the local time of the write.
TEST(RfcTrace, HeaderHasTheLocalTimeOfTheWrite) {
  const std::string before = CRfcTrace::HeaderLine(platform::LocalNow());
  auto run = rfc_test::RunTraced([] { GetRfcTrace().WriteHeader(); });
  const std::string after = CRfcTrace::HeaderLine(platform::LocalNow());
  EXPECT_THAT(run.lines, ::testing::ElementsAre("", "", "", ::testing::AnyOf(before, after)));
}

TEST(RfcTrace, DirectoryRules) {
  testutil::TempDir dir;
  const std::filesystem::path saved_cwd = std::filesystem::current_path();
  const std::string saved_directory = GetRfcTrace().GetDirectory();
  std::filesystem::current_path(dir.path());
  CRfcTrace& trace = GetRfcTrace();
  {
    // A new instance reads the current directory and is counted.
    const int before = CRfcTrace::InstanceCount();
    CRfcTrace local;
    EXPECT_EQ(CRfcTrace::InstanceCount(), before + 1);
    EXPECT_EQ(std::filesystem::path(local.GetDirectory()), std::filesystem::canonical(dir.path()));
    EXPECT_EQ(local.IsTraceOn(), 0);
  }
  // A directory of 255 characters does not fit its buffer and reads as
  // empty: the files go under their bare name into the current directory.
  trace.SetDirectory(std::string(254, 'd'));
  EXPECT_EQ(trace.GetDirectory(), std::string(254, 'd'));
  trace.SetDirectory(std::string(255, 'd'));
  EXPECT_EQ(trace.GetDirectory(), "");
  trace.SetTraceOn(1);
  uint32_t id = 0;
  std::thread([&] {
    id = platform::CurrentThreadId();
    trace.WriteLine("here");
  }).join();
  EXPECT_EQ(testutil::ReadBytes(TraceFileOf(dir.path(), id)), "here\r\n");

  // A file that cannot be opened drops its thread's lines for good.
  trace.SetDirectory(dir.path() + "/missing");
  std::thread([&] {
    id = platform::CurrentThreadId();
    trace.WriteLine("lost");
    trace.SetDirectory(dir.path());  // too late for this thread's file
    trace.WriteLine("also lost");
  }).join();
  trace.SetTraceOn(0);
  trace.SetDirectory(saved_directory);
  std::filesystem::current_path(saved_cwd);
  EXPECT_FALSE(std::filesystem::exists(TraceFileOf(dir.path() + "/missing", id)));
  EXPECT_FALSE(std::filesystem::exists(TraceFileOf(dir.path(), id)));
}

int g_items[32];  // the list stores pointers only; the entries are these

template <typename T>
void ReadAs(CRfcData& data) {
  static_cast<void>(static_cast<T>(data));
}

TEST(RfcFailure, TranscriptOfEveryFailure) {
  std::vector<Step> steps;
  // The allocation plan: the first allocations pass, the next ones fail, then
  // all pass again, value-initialised; clearing drops what is planned.
  steps.push_back({"allocations: 2 pass, 2 fail; cleared; a plan of none", [] {}, [] {
                     std::string seen;
                     rfc::testing::FailAllocations(2, 2);
                     for (int i = 0; i < 4; ++i) {
                       seen += (i % 2 == 0 ? rfc::RfcAllocateArray<char>(4) != nullptr : rfc::RfcAllocate<int>(5) != nullptr)
                                   ? "+" : "-" + std::to_string(rfc::testing::PendingAllocationFaults());
                     }
                     const auto recovered = rfc::RfcAllocateArray<int>(3);
                     seen += " " + std::to_string(recovered[0] + recovered[1] + recovered[2]);
                     rfc::testing::FailNextAllocation();
                     rfc::testing::ClearAllocationFaults();
                     seen += rfc::RfcAllocate<int>(1) != nullptr ? " +" : " -";
                     rfc::testing::FailAllocations(0, 0);
                     return seen + (rfc::RfcAllocate<int>(1) != nullptr ? "+" : "-");
                   }});
  // The header line's form; the year left-aligned in four places.
  steps.push_back({"header lines", [] {}, [] {
                     return CRfcTrace::HeaderLine({2003, 5, 7, 14, 3, 9}) + "|" + CRfcTrace::HeaderLine({999, 1, 2, 3, 4, 5});
                   }});
  // The trace: nothing while off, not even the thread's record; lines in CR
  // LF, appended to a file already there and flushed at once.
  steps.push_back({"trace off: header, line, blank lines, error, an allocation failing",
                   [] {
                     GetRfcTrace().SetTraceOn(0);
                     rfc::testing::FailNextAllocation();
                     GetRfcTrace().WriteHeader();
                     GetRfcTrace().WriteLine("one");
                     GetRfcTrace().WriteBlankLines(5);
                     GetRfcTrace().WriteError(RFC_ERROR_INFO{});
                   },
                   [] {
                     const int pending = rfc::testing::PendingAllocationFaults();
                     rfc::testing::ClearAllocationFaults();
                     return "allocation failures pending " + std::to_string(pending);
                   }});
  steps.push_back({"a file there already; the thread's record failing", [] {
                     std::ofstream(rfc_test::TraceFileOf(GetRfcTrace().GetDirectory(), platform::CurrentThreadId()),
                                   std::ios::binary) << "earlier\r\n";
                     rfc::testing::FailNextAllocation();
                     GetRfcTrace().WriteLine("not written");
                   }});
  steps.push_back({"lines: first, null, 0, -3 and 2 blank ones, two\\nparts", [] {
                     GetRfcTrace().WriteLine("first");
                     GetRfcTrace().WriteLine(nullptr);
                     GetRfcTrace().WriteBlankLines(0);
                     GetRfcTrace().WriteBlankLines(-3);
                     GetRfcTrace().WriteBlankLines(2);
                     GetRfcTrace().WriteLine("two\nparts");
                   }});
  steps.push_back({"trace on as -7", [] { GetRfcTrace().SetTraceOn(-7); },
                   [] {
                     GetRfcTrace().WriteLine("on");
                     return "IsTraceOn " + std::to_string(GetRfcTrace().IsTraceOn() != 0);
                   }});
  // Conversions: the small integer readings trace every call, the others
  // only their failures; a failed packed reading traces BCD2Str's line and
  // the operation's entry in the wording of the assignment direction.
  unsigned char small_byte = 3, packed_bytes[3] = {0x00, 0x00, 0x2C}, bad_bytes[2] = {0x0A, 0x1C}, short_bytes[2] = {};
  unsigned char text_bytes[5] = {}, unsized_byte = 0, good_bytes[2] = {0x01, 0x2C};
  CRfcData small(1), packed(1), bad(1), target(1), text(1), unsized(1), good(1);
  small.Init(&small_byte, TYPE_INT1, 1, 0);
  packed.Init(packed_bytes, TYPE_BCD, 3, 2);
  bad.Init(bad_bytes, TYPE_BCD, 2, 0);
  target.Init(short_bytes, TYPE_BCD, 2, 0);
  unsized.Init(&unsized_byte, TYPE_CHAR, -1, 0);  // without a length even "" is too long
  good.Init(good_bytes, TYPE_BCD, 2, 0);
  const std::pair<const char*, void (*)(CRfcData&)> readings[] = {
      {"RFC_INT1", ReadAs<RFC_INT1>}, {"RFC_INT2", ReadAs<RFC_INT2>}, {"RFC_INT", ReadAs<RFC_INT>},
      {"RFC_FLOAT", ReadAs<RFC_FLOAT>}, {"CSTR", ReadAs<CSTR>}};
  for (const auto& [value, name] : {std::pair{&small, "INT1 03"}, {&packed, "BCD/2 00 00 2C"}, {&bad, "BCD 0A 1C"}}) {
    for (const auto& [reading, read] : readings) {
      steps.push_back({std::string(reading) + " of " + name, [&, value, read] { read(*value); }});
    }
  }
  steps.push_back({"BCD/2 = \"1.5\", = 2", [&] {
                     packed = "1.5";
                     packed = 2;
                   }});
  steps.push_back({"BCD/2 = 12345", [&] { target = 12345; }});
  steps.push_back({"BCD/2 = \"1x\"", [&] { target = "1x"; }});
  steps.push_back({"BCD/2 = \"1x\", trace off", [&] {
                     GetRfcTrace().SetTraceOn(0);
                     target = "1x";
                   }});
  for (int type : {TYPE_NUM, TYPE_CHAR}) {
    steps.push_back({std::string(type == TYPE_NUM ? "NUM" : "CHAR") + " \"00777\" = \"123456\"",
                     [&, type] {
                       std::memcpy(text_bytes, "00777", 5);
                       text.Init(text_bytes, type, 5, 0);
                       text = "123456";
                     },
                     [&] { return std::string(text_bytes, text_bytes + 5); }});
  }
  steps.push_back({"CHAR without length = \"\"", [&] { unsized = ""; }});
  steps.push_back({"CSTR of 01 2C, allocation failing", [&] {
                     rfc::testing::FailNextAllocation();
                     static_cast<void>(static_cast<CSTR>(good));
                   },
                   [&] { return std::string(static_cast<CSTR>(good)) + " read again"; }});

  // Every string allocation reports as InitBuffer's; the string is usable
  // after a new assignment.
  const std::pair<const char*, void (*)(CRfcString&, const CRfcString&)> string_cases[] = {
      {"construction", [](CRfcString& s, const CRfcString&) { s = CRfcString("abc"); }},
      {"construction with capacity", [](CRfcString& s, const CRfcString&) { s = CRfcString("abc", 30); }},
      {"copy", [](CRfcString& s, const CRfcString&) { CRfcString copy(s); }},
      {"Mid", [](CRfcString& s, const CRfcString& other) { other.Mid(s, 1, 2); }},
      {"assignment", [](CRfcString& s, const CRfcString& other) { s = other; }},
      {"text assignment", [](CRfcString& s, const CRfcString&) { s = "xyz"; }},
      {"append", [](CRfcString& s, const CRfcString&) { s += "xyz"; }},
      {"InitBuffer", [](CRfcString& s, const CRfcString&) { s.InitBuffer(10); }},
  };
  std::vector<CRfcString> strings(std::size(string_cases), CRfcString("keep"));
  const CRfcString other("other");
  for (size_t i = 0; i < std::size(string_cases); ++i) {
    steps.push_back({std::string("string ") + string_cases[i].first + ", allocation failing",
                     [&, i] {
                       rfc::testing::FailNextAllocation();
                       string_cases[i].second(strings[i], other);
                     },
                     [&, i] {
                       const std::string after = rfc_test::Show(strings[i]);
                       strings[i] = "again";
                       return after + ", then " + rfc_test::Show(strings[i]);
                     }});
  }

  // A list's failed growth keeps the storage and its entries, and it grows
  // afterwards.
  const std::pair<const char*, void (*)(CRfcList<int>&)> list_cases[] = {
      {"Add", [](CRfcList<int>& list) { list.Add(&g_items[10]); }},
      {"SetAtGrow", [](CRfcList<int>& list) { list.SetAtGrow(15, &g_items[15]); }},
      {"InitList", [](CRfcList<int>& list) { list.InitList(30); }},
  };
  std::array<CRfcList<int>, std::size(list_cases)> lists;
  for (size_t i = 0; i < lists.size(); ++i) {
    for (int item = 0; item < 10; ++item) lists[i].Add(&g_items[item]);
    steps.push_back({std::string("list of 10, ") + list_cases[i].first + ", allocation failing",
                     [&, i] {
                       rfc::testing::FailNextAllocation();
                       list_cases[i].second(lists[i]);
                     },
                     [&, i] {
                       const std::string after = rfc_test::Show(lists[i], g_items);
                       lists[i].Add(&g_items[10]);
                       return after + ", then " + rfc_test::Show(lists[i], g_items);
                     }});
  }

  // The library's error record, raised by value and traced on request, and
  // a failure of the class library's own.
  rfc_test::Fake().SetLastError("STUB_KEY_WITH_24_CHARSXY", "stub status", "stub message");
  steps.push_back({"library error, traced", [] { ThrowRfcLastError(true); }});
  steps.push_back({"library error, untraced", [] { ThrowRfcLastError(false); }});
  steps.push_back({"library error, traced, trace off", [] {
                     GetRfcTrace().SetTraceOn(0);
                     ThrowRfcLastError(true);
                   }});
  steps.push_back({"own failure", [] { ThrowRfcFailure("CSomething::Operation called", {"first", "second"}, "Thrown text"); }});

  // WriteError cuts key and status, and never reads past a field.
  RFC_ERROR_INFO full{"", "", "", "never written"};
  std::memset(full.key, 'k', sizeof full.key);  // no terminator
  std::memset(full.status, 's', sizeof full.status);
  steps.push_back({"WriteError of 23/2/3, 24/11/9, 2/0/0, 0/1/1 characters and of full fields",
                   [&] {
                     GetRfcTrace().WriteError({"ABCDEFGHIJKLMNOPQRSTUVW", "ST", "MSG", "never written"});
                     GetRfcTrace().WriteError({"ABCDEFGHIJKLMNOPQRSTUVWX", "status text", "a message", "never written"});
                     GetRfcTrace().WriteError({"AB", "", "", "never written"});
                     GetRfcTrace().WriteError({"", "S", "M", "never written"});
                     GetRfcTrace().WriteError(full);
                   },
                   [] {
                     return CRfcTrace::ErrorLine("Message:", "abc", 2) + "|" + CRfcTrace::ErrorLine("Key:    ", nullptr, 4) +
                            "|" + CRfcTrace::ErrorLine("", "ab", 4);
                   }});
  EXPECT_TRUE(testutil::MatchesExpectedFile(rfc_test::Transcript(steps), "tests/rfc/expected/failures.txt"));
}

}  // namespace
