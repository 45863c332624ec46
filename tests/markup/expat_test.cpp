// Documents as libexpat reads them.

#include <expat.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "markup/markup_document.h"
#include "support/sanitizers.h"

namespace {

constexpr int kDocuments = kAddressSanitizer || kThreadSanitizer ? 1'000 : 10'000;

/// A document as a sequence: "<NAME", "NAME=VALUE" for each attribute, "text", ">" for an end.
using Events = std::vector<std::string>;

/// What both readers report to.
class EventList {
  public:
    void Start(const std::string& name) {
        Flush();
        m_Events.push_back("<" + name);
        ++m_Depth;
    }
    void Attribute(const std::string& name, const std::string& value) {
        m_Events.push_back(name + "=" + value);
    }
    void Text(std::string_view text) {
        if (m_Depth > 0) m_Text += text;
    }
    void End() {
        Flush();
        m_Events.emplace_back(">");
        --m_Depth;
    }
    [[nodiscard]] const Events& All() const { return m_Events; }

  private:
    Events m_Events;
    std::string m_Text;
    int m_Depth = 0;

    void Flush() {
        if (!m_Text.empty()) m_Events.push_back("text " + m_Text);
        m_Text.clear();
    }
};

// --- libexpat ------------------------------------------------------------------------------------

struct ExpatReader {
    XML_Parser parser;
    EventList list;
};

void XMLCALL OnStart(void* user, const XML_Char* name, const XML_Char** attributes) {
    auto& reader = *static_cast<ExpatReader*>(user);
    reader.list.Start(name);
    // Behind these come those that only the document type has.
    const int written = XML_GetSpecifiedAttributeCount(reader.parser);
    for (int i = 0; i < written; i += 2) reader.list.Attribute(attributes[i], attributes[i + 1]);
}
void XMLCALL OnEnd(void* user, const XML_Char*) {
    static_cast<ExpatReader*>(user)->list.End();
}
void XMLCALL OnText(void* user, const XML_Char* text, int length) {
    static_cast<ExpatReader*>(user)->list.Text({text, static_cast<size_t>(length)});
}

/// Empty if it refuses the document; why is told then.
std::optional<Events> ReadByExpat(const std::string& text, std::string& error) {
    const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser{
        XML_ParserCreate(nullptr), XML_ParserFree};
    ExpatReader reader{parser.get(), {}};
    XML_SetUserData(parser.get(), &reader);
    XML_SetElementHandler(parser.get(), OnStart, OnEnd);
    XML_SetCharacterDataHandler(parser.get(), OnText);
    const int size = static_cast<int>(text.size());
    if (XML_Parse(parser.get(), text.data(), size, XML_TRUE) == XML_STATUS_OK)
        return reader.list.All();
    error = XML_ErrorString(XML_GetErrorCode(parser.get()));
    error += " at line " + std::to_string(XML_GetCurrentLineNumber(parser.get()));
    return std::nullopt;
}

// --- MarkupDocument ------------------------------------------------------------------------------

/// Each line end as a newline, as XML has it; the engine leaves them as they stand.
std::string WithNewlines(const std::string& text) {
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\r') {
            result += text[i];
        } else if (i + 1 == text.size() || text[i + 1] != '\n') {
            result += '\n';
        }
    }
    return result;
}

void ReportStart(const MarkupDocument& document, EventList& list) {
    const int32_t position = document.MainPosition();
    list.Start(std::string{document.GetNameOf(position)});
    std::string name;
    std::string value;
    for (int i = 0; document.GetAttributeAt(position, i, name, value); ++i)
        list.Attribute(name, value);
}

Events ReadByMarkup(MarkupDocument& document) {
    EventList list;
    for (;;) {
        const int32_t type =
            document.FindNextNode(kNodeElement | kNodeText | kNodeWhiteSpace | kNodeCdata);
        if (type == kNodeElement) {
            ReportStart(document, list);
            document.SetPositions(document.MainPosition(), 0, 0);
        } else if (type != 0) {
            list.Text(document.GetData());
        } else if (const int32_t parent = document.MainParent()) {
            list.End();
            document.SetPositions(document.GetParentOf(parent), parent, 0);
        } else {
            return list.All();
        }
    }
}

void ExpectSame(const std::string& text) {
    std::string error;
    const auto wanted = ReadByExpat(text, error);
    ASSERT_TRUE(wanted) << error;
    MarkupDocument document{WithNewlines(text)};
    EXPECT_TRUE(document.IsWellFormed()) << document.Result();
    EXPECT_EQ(document.Result(), "");
    const Events events = ReadByMarkup(document);
    for (size_t i = 0; i < std::min(events.size(), wanted->size()); ++i) {
        ASSERT_EQ(events[i], (*wanted)[i]) << "event " << i;
    }
    ASSERT_EQ(events.size(), wanted->size());
}

// --- Documents at random -------------------------------------------------------------------------

/// Makes well-formed documents.
class Writer {
  public:
    explicit Writer(unsigned seed) : m_Random(seed) {}

    std::string Document() {
        m_Text.clear();
        if (OneOf(2)) m_Text += "<?xml version=\"1.0\" encoding='UTF-8'?>";
        Between();
        if (OneOf(3)) {
            m_Text +=
                Any({"<!DOCTYPE r>", "<!DOCTYPE r SYSTEM \"a>b\">",
                     "<!DOCTYPE r [ <!ELEMENT r ANY> <!-- > ' --> <!ATTLIST r d CDATA '>\"'>\n"
                     "<?p > ?> <!NOTATION n SYSTEM \"]>\"> ]>"});
            Between();
        }
        Element(0);
        Between();
        return m_Text;
    }

  private:
    std::mt19937 m_Random;
    std::string m_Text;

