#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <tuple>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "output/xml_document.h"
#include "output/xml_element.h"
#include "output/xml_row_writer.h"
#include "tests/support/expected_file.h"
#include "tests/support/polling.h"
#include "tests/support/temp_dir.h"

namespace {

const std::string kHead = std::string(CXmlDocument::kDeclaration) + "\n\n";

CXmlElement* Attach(CXmlElement& parent, std::unique_ptr<CXmlElement> child) {
  CXmlElement* added = child.get();
  parent.AddChild(std::move(child));
  return added;
}

// Names and values come out escaped ("&" that starts an entity stays, the
// apostrophe unchanged) and then trimmed; a name prepared once gives the same element.
TEST(XmlEscape, NamesAndValuesAreEscapedThenTrimmed) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"a<b", "a&lt;b", "a&lt;b"}, {"x &amp; y &lt; z", "x &amp; y &lt; z", "x &amp; y &lt; z"},
      {"say \"hi\"", "say &quot;hi&quot;", "say &quot;hi&quot;"}, {"it's", "it's", "it's"},
      {"<&>", "&lt;&amp;&gt;", "&lt;&amp;&gt;"}, {"&gt;&quot;&apos;", "&gt;&quot;&amp;apos;", "&gt;&quot;&amp;apos;"},
      {"&&lt", "&amp;&amp;lt", "&amp;&amp;lt"}, {" \t<a &b>\r\n", " \t&lt;a &amp;b&gt;\r\n", "&lt;a &amp;b&gt;"},
      {"\v\f plain \f", "\v\f plain \f", "plain"}, {" \t\r\n\v\f", " \t\r\n\v\f", ""}, {"", "", ""}};
  for (const auto& [text, escaped, trimmed] : cases) {
    EXPECT_EQ(CXmlElement::Escape(text), escaped);
    const CXmlElement element(text, text), prepared(CXmlName(text), text);
    EXPECT_EQ(testutil::Join(element.GetName(), element.GetValue()), testutil::Join(trimmed, trimmed)) << text;
    EXPECT_EQ(testutil::Join(prepared.GetStartTag(), prepared.GetValue(), prepared.GetEndTag()),
              testutil::Join(element.GetStartTag(), element.GetValue(), element.GetEndTag()))
        << text;
  }
}

// Tags, attributes and whole documents, each under a "== what ==" line, in one file.
TEST(XmlDocument, TagsAttributesAndDocumentsByteForByte) {
  std::string out;
  const auto show = [&out](const std::string& what, const std::string& text) {
    out += "== " + what + " ==" + text + "\n";
  };
  CXmlElement root("R");
  CXmlElement* c = Attach(root, std::make_unique<CXmlElement>("C", "v"));
  show("root and child tags", root.GetStartTag() + root.GetEndTag() + c->GetStartTag() + c->GetEndTag());
  EXPECT_TRUE(root.GetChild(0) == c && root.GetChild(1) == nullptr && c->GetChild(0) == nullptr);
  CXmlElement blanks(" X ", " \t ");
  show("blank value", blanks.GetStartTag() + blanks.GetEndTag());

  // Attributes are written bucket by bucket (hash * 33 + signed byte, modulo
  // 17), the newest first within one bucket, and replaced in place.
  const std::pair<const char*, unsigned> buckets[] = {
      {"TIMESTAMP", 1}, {"BEGIN", 5}, {"TABLE", 10}, {"A", 14}, {"R", 14}, {"\xE9", static_cast<uint32_t>(-23) % 17u}};
  for (const auto& [name, bucket] : buckets) EXPECT_EQ(CXmlElement::AttributeBucket(name), bucket) << name;
  CXmlElement e("F");
  for (const char* name : {"TABLE", "BEGIN", "TIMESTAMP", "A", "R"}) e.SetAttribute(name, name[0] == 'B' ? "1" : "v");
  e.SetAttribute("BEGIN", "2");
  show("attributes", e.GetStartTag());

  CXmlDocument doc("BATCH");
  show("empty", doc.BuildInMemory());
  // Empty name and value: the start tag alone, "</>", as root and as a child.
  show("empty root", CXmlDocument("").BuildInMemory());
  doc.AddToRoot(doc.CreateElement(" \t", " "));
  show("empty child", doc.BuildInMemory());
  // Attributes without children; nesting deeper than any indentation kept ready.
  CXmlDocument deep("R");
  deep.GetRoot()->SetAttribute("K", "v");
  show("attribute alone", deep.BuildInMemory());
  CXmlElement* parent = deep.GetRoot();
  for (int level = 1; level <= 40; ++level) parent = Attach(*parent, deep.CreateElement("E"));
  auto leaf = deep.CreateElement("L", "x");
  leaf->SetAttribute("A", "1");
  parent->AddChild(std::move(leaf));
  parent->AddChild(deep.CreateElement("L", "y"));
  show("41 levels", deep.BuildInMemory());

  // Far beyond a fixed tag buffer of 2,047 or 1,023 characters, and larger than an arena block.
  const std::string id(5000, 'I'), value(20000, 'v');
  CXmlDocument batch("BATCH");
  Attach(*batch.GetRoot(), batch.CreateElement(id))->AddChild(batch.CreateElement("V", value));
  show("batch", batch.BuildInMemory());
  EXPECT_TRUE(testutil::MatchesExpectedFile(testutil::Normalised(out, {{id, "<5000 I>"}, {value, "<20000 v>"}}),
                                            "tests/output/expected/xml_documents.txt"));
}

