#include "output/xml_row_writer.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "output/short_copy.h"
#include "output/xml_element.h"

namespace {

char* Put(char* out, const char* from, size_t n) { return xml_output::CopyShort(out, from, n); }

char* Put(char* out, std::string_view text) { return Put(out, text.data(), text.size()); }

// Trimming before escaping gives the bytes of escaping before trimming
// (escaping neither makes nor removes blanks) and is cheaper.
std::string_view Prepared(std::string_view text) { return CXmlElement::Trim(text); }

char* PutText(char* out, std::string_view text) {
  return CXmlElement::PutEscaped(out, text);
}

std::string Line(int level) {
  return "\n" + std::string(level > 0 ? static_cast<size_t>(level) * 2 : 0, ' ');
}

}  // namespace

CXmlRowWriter::CXmlRowWriter(int level, const std::vector<std::string_view>& column_names)
    : row_line_(Line(level)) {
  const std::string cell_line = Line(level + 1);
  columns_.reserve(column_names.size());
  for (std::string_view name : column_names) {
    const std::string prepared = CXmlElement::Escape(Prepared(name));
    columns_.push_back({cell_line + "<" + prepared + ">", "</" + prepared + ">",
                        cell_line + "<" + prepared + "/>"});
    tags_bound_ += std::max(columns_.back().open.size() + columns_.back().close.size(),
                            columns_.back().empty.size());
  }
  tags_bound_ += 2 * row_line_.size() + 5;
}

size_t CXmlRowWriter::RowBound(std::string_view name, const std::string_view* cells) const {
  // "&quot;": no byte becomes more than six.
  constexpr size_t kLongestEntity = 6;
  size_t texts = 2 * name.size();
  for (size_t c = 0; c < columns_.size(); ++c) texts += cells[c].size();
  return tags_bound_ + kLongestEntity * texts;
}

size_t CXmlRowWriter::RowLength(std::string_view name, const std::string_view* cells) const {
  const size_t name_size = CXmlElement::EscapedSize(Prepared(name));
  // "<N/>" without cells; "<N>", the cells, "</N>" with them.
  if (columns_.empty()) return row_line_.size() + name_size + 3;
  size_t length = 2 * row_line_.size() + 2 * name_size + 5;
  for (size_t c = 0; c < columns_.size(); ++c) {
    const size_t value_size = CXmlElement::EscapedSize(Prepared(cells[c]));
    const Column& column = columns_[c];
    length += value_size == 0 ? column.empty.size()
                              : column.open.size() + value_size + column.close.size();
  }
  return length;
}

char* CXmlRowWriter::WriteRow(char* out, std::string_view name,
                              const std::string_view* cells) const {
  name = Prepared(name);
  out = Put(out, row_line_);
  *out++ = '<';
  out = PutText(out, name);
  if (columns_.empty()) return Put(out, "/>", 2);
  *out++ = '>';
  for (size_t c = 0; c < columns_.size(); ++c) {
    const std::string_view value = Prepared(cells[c]);
    const Column& column = columns_[c];
    if (value.empty()) {
      out = Put(out, column.empty);
      continue;
    }
    out = Put(out, column.open);
    out = PutText(out, value);
    out = Put(out, column.close);
  }
  out = Put(out, row_line_);
  out = Put(out, "</", 2);
  out = PutText(out, name);
  *out++ = '>';
  return out;
}