    bool OneOf(unsigned count) { return m_Random() % count == 0; }
    const char* Any(std::initializer_list<const char*> texts) {
        return texts.begin()[m_Random() % texts.size()];
    }
    const char* Name() {
        return Any({"a", "b", "c", "x:y", "_1", "A", "a-b.c", "\xC3\xA9t\xC3\xA9", "\xE6\x96\x87"});
    }
    const char* White() { return Any({" ", "  ", "\n", "\r\n\t"}); }

    void Between() {
        while (OneOf(3)) {
            m_Text +=
                Any({" ", "\n", "\r\n", "<!---->", "<!-- <a> - > \" ' -->", "<?p?>", "<?p <a> ?>"});
        }
    }

    void Element(int depth) {
        const std::string name = Name();
        m_Text += "<" + name;
        Attributes();
        if (OneOf(4)) {
            m_Text += Any({"/>", " />", "\n/>"});
            return;
        }
        m_Text += Any({">", " >", "\t>"});
        for (unsigned count = m_Random() % 6; count > 0; --count) {
            if (depth < 8 && OneOf(2)) {
                Element(depth + 1);
            } else {
                m_Text +=
                    Any({"text", " ", "\n  ", "&amp;", "&lt;&gt;&quot;&apos;", "&#65;", "&#x1F600;",
                         "&#233;", "a > b", "\"'=/", "]] >", "\xC3\xA9\xE2\x82\xAC", "\r\n", "-->",
                         "<![CDATA[<a> &amp; ]] >]]>", "<![CDATA[]]>", "<!-- </a> -->", "<?p >?>"});
            }
        }
        m_Text += "</" + name + Any({">", " >", "\n>"});
    }

    void Attributes() {
        for (int number = 0; OneOf(2) && number < 5; ++number) {
            m_Text += White();
            m_Text += Any({"id", "n", "x:y", "\xC3\xA9"}) + std::to_string(number);
            m_Text += Any({"=", " = ", "=\n"});
            m_Text += Any({"''", "\"\"", "'a'", "\"a>b\"", "'/>'", "\"'\"", "'\"'", "' a  b '",
                           "'&lt;&amp;'", "\"&#38;&#x3C;\"", "'='", "\"a='b'\"", "'\xC3\xA9'",
                           "\"/\"", "'>&#10;'"});
        }
    }
};

// --- Documents of the machine --------------------------------------------------------------------

std::optional<std::string> Read(const std::filesystem::path& path) {
    std::ifstream file{path, std::ios::binary};
    if (!file) return std::nullopt;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

/// Whether the document is in UTF-8 and refers to no entity of its document type: those are read by XML
/// readers only.
bool IsSelfContained(const std::string& text) {
    const std::string head = text.substr(0, text.find("?>"));
    const size_t encoding = head.find("encoding=");
    if (encoding != head.npos && head.compare(encoding + 10, 5, "UTF-8") != 0 &&
        head.compare(encoding + 10, 5, "utf-8") != 0) {
        return false;
    }
    return text.find("<!ENTITY") == text.npos;
}

/// Compares the documents of a folder; skips the test if there is none.
void ExpectSameInFolder(const std::string& folder, const std::string& extension,
                        const std::string& package) {
    int compared = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::recursive_directory_iterator{folder, error}) {
        if (!entry.is_regular_file() || entry.path().extension() != extension) continue;
        const auto text = Read(entry.path());
        std::string reason;
        if (!text || !IsSelfContained(*text) || !ReadByExpat(*text, reason)) continue;
        ASSERT_NO_FATAL_FAILURE(ExpectSame(*text)) << entry.path();
        if (++compared == 500) break;
    }
    if (compared == 0) {
        GTEST_SKIP() << "no documents in " << folder << ": the package " << package
                     << " is not installed";
    }
    testing::Test::RecordProperty("documents", compared);
}

}  // namespace

TEST(Expat, ReadsTheSameInDocumentsMadeAtRandom) {
    Writer writer{4};
    for (int i = 0; i < kDocuments; ++i) {
        const std::string text = writer.Document();
        ASSERT_NO_FATAL_FAILURE(ExpectSame(text)) << text;
    }
}

TEST(Expat, RefusesWhatIsNotWellFormedHere) {
    for (const char* const text :
         {"<a>", "</a>", "<a></b>", "<a><b></a>", "<1a/>", "<a b='c>", "<!-- x", "<a/><![CDATA[",
          "<a><!x></a>", "<a><![x]]></a>", "<a/><?p", "<!DOCTYPE a [<!x>]><a/>"}) {
        std::string error;
        EXPECT_FALSE(ReadByExpat(text, error)) << text;
        EXPECT_FALSE(MarkupDocument{text}.IsWellFormed()) << text;
    }
}

TEST(Expat, ReadsTheSameInTheTypesOfFiles) {
    ExpectSameInFolder("/usr/share/mime", ".xml", "shared-mime-info");
}

TEST(Expat, ReadsTheSameInTheRulesOfKeyboards) {
    ExpectSameInFolder("/usr/share/X11/xkb/rules", ".xml", "xkb-data");
}

TEST(Expat, ReadsTheSameInTheNamesOfLanguages) {
    ExpectSameInFolder("/usr/share/unicode/cldr/common/main", ".xml", "unicode-cldr-core");
}

TEST(Expat, ReadsTheSameInTheCodesOfCountries) {
    ExpectSameInFolder("/usr/share/xml/iso-codes", ".xml", "iso-codes");
}

TEST(Expat, ReadsTheSameInTheCatalogsOfDocBook) {
    ExpectSameInFolder("/usr/share/xml/docbook", ".xml", "docbook-xml");
}
