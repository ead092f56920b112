// XML documents built from arbitrary names, values and attributes: no crash,
// no read or write outside a buffer, and the document keeps its shape.
//
// Input: a list of operations, each one byte of operation code and a text up
// to the next NUL byte; the text's first "=" separates a name from a value.
//
// Checked: the declaration and two line feeds come first; names and values
// hold no raw "<", ">" or double quote and every "&" in them starts an entity
// (so text content never holds a raw "<"), and they carry no white space at
// either end; escaping agrees with the five passes written out, and an
// element's name and value are those passes' result trimmed; the buffer is
// exactly as long as announced and the same on a second build; putting the
// tags together by hand gives the same bytes; attributes come in bucket
// order; a row written from its texts equals the same row as elements; all
// arena memory returns when the document is gone.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "output/xml_document.h"
#include "output/xml_element.h"
#include "output/xml_row_writer.h"

namespace {

void Check(bool condition) {
  if (!condition) std::abort();
}

std::string EscapeByPasses(std::string text) {
  const char chars[] = {'<', '&', '>', '"', '\''};
  const char* replacements[] = {"&lt;", "&amp;", "&gt;", "&quot;", "'"};
  for (int k = 0; k < 5; ++k) {
    size_t p = text.find(chars[k]);
    while (p != std::string::npos) {
      bool protect = false;
      if (chars[k] == '&') {
        for (const char* r : replacements) {
          if (text.compare(p, std::strlen(r), r) == 0) protect = true;
        }
      }
      if (!protect) text = text.substr(0, p) + replacements[k] + text.substr(p + 1);
      p = text.find(chars[k], p + 1);
    }
  }
  return text;
}

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

void CheckText(std::string_view text) {
  if (!text.empty()) Check(!IsBlank(text.front()) && !IsBlank(text.back()));
  for (size_t i = 0; i < text.size(); ++i) {
    Check(text[i] != '<' && text[i] != '>' && text[i] != '"');
    if (text[i] == '&') {
      const std::string_view rest = text.substr(i);
      Check(rest.rfind("&lt;", 0) == 0 || rest.rfind("&amp;", 0) == 0 ||
            rest.rfind("&gt;", 0) == 0 || rest.rfind("&quot;", 0) == 0);
    }
  }
}

// The element written again from its tags, and every element checked.
void Recompose(const CXmlElement& element, std::string& out) {
  CheckText(element.GetName());
  CheckText(element.GetValue());
  unsigned last_bucket = 0;
  for (const auto& attribute : element.GetAttributes()) {
    const unsigned bucket = CXmlElement::AttributeBucket(attribute.first);
    Check(bucket >= last_bucket);
    last_bucket = bucket;
  }
  out += element.GetStartTag();
  if (element.GetChildCount() == 0) out.append(element.GetValue());
  for (size_t i = 0; i < element.GetChildCount(); ++i) {
    const CXmlElement* child = element.GetChild(i);
    Check(child->GetLevel() == element.GetLevel() + 1);
    Recompose(*child, out);
  }
  out += element.GetEndTag();
}

struct Operation {
  uint8_t code;
  std::string name;
  std::string value;
};

std::vector<Operation> Parse(const uint8_t* data, size_t size) {
  std::vector<Operation> operations;
  size_t pos = 0;
  while (pos < size) {
    const uint8_t code = data[pos++];
    const char* start = reinterpret_cast<const char*>(data + pos);
    const size_t length = strnlen(start, size - pos);
    const std::string text(start, length);
    pos += length + 1;
    const size_t equals = text.find('=');
    if (equals == std::string::npos) {
      operations.push_back({code, text, std::string()});
    } else {
      operations.push_back({code, text.substr(0, equals), text.substr(equals + 1)});
    }
  }
  return operations;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<Operation> operations = Parse(data, size);
  {
    CXmlDocument document("BATCH");
    // The path from the root to the element that receives new children.
    std::vector<CXmlElement*> path = {document.GetRoot()};
    for (const Operation& op : operations) {
      Check(CXmlElement::Escape(op.value) == EscapeByPasses(op.value));
      CXmlElement* current = path.back();
      switch (op.code % 6) {
        case 0: {  // a new element that takes the following children
          std::unique_ptr<CXmlElement> element = document.CreateElement(op.name);
          CXmlElement* added = element.get();
          current->AddChild(std::move(element));
          path.push_back(added);
          break;
        }
        case 1: {
          std::unique_ptr<CXmlElement> leaf = document.CreateElement(op.name, op.value);
          Check(leaf->GetName() == Trimmed(EscapeByPasses(op.name)));
          Check(leaf->GetValue() == Trimmed(EscapeByPasses(op.value)));
          current->AddChild(std::move(leaf));
          break;
        }
        case 2:
          if (path.size() > 1) path.pop_back();
          break;
        case 3:
          current->SetAttribute(op.name, op.value);
          break;
        case 4:
          document.AddToRoot(document.CreateElement(op.name, op.value));
          break;
        default:
          current->ReserveChildren(op.name.size());
          break;
      }
    }

    const std::string text = document.BuildInMemory();
    const std::string start = std::string(CXmlDocument::kDeclaration) + "\n\n";
    Check(text.compare(0, start.size(), start) == 0);
    Check(text.size() == start.size() + document.GetRoot()->GetElementLength());
    Check(document.BuildInMemory() == text);
    std::string recomposed = start;
    Recompose(*document.GetRoot(), recomposed);
    Check(recomposed == text);
  }
  {
    // The same operations as one row of a table: the first name names the
    // row, the others are columns with their values. Written from the texts,
    // it must be the bytes of the row as an element at the same level.
    if (!operations.empty()) {
      const int level = operations[0].code % 4;
      // Levels are fixed when a child is added: the chain and the row are
      // placed before the row gets its cells.
      CXmlElement parent("P");
      CXmlElement* at = &parent;
      for (int k = 0; k <= level; ++k) {
        auto link = std::make_unique<CXmlElement>(k == level ? operations[0].name : "P");
        CXmlElement* next = link.get();
        at->AddChild(std::move(link));
        at = next;
      }
      CXmlElement* placed = at;
      std::vector<std::string_view> names;
      std::vector<std::string_view> cells;
      for (size_t i = 1; i < operations.size(); ++i) {
        names.push_back(operations[i].name);
        cells.push_back(operations[i].value);
        placed->AddChild(std::make_unique<CXmlElement>(operations[i].name, operations[i].value));
      }
      std::string tree;
      placed->WriteElement(tree);
      const CXmlRowWriter writer(placed->GetLevel(), names);
      std::string direct(writer.RowLength(operations[0].name, cells.data()), '\0');
      char* end = writer.WriteRow(direct.data(), operations[0].name, cells.data());
      Check(end == direct.data() + direct.size());
      Check(direct == tree);
      // The batch document makes room for a row by this bound alone.
      Check(direct.size() <= writer.RowBound(operations[0].name, cells.data()));
    }
  }
  // Only the block this thread allocates from may remain; an element left
  // behind would keep a second one once the thread has moved on.
  Check(CXmlElement::GetArenaBlockCount() <= 1);
  return 0;
}
