#pragma once
// CTextTable: a table of text cells addressed by column position (or column
// name) and row number. Rows and cells exist only once they were set; reading
// one that does not exist is not an error, it simply gives no text.
//
// The table knows, per column, a pointer to a column info record: where the
// column's field lies in a line of text. The table does not own those
// records; whoever fills the table (CReadTable) does.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

// Where one field lies in a returned line of text, and what it is.
struct CColumnInfo {
  int32_t offset = 0;  // position of the field in the line, from 0
  int32_t length = 0;  // number of characters
  std::string type;
  std::string text;  // the field's description
};

class CTextTable {
 public:
  CTextTable() = default;
  virtual ~CTextTable();
  CTextTable(const CTextTable&) = delete;
  CTextTable& operator=(const CTextTable&) = delete;

  // The next position for a new name; -1 (and no change) for a name that is
  // already a column.
  int32_t AddColumn(const std::string& name);
  // 1 when `position` is a column (0 .. column count - 1), else 0.
  int SetColumnInfo(int32_t position, CColumnInfo* info);
  // The record stored at `position`, or null.
  CColumnInfo* GetColumnInfo(int32_t position) const;
  // The position of the column, or -1.
  int32_t GetColumnIndex(const std::string& name) const;

  // Stores a copy of `text`, creating the row (and the rows before it, as
  // rows that do not exist) as needed. 0 when `position` is not a column or
  // `row` is negative.
  int SetCell(int32_t position, int32_t row, const std::string& text);
  // 1 with the cell's text when column, row and cell exist; otherwise 0 and
  // an empty `text`.
  int GetCell(int32_t position, int32_t row, std::string& text) const;
  int GetCell(const std::string& name, int32_t row, std::string& text) const;

  int32_t GetRowCount() const { return static_cast<int32_t>(rows_.size()); }
  int32_t GetColumnCount() const { return column_count_; }

 private:
  using Row = std::vector<std::optional<std::string>>;

  std::map<std::string, int32_t> column_index_;
  std::vector<CColumnInfo*> column_infos_;
  std::vector<std::optional<Row>> rows_;
  int32_t column_count_ = 0;
};
