// The XML archive: what it writes, what it reads back, and what it refuses.
#include <gmock/gmock.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <climits>
#include <map>
#include <optional>

#include "persist_xml.h"
#include "random.h"
#include "tempdir.h"

namespace {

using eternity::archive;
using eternity::xml_archive;
using Elements = std::vector<std::pair<std::string, std::string>>;

constexpr char START[] = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<archive>\n";
constexpr char FILE_NAME[] = "a.xml";

// Opens what only a derived archive sees: the depth, the branches, the parser.
class OpenArchive : public xml_archive {
 public:
  using xml_archive::m_dBranches;
  using xml_archive::m_nTab;

  // As open for loading, without the way over the disk.
  void parse(const std::string& bytes) {
    done();
    m_pCurElement = m_oParser.parse(bytes, "archive");
  }
};

class ArchiveTest : public testing::Test {
 protected:
  // The file with these elements, as it is written.
  std::string store(const Elements& elements) {
    xml.open(FILE_NAME, archive::store);
    for (const auto& [key, text] : elements) {
      std::string copy = text;
      xml.write<char*>(key, copy.data());
    }
    xml.done();
    EXPECT_FALSE(xml.failed());
    return readWhole(FILE_NAME);
  }

  // The message of the exception with which reading `bytes` ends, or an empty text.
  std::string refusal(const std::string& bytes) {
    try {
      xml.parse(bytes);
      return {};
    } catch (const eternity::exception& e) {
      EXPECT_TRUE(xml.is_loading());
      EXPECT_THROW(text("a"), eternity::exception);
      return e.what();
    }
  }

  std::string text(const std::string& key, int index = 0) {
    std::string value;
    xml.read(key, value, index);
    return value;
  }

  std::optional<int> number(const std::string& key) {
    int value = 123456;
    try {
      xml.read(key, value, 0);
      return value;
    } catch (const eternity::exception&) {
      EXPECT_EQ(value, 123456);
      return std::nullopt;
    }
  }

