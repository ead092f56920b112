#include "access/sap_table.h"

#include <algorithm>
#include <limits>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_data.h"
#include "rfc/function/rfc_table_param.h"

namespace {

constexpr char kDifferentColumnCounts[] = "Different number of cols in rows found!";
// Positions are kept as 16-bit numbers; a column beyond that has no name.
constexpr int kLastPosition = std::numeric_limits<uint16_t>::max();

}  // namespace

CSapColumn::CSapColumn(const CRfcFieldInfo& info) : info_(info) {
  // A record from outside may fill its name field to the end.
  info_.name[sizeof info_.name - 1] = '\0';
}

CSapColumn::CSapColumn(const std::string& name, int32_t column, int32_t offset, int32_t type,
                       int32_t length, int32_t decimals)
    : info_{} {
  SetFieldName(info_, name.c_str());
  info_.column = column;
  info_.offset = offset;
  info_.type = type;
  info_.length = length;
  info_.decimals = decimals;
}

CSapColumn::~CSapColumn() = default;

CSapIndexHolder::~CSapIndexHolder() = default;

CSapTable::CSapTable(CRfcTableParam* table) {
  if (table == nullptr) return;
  name_ = table->GetName() != nullptr ? table->GetName() : "";
  const TableHandle handle = table->GetTableHandle();
  row_count_ = handle != nullptr ? ItFill(handle) : 0;

  int64_t total_length = 0;
  rows_.reserve(row_count_);
  for (uint32_t line = 0; line < row_count_; ++line) {
    // A line the library cannot give is null, which GetData refuses with the
    // class library's own text.
    void* work_area = ItGetLine(handle, line + 1);

    const int32_t fields = table->GetFieldCount();
    if (column_count_ == 0) {
      column_count_ = fields;
    } else if (fields != column_count_) {
      throw std::string(kDifferentColumnCounts);
    }

    Row row(static_cast<size_t>(std::max(fields, 0)));
    for (int32_t c = 0; c < fields; ++c) {
      const CRfcFieldInfo* info = table->GetFieldInfo(c);
      // A column the description leaves out has no descriptor and no text.
      if (info == nullptr) continue;
      if (line == 0 && c <= kLastPosition) {
        const auto position = static_cast<uint16_t>(c);
        columns_[position] = std::make_unique<CSapColumn>(*info);
        column_index_[columns_[position]->GetName()] = std::make_unique<CSapIndexHolder>(position);
        total_length += info->length;
      }
      CRfcData& value = table->GetData(work_area, c);
      const char* text = static_cast<CSTR>(value);
      row[static_cast<size_t>(c)] = text != nullptr ? text : "";
    }
    rows_.push_back(std::move(row));
  }
  total_length_ = static_cast<int32_t>(
      std::clamp<int64_t>(total_length, std::numeric_limits<int32_t>::min(),
                          std::numeric_limits<int32_t>::max()));
  // The last line built stays current, as a reader that forgets SetRow sees it.
  current_row_ = static_cast<int64_t>(rows_.size()) - 1;
}

CSapTable::~CSapTable() = default;

const CSapColumn* CSapTable::GetColumn(int32_t position) const {
  if (position < 0 || position > kLastPosition) return nullptr;
  const auto found = columns_.find(static_cast<uint16_t>(position));
  return found == columns_.end() ? nullptr : found->second.get();
}

const char* CSapTable::GetColumnName(int32_t position) const {
  const CSapColumn* column = GetColumn(position);
  return column != nullptr ? column->GetName() : nullptr;
}

int CSapTable::SetRow(int32_t row) {
  current_row_ = -1;
  if (row < 0 || static_cast<size_t>(row) >= rows_.size()) return 0;
  current_row_ = row;
  return 1;
}

std::string CSapTable::GetValue(int32_t position) const {
  if (current_row_ < 0 || position < 0) return std::string();
  const Row& row = rows_[static_cast<size_t>(current_row_)];
  if (static_cast<size_t>(position) >= row.size()) return std::string();
  return row[static_cast<size_t>(position)];
}

std::string CSapTable::GetValue(const std::string& name) const {
  const auto found = column_index_.find(name);
  if (found == column_index_.end()) return std::string();
  return GetValue(static_cast<int32_t>(found->second->GetIndex()));
}
