#pragma once
// Writes table rows as XML elements straight from their cell texts, in the
// bytes an element tree of the same rows gives: per row an element named by
// the row's identifier, holding one element per column. A large batch thus
// needs no element per cell: its texts are read where the table keeps them.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

class CXmlRowWriter {
 public:
  // Row elements stand at `level`, their cells one deeper; the column names
  // are escaped and trimmed once, here.
  CXmlRowWriter(int level, const std::vector<std::string_view>& column_names);

  size_t GetColumnCount() const { return columns_.size(); }
  // The bytes of one row: `name` is the identifier as read, `cells` holds
  // one raw text per column; both are escaped and trimmed as an element's.
  size_t RowLength(std::string_view name, const std::string_view* cells) const;
  // The most bytes the row can take, from its texts' sizes alone: every byte
  // escaped to the longest entity, every cell in the open and close form.
  // Cheaper than RowLength, which must look at every byte.
  size_t RowBound(std::string_view name, const std::string_view* cells) const;
  // RowBound's part that does not depend on the texts: the tags of a row
  // with every cell in the open and close form.
  size_t GetTagsBound() const { return tags_bound_; }
  // Writes the RowLength bytes at `out`; returns the end.
  char* WriteRow(char* out, std::string_view name, const std::string_view* cells) const;

 private:
  // A column's tags, composed once: line feed, indentation and start tag;
  // end tag; the self-closing form for an empty value.
  struct Column {
    std::string open;
    std::string close;
    std::string empty;
  };
  std::vector<Column> columns_;
  // "\n" and the indentation of a row's tags.
  std::string row_line_;
  // RowBound's part that does not depend on the texts.
  size_t tags_bound_ = 0;
};
