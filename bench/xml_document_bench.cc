// Building one batch's XML document in memory: our element tree and
// serialiser against a plain memcpy of the same bytes (the floor) and against
// libxml2's xmlTextWriter writing the same rows into an xmlBuffer.
//
// The batch: 10,000 rows of 20 text columns with the mix a real batch shows:
// identifiers, blanks, numbers, dates, short codes, free texts of various
// lengths, some of them with characters that need escaping.
//
// BM_RowWriter writes the same document as the batch document does: rows
// straight from their texts, without an element per cell.
//
// BM_BatchDocument goes the whole way a received batch goes (the received
// table turned into text, Build, BuildInMemory); it needs librfcsim.so from
// <build>/lib (RFCSIM_LIBRARY names another file) and is skipped without it.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "access/sap_table.h"
#include "app/batch_server_app.h"
#include "app/batch_server_func.h"
#include "output/document_buffer.h"
#include "output/xml_batch_document.h"
#include "output/xml_document.h"
#include "output/xml_row_writer.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/function/rfc_table_param.h"

#if defined(BS_HAVE_LIBXML2)
#include <libxml/xmlwriter.h>
#endif

namespace {

constexpr int kRows = 10000;
constexpr int kColumns = 20;

const std::string kColumnNames[kColumns] = {
    "H_IDENT",  "T_IDENT", "IDENT",    "MATNR",      "MAKTX",     "WERKS",   "LGORT",
    "MENGE",    "MEINS",   "BUDAT",    "CPUTM",      "NETWR",     "WAERS",   "KUNNR",
    "NAME1",    "STRAS",   "ORT01",    "SGTXT",      "STATUS",    "REMARK",
};

struct Batch {
  std::string function = "Z_KTZ_GOODS_MOVEMENT";
  std::string structure = "ZKTZ_GOODS_LINE";
  std::string batch_id = "001732000000123";
  std::vector<std::vector<std::string>> rows;
};

// Deterministic, so every run and every competitor sees the same bytes.
const Batch& TheBatch() {
  static const Batch batch = [] {
    Batch b;
    std::mt19937 rng(4711);
    auto pick = [&](std::initializer_list<const char*> choices) {
      return std::string(*(choices.begin() + rng() % choices.size()));
    };
    auto digits = [&](int n) {
      std::string s(static_cast<size_t>(n), '0');
      for (char& c : s) c = static_cast<char>('0' + rng() % 10);
      return s;
    };
    b.rows.reserve(kRows);
    for (int r = 0; r < kRows; ++r) {
      std::vector<std::string> row(kColumns);
      // Most rows carry H_IDENT, some only T_IDENT, a few nothing at all.
      const unsigned kind = rng() % 20;
      if (kind < 17) row[0] = "H" + digits(9);
      if (kind == 17 || kind == 18) row[1] = "T" + digits(7);
      row[2] = kind == 19 ? "" : digits(6);
      row[3] = "MAT-" + digits(8);
      row[4] = pick({"Hex bolt M8 x 40", "Washer <DIN 125>", "Nut & bolt set, 200 pcs",
                     "Cable tie 300 mm \"black\"", "Bracket", "Sealing ring 'O' 12 x 2",
                     "Steel sheet 2 mm, galvanised, cut to size on request"});
      row[5] = pick({"1000", "1100", "2000"});
      row[6] = rng() % 4 == 0 ? "" : pick({"0001", "0002", "RACK"});
      row[7] = std::to_string(rng() % 5000) + "." + digits(3);
      row[8] = pick({"PC", "KG", "M", "L"});
      row[9] = "2024" + digits(4);
      row[10] = digits(6);
      row[11] = std::to_string(rng() % 100000) + "." + digits(2);
      row[12] = pick({"EUR", "USD", "CHF"});
      row[13] = digits(10);
      row[14] = pick({"Smith & Sons Ltd.", "Meier GmbH", "Dupont S.A.", "O'Brien Trading",
                      "Acme <Europe> B.V."});
      row[15] = pick({"Main Street 1", "Hauptstrasse 27a", "  Rue de la Paix 5", ""});
      row[16] = pick({"Walldorf", "London", "Paris", "New York"});
      row[17] = rng() % 3 == 0 ? "" : pick({"posted", "reversal of 4711 & 4712",
                                             "delivery note 80001234 / item 10",
                                             "checked by QA: quantity > ordered"});
      row[18] = pick({"A", "B", "X", ""});
      row[19] = rng() % 5 == 0 ? std::string(static_cast<size_t>(rng() % 200), 'r') : "";
      b.rows.push_back(std::move(row));
    }
    return b;
  }();
  return batch;
}

// The identifier a row is named by: H_IDENT, else T_IDENT, else IDENT.
const std::string* Identifier(const std::vector<std::string>& row) {
  for (int c = 0; c < 3; ++c) {
    if (!row[static_cast<size_t>(c)].empty()) return &row[static_cast<size_t>(c)];
  }
  return nullptr;
}

// The same calls CXmlBatchDocument::Build makes, over rows already in text.
std::string BuildOurs(const Batch& b) {
  CXmlDocument document("BATCH");
  std::unique_ptr<CXmlElement> function = document.CreateElement(b.function);
  function->SetAttribute("TIMESTAMP", b.batch_id);
  function->SetAttribute("TABLE", b.structure);
  function->SetAttribute("BEGIN", "1");
  CXmlElement* function_element = function.get();
  document.AddToRoot(std::move(function));
  std::vector<CXmlName> names;
  names.reserve(kColumns);
  for (const std::string& name : kColumnNames) names.emplace_back(name);
  for (const auto& row : b.rows) {
    const std::string* ident = Identifier(row);
    if (ident == nullptr) continue;
    std::unique_ptr<CXmlElement> row_element = document.CreateElement(*ident);
    CXmlElement* target = row_element.get();
    function_element->AddChild(std::move(row_element));
    for (int c = 0; c < kColumns; ++c) {
      target->AddChild(document.CreateElement(names[static_cast<size_t>(c)],
                                              row[static_cast<size_t>(c)]));
    }
  }
  return document.BuildInMemory();
}

// What CXmlBatchDocument does with a batch: the function element from the
// tree, the rows written straight from their texts, no element per cell.
std::string BuildRows(const Batch& b) {
  CXmlDocument document("BATCH");
  std::unique_ptr<CXmlElement> function = document.CreateElement(b.function);
  function->SetAttribute("TIMESTAMP", b.batch_id);
  function->SetAttribute("TABLE", b.structure);
  function->SetAttribute("BEGIN", "1");
  const CXmlElement* function_element = function.get();
  document.AddToRoot(std::move(function));
  const std::vector<std::string_view> names(std::begin(kColumnNames), std::end(kColumnNames));
  const CXmlRowWriter writer(2, names);
  std::vector<std::string_view> cells(kColumns);
  auto row_cells = [&](const std::vector<std::string>& row) {
    for (int c = 0; c < kColumns; ++c) cells[static_cast<size_t>(c)] = row[static_cast<size_t>(c)];
    return cells.data();
  };
  size_t rows_length = 0;
  for (const auto& row : b.rows) {
    if (const std::string* ident = Identifier(row)) rows_length += writer.RowLength(*ident, row_cells(row));
  }
  std::string start = function_element->GetStartTag();
  start.replace(start.size() - 2, 2, ">");
  const std::string head = std::string(CXmlDocument::kDeclaration) + "\n\n\n<BATCH>" + start;
  const std::string tail = "\n  </" + b.function + ">\n</BATCH>";
  std::string out(head.size() + rows_length + tail.size(), '\0');
  char* at = std::copy(head.begin(), head.end(), out.data());
  for (const auto& row : b.rows) {
    if (const std::string* ident = Identifier(row)) at = writer.WriteRow(at, *ident, row_cells(row));
  }
  std::copy(tail.begin(), tail.end(), at);
  return out;
}

void BM_RowWriter(benchmark::State& state) {
  const Batch& b = TheBatch();
  size_t bytes = 0;
  for (auto _ : state) {
    std::string text = BuildRows(b);
    bytes = text.size();
    benchmark::DoNotOptimize(text.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_RowWriter)->Unit(benchmark::kMillisecond);

void BM_OurBuilder(benchmark::State& state) {
  const Batch& b = TheBatch();
  size_t bytes = 0;
  for (auto _ : state) {
    std::string text = BuildOurs(b);
    bytes = text.size();
    benchmark::DoNotOptimize(text.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_OurBuilder)->Unit(benchmark::kMillisecond);

void BM_MemcpyFloor(benchmark::State& state) {
  const std::string text = BuildOurs(TheBatch());
  std::unique_ptr<char[]> target(new char[text.size()]);
  std::memset(target.get(), 0, text.size());  // fault the pages in before timing
  for (auto _ : state) {
    std::memcpy(target.get(), text.data(), text.size());
    benchmark::DoNotOptimize(target.get());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_MemcpyFloor)->Unit(benchmark::kMillisecond);

#if defined(BS_HAVE_LIBXML2)
const xmlChar* X(const char* text) { return reinterpret_cast<const xmlChar*>(text); }
const xmlChar* X(const std::string& text) { return X(text.c_str()); }

// The same tree through xmlTextWriter, indented by two blanks. `encoding`
// null leaves out the declaration's label and with it the output conversion.
size_t BuildWithLibXml2(const Batch& b, const char* encoding, std::string* copy) {
  xmlBufferPtr buffer = xmlBufferCreate();
  xmlTextWriterPtr writer = xmlNewTextWriterMemory(buffer, 0);
  xmlTextWriterSetIndent(writer, 1);
  xmlTextWriterSetIndentString(writer, X("  "));
  xmlTextWriterStartDocument(writer, "1.0", encoding, nullptr);
  xmlTextWriterStartElement(writer, X("BATCH"));
  xmlTextWriterStartElement(writer, X(b.function));
  xmlTextWriterWriteAttribute(writer, X("TIMESTAMP"), X(b.batch_id));
  xmlTextWriterWriteAttribute(writer, X("BEGIN"), X("1"));
  xmlTextWriterWriteAttribute(writer, X("TABLE"), X(b.structure));
  for (const auto& row : b.rows) {
    const std::string* ident = Identifier(row);
    if (ident == nullptr) continue;
    xmlTextWriterStartElement(writer, X(*ident));
    for (int c = 0; c < kColumns; ++c) {
      xmlTextWriterWriteElement(writer, X(kColumnNames[c]), X(row[static_cast<size_t>(c)]));
    }
    xmlTextWriterEndElement(writer);
  }
  xmlTextWriterEndDocument(writer);
  xmlFreeTextWriter(writer);  // flushes into the buffer
  const size_t size = static_cast<size_t>(xmlBufferLength(buffer));
  if (copy != nullptr) copy->assign(reinterpret_cast<const char*>(xmlBufferContent(buffer)), size);
  xmlBufferFree(buffer);
  return size;
}

void BM_LibXml2TextWriter(benchmark::State& state, const char* encoding) {
  const Batch& b = TheBatch();
  size_t bytes = 0;
  for (auto _ : state) bytes = BuildWithLibXml2(b, encoding, nullptr);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK_CAPTURE(BM_LibXml2TextWriter, iso_8859_1, "iso-8859-1")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_LibXml2TextWriter, no_encoding, nullptr)->Unit(benchmark::kMillisecond);
#endif

// The whole way of a received batch: librfcsim.so's internal table holds the
// rows as a call leaves them; each document reads it into text, builds its
// tree and serialises it.
std::string RfcsimPath() {
  if (const char* path = std::getenv("RFCSIM_LIBRARY")) return path;
  std::error_code error;
  const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) return "librfcsim.so";
  return (exe.parent_path().parent_path() / "lib" / "librfcsim.so").string();
}

int32_t IgnoreBatch(CBatchServerFunc*) { return 1; }

void BM_BatchDocument(benchmark::State& state) {
  static const bool loaded = LoadRfcLibrary(RfcsimPath().c_str());
  if (!loaded) {
    state.SkipWithError("librfcsim.so not found (build target rfcsim or set RFCSIM_LIBRARY)");
    return;
  }
  const Batch& b = TheBatch();
  CBatchServerFunc::DdColumns columns;
  for (int c = 0; c < kColumns; ++c) {
    const auto position = static_cast<uint16_t>(c + 1);
    columns[position] = std::make_unique<CSapColumn>(kColumnNames[c], c + 1, 0, TYPE_CHAR,
                                                     c == 19 ? 200 : 60, 0);
  }
  CRfcConnection connection;
  CBatchServerApp app(&connection, nullptr);
  CBatchServerFunc function(&app, b.function, b.structure, columns, &IgnoreBatch);
  CRfcTableParam& table = *function.GetTableParam();
  table.Create();
  for (int r = 0; r < kRows; ++r) {
    table.GotoLine(r);
    void* line = table.GetCurrentLine();
    for (int c = 0; c < kColumns; ++c) {
      table.GetData(line, c) = b.rows[static_cast<size_t>(r)][static_cast<size_t>(c)].c_str();
    }
  }
  size_t bytes = 0;
  CDocumentBuffer buffer;  // kept between documents, as the server keeps it
  for (auto _ : state) {
    CXmlBatchDocument document(function, 1);
    document.Build();
    const std::string_view text = document.BuildInto(buffer);
    bytes = text.size();
    benchmark::DoNotOptimize(text.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_BatchDocument)->Unit(benchmark::kMillisecond);

// Both writers should produce documents of about the same size; a large
// difference would mean they are not doing the same work.
void ReportSizes() {
  const std::string ours = BuildOurs(TheBatch());
  std::fprintf(stderr, "document: %d rows x %d columns, ours %zu bytes", kRows, kColumns,
               ours.size());
  // The row writer must give the tree's bytes, or it is not doing the same work.
  if (BuildRows(TheBatch()) != ours) std::fprintf(stderr, " -- THE ROW WRITER DIFFERS");
#if defined(BS_HAVE_LIBXML2)
  std::string theirs;
  BuildWithLibXml2(TheBatch(), "iso-8859-1", &theirs);
  const double ratio = static_cast<double>(theirs.size()) / static_cast<double>(ours.size());
  std::fprintf(stderr, ", libxml2 %zu bytes (%.3f of ours)", theirs.size(), ratio);
  if (ratio < 0.9 || ratio > 1.1) std::fprintf(stderr, " -- sizes differ by more than 10%%");
#endif
  std::fprintf(stderr, "\n");
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  ReportSizes();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