  TempDir dir;
  OpenArchive xml;
};

std::string frame(const std::string& inside) {
  return START + inside + "</archive>\n";
}

// A text that mixes what is special to XML with any byte but 0, or any that is printable.
std::string randomText(Random& random, bool printable = false) {
  std::string text;
  for (unsigned int n = random.below(40); n > 0; --n) {
    text += random.oneIn(2) ? "<>&;#/'\" \t\n]-!?archive"[random.below(22)]
                            : static_cast<char>(static_cast<unsigned char>(
                                  printable ? random.between(' ', '~') : random.between(1, 255)));
  }
  return text;
}

TEST_F(ArchiveTest, FileIsTheDocumentedTextAndDoneTwiceEndsItOnce) {
  char unit[] = " Unit 1 <&>\r";
  xml.open(FILE_NAME, archive::store);
  EXPECT_FALSE(xml.is_loading());
  xml.write<int>("CV-1234-I-0", INT_MIN);
  xml.write<char*>("CV-90-I-0", unit);
  xml.write<char*>("CV-90-I-1", nullptr);
  const std::string body =
      "<CV-1234-I-0>-2147483648</CV-1234-I-0>\n"
      "<CV-90-I-0> Unit 1 &lt;&amp;&gt;&#13;</CV-90-I-0>\n"
      "<CV-90-I-1></CV-90-I-1>\n";
  EXPECT_EQ(readWhole(FILE_NAME), START + body) << "each element is flushed";
  EXPECT_THROW(text("CV-90-I-0"), eternity::exception) << "it is no archive for reading";
  EXPECT_THROW(xml.write<int>("", 1), eternity::exception) << "no name";
  xml.m_nTab = 2;
  xml.write<int>("deep", 1);
  xml.done();
  xml.done();
  EXPECT_TRUE(xml.is_loading());
  EXPECT_EQ(readWhole(FILE_NAME), frame(body + "\t\t<deep>1</deep>\n"));
  EXPECT_THAT(
      [this] { xml.write<int>("a", 1); },
      testing::ThrowsMessage<eternity::exception>("write attempt on an archive open for loading."));
}

TEST_F(ArchiveTest, EveryTextComesBackByteForByte) {
  Random random(1);
  for (int round = 0; round < 60; ++round) {
    Elements elements;
    for (unsigned int i = 0; i < 40; ++i) {
      // Names that are prefixes of one another, some of them twice.
      elements.emplace_back("CV-" + std::to_string(random.below(30)),
                            randomText(random, round == 0));
    }
    store(elements);
    if (round == 0) {
      EXPECT_EQ(std::system("xmllint --noout a.xml >&2"), 0) << "not well-formed, or no xmllint";
    }
    xml.open(FILE_NAME, archive::load);
    std::map<std::string, int> seen;
    for (const auto& [key, value] : elements) {
      ASSERT_EQ(text(key, seen[key]++), value);
    }
    for (const auto& [key, count] : seen) {
      EXPECT_THROW(text(key, count), eternity::exception);
      EXPECT_THROW(text(key, -1), eternity::exception);
    }
  }
}

TEST_F(ArchiveTest, ReadsPlainAndEditedFiles) {
  const std::pair<std::string, std::string> cases[] = {
      {"<a>R&D & &amp &amp; &;</a>", "R&D & &amp & &;"},
      {"<a>&nbsp;&#256;&#0;&#x0;&#;&#x;&#-1;&#1a;</a>", "&nbsp;&#256;&#0;&#x0;&#;&#x;&#-1;&#1a;"},
      {"<a>&#13;&#xE9;&quot;&apos;&lt;&gt;</a>", "\r\xE9\"'<>"},
      {"<a>a<b</a>", "a<b"},
      {"<a></</a>", "</"},
      {"<a>x<b>y</b></c></ab></a>", "x<b>y</b></c></ab>"},
      {"<a><aa>]]></a>", "<aa>]]>"},
      {"<a> \r\n\t two  lines \n</a>", " \r\n\t two  lines \n"},
      {"<a/>", ""},
      {"<a x=\"1>\" y = 'b/'>t</a >", "t"},
      {"<!-- <a>0</a> --> <a>t</a><?p <a> ?>", "t"},
      {"<b>1</b>\r\n\r\n  <a>t</a>  <c></c>", "t"},
  };
  for (const auto& [element, value] : cases) {
    ASSERT_EQ(refusal(frame(element)), "") << element;
    EXPECT_EQ(text("a"), value) << element;
  }
  for (const std::string start :
       {"\xEF\xBB\xBF<archive>", "\n<archive x='1'>",
        "<?xml version='1.0'?><!DOCTYPE archive [<!ELEMENT a (b)>]><archive>"}) {
    EXPECT_EQ(refusal(start + "</archive> <!-- end -->\n"), "") << start;
  }
  EXPECT_EQ(refusal("<archive/>"), "");
}

TEST_F(ArchiveTest, NumbersAreWholeAndFitIn32Bits) {
  const std::pair<std::string, int> numbers[] = {
      {"0", 0},   {"-3", -3}, {" \r\n\t 42\n", 42}, {"2147483647", INT_MAX},
      {"007", 7}, {"-0", 0},  {"&#52;2", 42},       {"-2147483648", INT_MIN}};
  for (const auto& [text, value] : numbers) {
    ASSERT_EQ(refusal(frame("<a>" + text + "</a>")), "");
    EXPECT_EQ(number("a"), value) << text;
  }
  for (const std::string text : {"", " ", "2147483648", "-2147483649", "4 2", "42x", "4.0", "0x10",
                                 "+1", "--1", "- 1", "99999999999999999999", "4<!-- -->2", "\v1"}) {
    ASSERT_EQ(refusal(frame("<a>" + text + "</a>")), "");
    EXPECT_EQ(number("a"), std::nullopt) << text;
  }
  EXPECT_EQ(number("b"), std::nullopt);
}

TEST_F(ArchiveTest, BrokenFramesAreRefused) {
  for (const std::string file :
       {"", "archive", "<other><a>1</a></other>", "<!DOCTYPE archive [", "<archive/><b>2</b>",
        "<archive/>rest of an older file", "<archive/></archive>"}) {
    EXPECT_NE(refusal(file), "") << file;
  }
  for (const std::string inside :
       {"text", "<a>1</b>", "<a>one</b>\n<a>two</a>", "<a>one</b>\n<a x='1'>two</a>",
        "<a>one<a</a>", "</a>", "<a x>1</a>", "<a x=1>1</a>", "<a x='1>1</a>", "<>1</>", "<a/1</a>",
        "<!-- <a>1</a>", "<a>1</a><?p"}) {
    EXPECT_NE(refusal(frame(inside)), "") << inside;
  }
  EXPECT_EQ(refusal(frame("\ntext")), "text outside of an element, line 4");
  // A large text is read once, and not from each of its near tags on.
  for (const std::string nearTag : {"<a", "</a", "&"}) {
    std::string large = "<a>";
    for (int i = 0; i < 500000; ++i) {
      large += nearTag;
    }
    EXPECT_EQ(refusal(frame(large + "x</a>")), "");
  }
}

// What a process with glibc has allocated; a sanitizer's own heap shows nothing.
std::size_t heap() {
  const auto info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

TEST_F(ArchiveTest, AFileHasALimitAndItsElementsCostLittle) {
  std::string many = "<archive>";
  for (int i = 0; i < 100000; ++i) {
    many += "<a/>";
  }
  const std::size_t before = heap();
  EXPECT_EQ(refusal(many + "</archive>"), "");
  EXPECT_LT(heap() - before, 12 * many.size());
  std::string text(1 << 20, 'x');
  xml.open(FILE_NAME, archive::store);
  for (int i = 0; i < 15; ++i) {
    xml.write<char*>("a", text.data());
  }
  EXPECT_THROW(xml.write<char*>("a", text.data()), eternity::exception);
  xml.write<int>("b", 7);
  xml.done();
  xml.open(FILE_NAME, archive::load);
  EXPECT_EQ(number("b"), 7) << "all that may be written can be read";
  std::ofstream(FILE_NAME, std::ios::app) << text;
  EXPECT_THAT([this] { xml.open(FILE_NAME, archive::load); },
              testing::ThrowsMessage<eternity::exception>("a.xml is larger than 16777216 bytes"));
}

TEST_F(ArchiveTest, WhatIsNoReadableFileIsRefusedWithoutWaiting) {
  mkfifo("fifo", 0600);
  mkdir("directory", 0700);
  writeWhole("zeros", std::string(4096, '\0'));
  EXPECT_THROW(xml.open("zeros", archive::load), eternity::exception);
  for (const char* name : {"absent", "fifo", "directory", "/dev/zero", "", "/proc/self/mem"}) {
    EXPECT_THROW(xml.open(name, archive::load), eternity::unreadable) << name;
  }
  writeWhole("good", std::string(START) + "</archive>\n");
  rlimit files;
  getrlimit(RLIMIT_NOFILE, &files);
  const rlimit none = {0, files.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_THROW(xml.open("good", archive::load), eternity::unreadable) << "no more files at once";
  setrlimit(RLIMIT_NOFILE, &files);
  xml.open("good", archive::load);
  EXPECT_THROW(xml.open("directory", archive::store), eternity::exception);
  EXPECT_THROW(xml.write<int>("a", 1), eternity::exception) << "open has not reached store";
}

// A truncation is found. A damaged byte is found, or it changes nothing but the element that it is
// in; it never makes an element swallow another.
TEST_F(ArchiveTest, DamageIsFoundOrStaysInItsElement) {
  Random random(2);
  Elements elements;
  for (unsigned int i = 0; i < 12; ++i) {
    elements.emplace_back("CV-" + std::to_string(i), randomText(random));
  }
  const std::string whole = store(elements);
  for (std::size_t at = 0; at < whole.size(); ++at) {
    const std::string cut = whole.substr(0, at);
    ASSERT_EQ(refusal(cut).empty(), at + 1 == whole.size()) << "all but the last line break";
    // The same with the end that an archive puts behind a failed write.
    ASSERT_TRUE(!refusal(cut + "</archive>\n").empty() || cut.find_last_of(">\n") + 1 == at) << cut;
    for (const char damage : std::string("<>/&;!?-='\" \n0129CV") + randomText(random)) {
      std::string damaged = whole;
      damaged[at] = damage;
      if (!refusal(damaged).empty()) {
        continue;
      }
      std::size_t same = 0;
      for (const auto& [key, value] : elements) {
        try {
          const std::string got = text(key);
          same += got == value ? 1 : 0;
          ASSERT_LE(got.size(), value.size() + 5) << damaged;
        } catch (const eternity::exception&) {
        }
      }
      ASSERT_GE(same + 1, elements.size()) << damaged;
    }
  }
}

TEST_F(ArchiveTest, WritesAnyNameThatItReadsBackAndNoOther) {
  for (int c = 0; c <= 255; ++c) {
    const std::string letter(1, static_cast<char>(static_cast<unsigned char>(c)));
    const bool ends = std::string("\0\t\n\r \"&'/<=>", 12).find(letter) != std::string::npos;
    for (const std::string& name : {letter, "a" + letter + "b"}) {
      const bool refused = ends || name == "!" || name == "?";
      xml.open(FILE_NAME, archive::store);
      try {
        xml.write<int>(name, 5);
      } catch (const eternity::exception&) {
        EXPECT_TRUE(refused) << name;
      }
      xml.open(FILE_NAME, archive::load);
      EXPECT_EQ(number(name), refused ? std::nullopt : std::optional(5)) << name;
      EXPECT_EQ(readWhole(FILE_NAME) == frame(""), refused) << "a refused write writes nothing";
    }
  }
}

TEST_F(ArchiveTest, AnOpenBranchIsReportedByPointer) {
  xml.m_dBranches.push_back(nullptr);
  try {
    xml.done();
    ADD_FAILURE();
  } catch (eternity::exception* e) {
    const eternity::exception copy = *e;
    delete e;
    EXPECT_STREQ(
        copy.what(),
        "enter_branch()/leave_current_branch() or make_branch()/leave_current_branch() mismatch");
  }
  xml.done();
}

}  // namespace
