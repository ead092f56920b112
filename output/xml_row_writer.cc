#include "output/xml_row_writer.h"

#include <cstring>

#include "output/xml_element.h"

namespace {

char* Put(char* out, std::string_view text) {
  std::memcpy(out, text.data(), text.size());
  return out + text.size();
}

// Escaped and trimmed as an element's name or value: trimming first gives
// the same bytes and is cheaper (escaping neither makes nor removes blanks).
std::string_view Prepared(std::string_view text) { return CXmlElement::Trim(text); }

std::string Line(int level) {
  return "\n" + std::string(level > 0 ? static_cast<size_t>(level) * 2 : 0, ' ');
}

}  // namespace

CXmlRowWriter::CXmlRowWriter(int level, const std::vector<std::string_view>& column_names)
    : row_line_(Line(level)), cell_line_(Line(level + 1)) {
  names_.reserve(column_names.size());
  for (std::string_view name : column_names) {
    names_.emplace_back(CXmlElement::Escape(Prepared(name)));
  }
}

size_t CXmlRowWriter::RowLength(std::string_view name, const std::string_view* cells) const {
  const size_t name_size = CXmlElement::EscapedSize(Prepared(name));
  // "<N/>" without cells; "<N>", the cells, "</N>" with them.
  if (names_.empty()) return row_line_.size() + name_size + 3;
  size_t length = 2 * row_line_.size() + 2 * name_size + 5;
  for (size_t c = 0; c < names_.size(); ++c) {
    const size_t value_size = CXmlElement::EscapedSize(Prepared(cells[c]));
    const size_t tag = cell_line_.size() + names_[c].size();
    // "<C/>" or "<C>v</C>"
    length += value_size == 0 ? tag + 3 : tag + 2 + value_size + 3 + names_[c].size();
  }
  return length;
}

char* CXmlRowWriter::WriteRow(char* out, std::string_view name,
                              const std::string_view* cells) const {
  name = Prepared(name);
  out = Put(out, row_line_);
  *out++ = '<';
  out = CXmlElement::PutEscaped(out, name);
  if (names_.empty()) return Put(out, "/>");
  *out++ = '>';
  for (size_t c = 0; c < names_.size(); ++c) {
    const std::string_view value = Prepared(cells[c]);
    out = Put(out, cell_line_);
    *out++ = '<';
    out = Put(out, names_[c]);
    if (value.empty()) {
      out = Put(out, "/>");
      continue;
    }
    *out++ = '>';
    out = CXmlElement::PutEscaped(out, value);
    out = Put(Put(out, "</"), names_[c]);
    *out++ = '>';
  }
  out = Put(out, row_line_);
  out = Put(out, "</");
  out = CXmlElement::PutEscaped(out, name);
  *out++ = '>';
  return out;
}