// The length kept while the tree grows matches what is written, however it is
// built; its arena blocks go back when it is gone, also from another thread.
TEST(XmlDocument, LengthAndMemoryFollowEveryWayOfBuilding) {
  const size_t before = CXmlElement::GetArenaBlockCount();
  std::unique_ptr<CXmlDocument> doc;
  std::thread([&] {
    doc = std::make_unique<CXmlDocument>("BATCH");
    auto sub = doc->CreateElement("SUB");
    sub->SetAttribute("K", "v");
    CXmlElement* sp = sub.get();
    CXmlElement* ip = Attach(*sp, doc->CreateElement("IN"));
    ip->AddChild(doc->CreateElement("LEAF", std::string(30000, 'l')));  // text of its own
    ip->SetAttribute("A", "1");  // attribute inside a tree that is not yet attached
    doc->AddToRoot(std::move(sub));
    sp->SetAttribute("K", "longer value");
    ip->AddChild(doc->CreateElement("X"));
    doc->GetRoot()->SetAttribute("R", "r");
    for (int r = 0; r < 3000; ++r) doc->AddToRoot(doc->CreateElement("C", std::string(r % 5 * 9, 'x')));
    // An element never added is freed by its owner alone.
    auto loose = doc->CreateElement("LOOSE", "x");
    loose->AddChild(doc->CreateElement("C", "y"));
  }).join();
  EXPECT_GT(CXmlElement::GetArenaBlockCount(), before);
  std::thread([&] {
    const std::string text = doc->BuildInMemory();
    EXPECT_EQ(text.size(), kHead.size() + doc->GetRoot()->GetElementLength());
    EXPECT_EQ(text.substr(0, text.find("\n  <C>")),
              kHead + "\n<BATCH R=\"r\">\n  <SUB K=\"longer value\">\n  <IN A=\"1\">\n    <LEAF>" +
                  std::string(30000, 'l') + "</LEAF>\n    <X/>\n  </IN>\n  </SUB>\n  <C/>");
    doc.reset();
  }).join();
  EXPECT_EQ(CXmlElement::GetArenaBlockCount(), before);
  // The next document starts in a block given back, and gives it back again.
  std::thread([] { CXmlDocument("NEXT").BuildInMemory(); }).join();
  EXPECT_EQ(CXmlElement::GetArenaBlockCount(), before);
}

// Rows written straight from their texts equal an element tree's, at the root and below.
TEST(XmlRowWriter, RowsMatchTheElementTree) {
  const std::vector<std::vector<std::string_view>> column_sets = {{}, {"A", " <B> ", "&amp;"}};
  const std::string_view cells[] = {" x&y ", "", " \t"};
  for (const auto& columns : column_sets) {
    for (const std::string name : {"ROW", "R&D "}) {
      CXmlDocument alone(name), batch("BATCH");
      CXmlElement* rp = Attach(*batch.GetRoot(), batch.CreateElement(name));
      for (size_t c = 0; c < columns.size(); ++c) {
        alone.AddToRoot(alone.CreateElement(std::string(columns[c]), std::string(cells[c])));
        rp->AddChild(batch.CreateElement(std::string(columns[c]), std::string(cells[c])));
      }
      const std::string tree = batch.BuildInMemory();
      const std::string expected[] = {alone.BuildInMemory().substr(kHead.size()),
                                      tree.substr(kHead.size() + 8, tree.size() - kHead.size() - 17)};
      for (int level : {0, 1}) {
        const CXmlRowWriter writer(level, columns);
        std::string out(writer.RowLength(name, cells), '\0');
        EXPECT_EQ(writer.WriteRow(out.data(), name, cells), out.data() + out.size());
        EXPECT_EQ(out, expected[level]) << name << " " << columns.size() << " " << level;
      }
    }
  }
}

TEST(XmlDocument, SaveReplacesAnOldFileOrFailsQuietly) {
  testutil::TempDir dir;
  const std::string path = dir.File("b.xml");
  testutil::WriteBytes(path, std::string(100000, 'o'));
  CXmlDocument doc("BATCH");
  doc.AddToRoot(doc.CreateElement("F", "x"));
  ASSERT_TRUE(doc.SaveToFile(path));
  EXPECT_EQ(testutil::ReadBytes(path), doc.BuildInMemory());
  const std::string missing = dir.File("no/such/dir/b.xml");
  EXPECT_FALSE(doc.SaveToFile(missing));
  EXPECT_FALSE(std::filesystem::exists(missing));
  // A file held by another writer is not touched.
  const int fd = open(path.c_str(), O_RDWR);
  ASSERT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
  EXPECT_FALSE(CXmlDocument("OTHER").SaveToFile(path));
  close(fd);
  EXPECT_EQ(testutil::ReadBytes(path), doc.BuildInMemory());
}

TEST(DocumentBuffer, KeepsItsMemoryUpToTheBoundOnly) {
  for (const size_t size : {size_t{1000}, CDocumentBuffer::kKeptBytes, CDocumentBuffer::kKeptBytes + 1}) {
    CDocumentBuffer buffer;
    char* first = buffer.Prepare(size);
    buffer.Trim();
    const bool kept = size <= CDocumentBuffer::kKeptBytes;
    EXPECT_EQ(buffer.GetCapacity(), kept ? size : 0) << size;
    EXPECT_TRUE(!kept || buffer.Prepare(size / 2) == first) << size;  // reused, not made anew
  }
}

}  // namespace
