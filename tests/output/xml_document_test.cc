#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "output/xml_document.h"
#include "output/xml_element.h"
#include "tests/support/temp_dir.h"

namespace {

// The escaping written the long way: five passes, one per character, each
// restarting from the front. The fast path must agree with it on every input.
std::string EscapeByPasses(std::string text) {
  const char chars[] = {'<', '&', '>', '"', '\''};
  const char* replacements[] = {"&lt;", "&amp;", "&gt;", "&quot;", "'"};
  for (int k = 0; k < 5; ++k) {
    size_t p = text.find(chars[k]);
    while (p != std::string::npos) {
      bool protect = false;
      if (chars[k] == '&') {
        for (const char* r : replacements) {
          if (text.compare(p, std::string(r).size(), r) == 0) protect = true;
        }
      }
      if (!protect) text = text.substr(0, p) + replacements[k] + text.substr(p + 1);
      p = text.find(chars[k], p + 1);
    }
  }
  return text;
}

TEST(XmlEscape, CharactersAndProtectedEntities) {
  EXPECT_EQ(CXmlElement::Escape("a<b"), "a&lt;b");
  EXPECT_EQ(CXmlElement::Escape("a & b"), "a &amp; b");
  EXPECT_EQ(CXmlElement::Escape("x &amp; y &lt; z"), "x &amp; y &lt; z");
  EXPECT_EQ(CXmlElement::Escape("say \"hi\""), "say &quot;hi&quot;");
  EXPECT_EQ(CXmlElement::Escape("it's"), "it's");
  EXPECT_EQ(CXmlElement::Escape("<&>"), "&lt;&amp;&gt;");
  EXPECT_EQ(CXmlElement::Escape("&gt;&quot;&apos;"), "&gt;&quot;&amp;apos;");
  EXPECT_EQ(CXmlElement::Escape("&&lt"), "&amp;&amp;lt");
}

// The escaping written the long way, then the trimming: an element's name and
// value must come out as if escaped first and trimmed second, whatever the
// short cuts taken on the way.
std::string TrimByHand(const std::string& text) {
  const char* blanks = " \t\r\n\v\f";
  const size_t begin = text.find_first_not_of(blanks);
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

TEST(XmlEscape, FastPathsAgreeWithFivePassesThenTrimming) {
  std::mt19937 rng(20261122);
  const std::string alphabet = "<&>\"';altgmpquo \t\r\n\v\f";
  for (int n = 0; n < 20000; ++n) {
    std::string text(rng() % 40, ' ');
    for (char& c : text) c = alphabet[rng() % alphabet.size()];
    const std::string escaped = EscapeByPasses(text);
    ASSERT_EQ(CXmlElement::Escape(text), escaped) << "input: " << text;
    const CXmlElement element(text, "x" + text);
    ASSERT_EQ(element.GetName(), TrimByHand(escaped)) << "input: " << text;
    ASSERT_EQ(element.GetValue(), TrimByHand("x" + escaped)) << "input: " << text;
  }
}

TEST(XmlElement, TagsByShape) {
  CXmlElement root("R");
  auto child = std::make_unique<CXmlElement>("C", "v");
  CXmlElement* c = child.get();
  root.AddChild(std::move(child));
  EXPECT_EQ(root.GetStartTag(), "\n<R>");
  EXPECT_EQ(root.GetEndTag(), "\n</R>");
  EXPECT_EQ(c->GetLevel(), 1);
  EXPECT_EQ(c->GetStartTag(), "\n  <C>");
  EXPECT_EQ(c->GetEndTag(), "</C>");
  CXmlElement blanks(" X ", " \t ");
  EXPECT_EQ(blanks.GetStartTag(), "\n<X/>");
  EXPECT_EQ(blanks.GetEndTag(), "");
}

TEST(XmlElement, AttributeOrderFollowsTheBuckets) {
  EXPECT_EQ(CXmlElement::AttributeBucket("TIMESTAMP"), 1u);
  EXPECT_EQ(CXmlElement::AttributeBucket("BEGIN"), 5u);
  EXPECT_EQ(CXmlElement::AttributeBucket("TABLE"), 10u);
  CXmlElement e("F");
  e.SetAttribute("TABLE", "S");
  e.SetAttribute("BEGIN", "1");
  e.SetAttribute("TIMESTAMP", "T");
  EXPECT_EQ(e.GetStartTag(), "\n<F TIMESTAMP=\"T\" BEGIN=\"1\" TABLE=\"S\"/>");
  e.SetAttribute("BEGIN", "2");  // replaced in place
  EXPECT_EQ(e.GetStartTag(), "\n<F TIMESTAMP=\"T\" BEGIN=\"2\" TABLE=\"S\"/>");
}

TEST(XmlElement, SameBucketNewestFirstAndSignedBytes) {
  // "A" is 65 -> bucket 14; "R" is 82 -> 82 % 17 = 14 as well.
  ASSERT_EQ(CXmlElement::AttributeBucket("A"), CXmlElement::AttributeBucket("R"));
  CXmlElement e("E");
  e.SetAttribute("A", "1");
  e.SetAttribute("R", "2");
  EXPECT_EQ(e.GetStartTag(), "\n<E R=\"2\" A=\"1\"/>");
  // A byte above 127 counts as negative: 0xE9 is -23, and (0 * 33 - 23) wraps.
  EXPECT_EQ(CXmlElement::AttributeBucket("\xE9"), static_cast<uint32_t>(-23) % 17u);
}

TEST(XmlDocument, BatchShapedDocumentByteForByte) {
  CXmlDocument doc("BATCH");
  auto f = doc.CreateElement("F");
  f->SetAttribute("TIMESTAMP", "T");
  f->SetAttribute("TABLE", "S");
  f->SetAttribute("BEGIN", "1");
  CXmlElement* fp = f.get();
  doc.AddToRoot(std::move(f));
  auto row = doc.CreateElement("A");
  CXmlElement* rp = row.get();
  fp->AddChild(std::move(row));
  rp->AddChild(doc.CreateElement("H_IDENT", "A"));
  rp->AddChild(doc.CreateElement("X", " "));
  EXPECT_EQ(doc.BuildInMemory(),
            "<?xml version=\"1.0\" encoding=\"iso-8859-1\"?>\n\n"
            "\n<BATCH>"
            "\n  <F TIMESTAMP=\"T\" BEGIN=\"1\" TABLE=\"S\">"
            "\n    <A>"
            "\n      <H_IDENT>A</H_IDENT>"
            "\n      <X/>"
            "\n    </A>"
            "\n  </F>"
            "\n</BATCH>");
}

TEST(XmlDocument, DeclarationIsFortyThreeCharacters) {
  EXPECT_EQ(std::string(CXmlDocument::kDeclaration).size(), 43u);
  CXmlDocument doc("BATCH");
  EXPECT_EQ(doc.BuildInMemory(), std::string(CXmlDocument::kDeclaration) + "\n\n\n<BATCH/>");
  // Empty name and value: the start tag alone, "</>", as root and as a child.
  CXmlDocument blank("");
  EXPECT_EQ(blank.BuildInMemory(), std::string(CXmlDocument::kDeclaration) + "\n\n\n</>");
  doc.AddToRoot(doc.CreateElement(" \t", " "));
  EXPECT_EQ(doc.BuildInMemory(), std::string(CXmlDocument::kDeclaration) + "\n\n\n<BATCH>\n  </>\n</BATCH>");
}

TEST(XmlDocument, LongNamesAndValuesAreWrittenWhole) {
  // Far beyond the 2,047 and 1,023 characters a fixed tag buffer would hold;
  // the value is also larger than the element arena hands out from a shared
  // block.
  const std::string id(5000, 'I');
  const std::string value(20000, 'v');
  CXmlDocument doc("BATCH");
  auto row = doc.CreateElement(id);
  CXmlElement* rp = row.get();
  doc.AddToRoot(std::move(row));
  rp->AddChild(doc.CreateElement("V", value));
  EXPECT_EQ(doc.BuildInMemory(), std::string(CXmlDocument::kDeclaration) + "\n\n\n<BATCH>\n  <" +
                                     id + ">\n    <V>" + value + "</V>\n  </" + id +
                                     ">\n</BATCH>");
}

// Elements live in arena blocks that must all go back when the tree is gone,
// also when another thread destroys it after the building thread has ended.
TEST(XmlDocument, TreeMemoryReturnsFromAnyThread) {
  const size_t before = CXmlElement::GetArenaBlockCount();
  std::unique_ptr<CXmlDocument> doc;
  std::string built;
  std::thread([&] {
    doc = std::make_unique<CXmlDocument>("BATCH");
    for (int r = 0; r < 3000; ++r) {
      auto row = doc->CreateElement("R" + std::to_string(r));
      CXmlElement* rp = row.get();
      doc->AddToRoot(std::move(row));
      for (int c = 0; c < 5; ++c) rp->AddChild(doc->CreateElement("C", std::string(c * 9, 'x')));
    }
    doc->AddToRoot(doc->CreateElement("BIG", std::string(100000, 'b')));
    built = doc->BuildInMemory();
  }).join();
  EXPECT_GT(CXmlElement::GetArenaBlockCount(), before + 10);
  std::thread([&] {
    EXPECT_EQ(doc->BuildInMemory(), built);
    doc.reset();
  }).join();
  EXPECT_EQ(CXmlElement::GetArenaBlockCount(), before);
}

// A name prepared once gives the same element as the name given each time.
TEST(XmlElement, PreparedNameMatchesPlainName) {
  for (const std::string name : {"MATNR", "  A<B & C ", "&amp;\"x\"", " \t "}) {
    const CXmlName prepared(name);
    const CXmlElement once(prepared, " v&w ");
    const CXmlElement each(name, " v&w ");
    EXPECT_EQ(once.GetName(), each.GetName()) << name;
    EXPECT_EQ(once.GetValue(), each.GetValue()) << name;
    EXPECT_EQ(once.GetStartTag(), each.GetStartTag()) << name;
    EXPECT_EQ(once.GetEndTag(), each.GetEndTag()) << name;
  }
}

// The length kept while the tree grows must match what is written, however
// the tree is put together: subtrees built apart and added later, attributes
// set on elements already inside a tree, values replaced.
TEST(XmlDocument, LengthAndMemoryFollowEveryWayOfBuilding) {
  const size_t before = CXmlElement::GetArenaBlockCount();
  {
    CXmlDocument doc("BATCH");
    auto sub = doc.CreateElement("SUB");
    sub->SetAttribute("K", "v");
    CXmlElement* sp = sub.get();
    auto inner = doc.CreateElement("IN");
    CXmlElement* ip = inner.get();
    sp->AddChild(std::move(inner));
    ip->AddChild(doc.CreateElement("LEAF", std::string(30000, 'l')));  // text of its own
    ip->SetAttribute("A", "1");  // attribute inside a tree that is not yet attached
    doc.AddToRoot(std::move(sub));
    sp->SetAttribute("K", "longer value");
    ip->AddChild(doc.CreateElement("X"));
    doc.GetRoot()->SetAttribute("R", "r");
    const std::string text = doc.BuildInMemory();
    EXPECT_EQ(text.size(), std::string(CXmlDocument::kDeclaration).size() + 2 +
                               doc.GetRoot()->GetElementLength());
    EXPECT_EQ(text, std::string(CXmlDocument::kDeclaration) + "\n\n" +
                        "\n<BATCH R=\"r\">\n  <SUB K=\"longer value\">\n  <IN A=\"1\">"
                        "\n    <LEAF>" + std::string(30000, 'l') +
                        "</LEAF>\n    <X/>\n  </IN>\n  </SUB>\n</BATCH>");
    // An element never added is freed by its owner alone.
    auto loose = doc.CreateElement("LOOSE", "x");
    loose->AddChild(doc.CreateElement("C", "y"));
  }
  EXPECT_LE(CXmlElement::GetArenaBlockCount(), before + 1);
}

TEST(XmlDocument, SaveWritesTheBytesAndReplacesAnOldFile) {
  testutil::TempDir dir;
  const std::string path = dir.File("b.xml");
  testutil::WriteBytes(path, std::string(100000, 'o'));
  CXmlDocument doc("BATCH");
  doc.AddToRoot(doc.CreateElement("F", "x"));
  ASSERT_TRUE(doc.SaveToFile(path));
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

TEST(XmlDocument, SaveFailsQuietly) {
  testutil::TempDir dir;
  CXmlDocument doc("BATCH");
  const std::string missing = dir.File("no/such/dir/b.xml");
  EXPECT_FALSE(doc.SaveToFile(missing));
  EXPECT_FALSE(std::filesystem::exists(missing));

  // A file held by another writer is not touched.
  const std::string held = dir.File("held.xml");
  testutil::WriteBytes(held, "keep");
  int fd = open(held.c_str(), O_RDWR);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
  EXPECT_FALSE(doc.SaveToFile(held));
  close(fd);
  EXPECT_EQ(testutil::ReadBytes(held), "keep");
}

}  // namespace
