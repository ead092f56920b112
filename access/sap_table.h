#pragma once
// Received table contents as text. CSapTable turns a table parameter of the
// RFC class library into rows of strings, one per column, with a copy of each
// column's field descriptor (CSapColumn) and a name-to-position map
// (CSapIndexHolder). Every field type is converted by the data values' own
// text conversion, so CHAR and NUM fields lose their trailing blanks and the
// types without a text form read as empty texts.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "rfc/function/rfc_field_info.h"

class CRfcTableParam;

// One column (or structure field) descriptor: a copy of a CRfcFieldInfo.
class CSapColumn {
 public:
  explicit CSapColumn(const CRfcFieldInfo& info);
  // The name is cut to 31 characters and loses its trailing blanks.
  CSapColumn(const std::string& name, int32_t column, int32_t offset, int32_t type,
             int32_t length, int32_t decimals);
  virtual ~CSapColumn();
  CSapColumn(const CSapColumn&) = default;
  CSapColumn& operator=(const CSapColumn&) = default;

  // Always NUL-terminated.
  const char* GetName() const { return info_.name; }
  int32_t GetColumn() const { return info_.column; }
  int32_t GetOffset() const { return info_.offset; }
  int32_t GetType() const { return info_.type; }
  int32_t GetLength() const { return info_.length; }
  int32_t GetDecimals() const { return info_.decimals; }
  const CRfcFieldInfo& GetFieldInfo() const { return info_; }

  // The batch function renumbers the dictionary's 1-based positions.
  void SetColumn(int32_t column) { info_.column = column; }
  void SetOffset(int32_t offset) { info_.offset = offset; }

 private:
  CRfcFieldInfo info_;
};

// The position a column name stands for.
class CSapIndexHolder {
 public:
  explicit CSapIndexHolder(uint16_t index) : index_(index) {}
  virtual ~CSapIndexHolder();

  uint16_t GetIndex() const { return index_; }

 private:
  uint16_t index_;
};

class CSapTable {
 public:
  // Reads every line of `table` (null: an empty table without name). Lines
  // with differing field counts throw the std::string "Different number of
  // cols in rows found!"; a failed value conversion passes its class-library
  // text through. Either way nothing of the table survives.
  explicit CSapTable(CRfcTableParam* table);
  virtual ~CSapTable();
  CSapTable(const CSapTable&) = delete;
  CSapTable& operator=(const CSapTable&) = delete;

  // The number of lines the source table reported.
  uint32_t GetRowCount() const { return row_count_; }
  int32_t GetColumnCount() const { return column_count_; }
  // Sum of the column lengths.
  int32_t GetTotalLength() const { return total_length_; }
  // The bytes of all cells' texts together.
  uint64_t GetTextSize() const { return text_.size(); }
  const std::string& GetName() const { return name_; }

  // The column name at `position`, or null when there is no such column.
  const char* GetColumnName(int32_t position) const;
  // The descriptor at `position`, or null.
  const CSapColumn* GetColumn(int32_t position) const;

  // Makes `row` current: 1 when it exists; otherwise 0 and no current row.
  int SetRow(int32_t row);
  // The current row's text; empty without a current row, for a position
  // outside the row or an unknown column name. Names are case-sensitive.
  std::string GetValue(int32_t position) const;
  std::string GetValue(const std::string& name) const;
  // The same text without a copy; valid as long as the table.
  std::string_view GetText(int32_t position) const;

 private:
  // A cell's text in text_, counted from its row's start there.
  struct Cell {
    uint32_t at;
    uint32_t size;
  };
  // Where a row's texts and cells start.
  struct RowStart {
    uint64_t text;
    uint64_t cell;
  };
  // Appends one cell's text to text_.
  void AddCell(uint64_t row_text, const char* text, size_t size);

  // The three blocks of the thread's last table, emptied but with their
  // memory, for the thread's next table: a steady stream of batches then
  // does not have the system find and clear megabytes of fresh memory for
  // each. Kept only up to kKeptBytes together; a larger table's blocks go
  // back to the system with it.
  static constexpr size_t kKeptBytes = size_t{16} << 20;
  struct Blocks {
    std::string text;
    std::vector<RowStart> row_starts;
    std::vector<Cell> cells;
  };
  static Blocks& KeptBlocks();

  std::map<uint16_t, std::unique_ptr<CSapColumn>> columns_;
  std::map<std::string, std::unique_ptr<CSapIndexHolder>> column_index_;
  // Every cell's text back to back, rows in order; a row's texts and cells
  // run from its RowStart to the next row's.
  // Three large blocks instead of a string per cell: a million-row batch
  // costs about its texts' size here, and all of it goes back to the system
  // with the table.
  std::string text_;
  std::vector<RowStart> row_starts_;
  std::vector<Cell> cells_;
  // Index into rows_, -1 for none.
  int64_t current_row_ = -1;
  uint32_t row_count_ = 0;
  int32_t column_count_ = 0;
  int32_t total_length_ = 0;
  std::string name_;
};
