#include "app/batch_server_func.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <deque>
#include <unordered_set>

#include "access/sap_table.h"
#include "app/batch_server_app.h"
#include "platform/clock.h"
#include "platform/critical_section.h"
#include "platform/process.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_data.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_table_param.h"

namespace {

// The dictionary numbers columns from 1. A column outside 1..n would index
// the descriptor array out of its bounds, and a column given twice would
// leave a hole in the line layout, so such a structure is refused as a whole
// before anything is changed.
void CheckColumns(const std::string& structure_name, const CBatchServerFunc::DdColumns& columns,
                  int count) {
  std::vector<bool> taken(static_cast<size_t>(count) + 1, false);
  for (const auto& entry : columns) {
    if (!entry.second) continue;
    const int column = entry.second->GetColumn();
    const std::string field = entry.second->GetName();
    if (column < 1 || column > count) {
      throw "Structure " + structure_name + ": column " + std::to_string(column) + " of field " +
          field + " is outside 1.." + std::to_string(count);
    }
    if (taken[static_cast<size_t>(column)]) {
      throw "Structure " + structure_name + ": column " + std::to_string(column) + " of field " +
          field + " is given twice";
    }
    taken[static_cast<size_t>(column)] = true;
  }
}

}  // namespace

CBatchServerFunc::CBatchServerFunc(CBatchServerApp* app, const std::string& function_name,
                                   const std::string& structure_name, DdColumns& columns,
                                   ReceiveHandler handler)
    : CRfcServerFunc(function_name.c_str()),
      app_(app),
      function_name_(function_name),
      structure_name_(structure_name),
      handler_(handler) {
  int count = 0;
  for (const auto& entry : columns) {
    if (entry.second) ++count;
  }
  CheckColumns(structure_name, columns, count);

  // n records by column and two zero records after them.
  field_infos_.assign(static_cast<size_t>(count) + 2, CRfcFieldInfo{});
  for (auto& entry : columns) {
    CSapColumn* column = entry.second.get();
    if (column == nullptr) continue;
    row_width_ += column->GetLength();
    column->SetColumn(column->GetColumn() - 1);
    CRfcFieldInfo& record = field_infos_[static_cast<size_t>(column->GetColumn())];
    SetFieldName(record, column->GetName());
    record.column = column->GetColumn();
    record.offset = column->GetOffset();
    record.type = column->GetType();
    record.length = column->GetLength();
    record.decimals = column->GetDecimals();
  }

  return_code_param_ = std::make_unique<CRfcSimpleParam>("BATCH_RC", TYPE_INT, 4, 0, 0);
  AddExport(return_code_param_.get());

  // AddFieldInfo lays the fields out with the library's alignment, rewrites
  // the offsets in the array and sets the line length it needs.
  table_param_ = std::make_unique<CRfcTableParam>("BATCH_TABLE", row_width_, 0, 0, nullptr, "");
  table_param_->AddFieldInfo(field_infos_.data(), count);
  AddTable(table_param_.get());
}

CBatchServerFunc::~CBatchServerFunc() = default;

int CBatchServerFunc::Process() {
  batch_id_ = MakeBatchId();
  if (handler_ != nullptr) handler_(this);
  return_code_param_->Value() = 1;
  return_code_param_->SetActive(1);
  if (app_ != nullptr) app_->MarkActivity();
  return 0;
}

int CBatchServerFunc::ReturnCall() {
  const int rc = CRfcServerFunc::ReturnCall();
  // The RFC library keeps the received lines until the next call replaces
  // them, and the C library keeps what is freed for reuse: after one very
  // large batch an idle server would hold it all. Smaller batches keep their
  // memory for the next one.
  const TableHandle handle = table_param_->GetTableHandle();
  if (handle == nullptr) return rc;
  const uint64_t line = static_cast<uint64_t>(std::max(table_param_->GetLineLength(), 0));
  const uint64_t bytes = uint64_t{ItFill(handle)} * line;
  if (bytes <= kReleaseAbove) return rc;
  table_param_->Clear();
  platform::ReleaseFreeMemory();
  return rc;
}

std::string CBatchServerFunc::FormatBatchId(int64_t seconds, uint32_t milliseconds) {
  char text[48];
  std::snprintf(text, sizeof text, "%012" PRId64 "%03" PRIu32, seconds, milliseconds);
  return text;
}

std::string CBatchServerFunc::MakeBatchId() {
  // The id names the batch's file, so an id this process gave out lately is
  // not used again: the clock is read again once it has moved on. Two batches
  // within one millisecond would repeat an id, and so would a reading taken
  // just across a second boundary (the seconds of one second, the
  // milliseconds of the next). Each id is still two readings, one after the
  // other, used as they come.
  static platform::CriticalSection section;
  static std::deque<std::string> recent;            // oldest first
  static std::unordered_set<std::string> recent_set;
  constexpr size_t kRemembered = 4096;               // at least two seconds of ids
  platform::CriticalSectionLock lock(section);
  for (;;) {
    const int64_t seconds = platform::CalendarSeconds();
    const uint32_t milliseconds = platform::CalendarMilliseconds();
    std::string id = FormatBatchId(seconds, milliseconds);
    if (recent_set.insert(id).second) {
      recent.push_back(id);
      if (recent.size() > kRemembered) {
        recent_set.erase(recent.front());
        recent.pop_front();
      }
      return id;
    }
    platform::Sleep(0);
  }
}
