#include "access/text_table.h"

CTextTable::~CTextTable() = default;

int32_t CTextTable::AddColumn(const std::string& name) {
  if (column_index_.count(name) != 0) return -1;
  const int32_t position = column_count_;
  column_index_.emplace(name, position);
  ++column_count_;
  return position;
}

int CTextTable::SetColumnInfo(int32_t position, CColumnInfo* info) {
  if (position < 0 || position >= column_count_) return 0;
  const auto index = static_cast<size_t>(position);
  if (index >= column_infos_.size()) column_infos_.resize(index + 1, nullptr);
  column_infos_[index] = info;
  return 1;
}

CColumnInfo* CTextTable::GetColumnInfo(int32_t position) const {
  if (position < 0 || static_cast<size_t>(position) >= column_infos_.size()) return nullptr;
  return column_infos_[static_cast<size_t>(position)];
}

int32_t CTextTable::GetColumnIndex(const std::string& name) const {
  const auto found = column_index_.find(name);
  return found == column_index_.end() ? -1 : found->second;
}

int CTextTable::SetCell(int32_t position, int32_t row, const std::string& text) {
  if (position < 0 || position >= column_count_ || row < 0) return 0;
  const auto row_index = static_cast<size_t>(row);
  if (row_index >= rows_.size()) rows_.resize(row_index + 1);
  std::optional<Row>& target = rows_[row_index];
  if (!target) target.emplace();
  const auto cell_index = static_cast<size_t>(position);
  if (cell_index >= target->size()) target->resize(cell_index + 1);
  (*target)[cell_index] = text;
  return 1;
}

int CTextTable::GetCell(int32_t position, int32_t row, std::string& text) const {
  text.clear();
  if (position < 0 || position >= column_count_ || row < 0) return 0;
  const auto row_index = static_cast<size_t>(row);
  if (row_index >= rows_.size() || !rows_[row_index]) return 0;
  const Row& cells = *rows_[row_index];
  const auto cell_index = static_cast<size_t>(position);
  if (cell_index >= cells.size() || !cells[cell_index]) return 0;
  text = *cells[cell_index];
  return 1;
}

int CTextTable::GetCell(const std::string& name, int32_t row, std::string& text) const {
  return GetCell(GetColumnIndex(name), row, text);
}
