// What documents cost beside pugixml (parse_minimal, in place), RapidXML (parse_fastest, in place),
// TinyXML-2, libxml2 and Expat, which makes no tree. The bytes are the same for all.
//
//   MarkupParse/D, PugixmlParse/D ...  a buffer into a tree; what comes before (a copy of the bytes, for
//                                      parsers that change them) and freeing are not counted
//   MarkupFirst/D, ...                 the same as the first parse of a process that was just started:
//                                      its memory comes from the kernel. "bytes" is how much of that
//                                      the parse took, by element; the text was there before
//   MarkupWalk/D, ...                  a visit of each element and a look at the first letter of its name;
//                                      MarkupMoves: by FindChild, EnterChild and the like
//   MarkupPath, ...                    the last of 500 siblings by its name
//   MarkupAnywhere, ...                the last of 6,000 elements by its name
//   MarkupAttributeFirst, ...Last      of 16 attributes
//
// Documents D: of Debian's packages mime (shared-mime-info), iso (iso-codes), xkb (xkb-data), cldr and
// annotations (unicode-cldr-core), and large: all main files of the latter under one element; made ones
// deep (towers of 10,000), wide, attributes, text.

#include <benchmark/benchmark.h>
#include <expat.h>
#include <fcntl.h>
#include <libxml/parser.h>
#include <malloc.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <tinyxml2.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <pugixml.hpp>
#include <rapidxml/rapidxml.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "markup/markup_document.h"
#include "support/processor_time.h"

namespace {

[[noreturn]] void Die(const std::string& what) {
    perror(what.c_str());
    exit(1);
}

// --- The documents -------------------------------------------------------------------------------

const std::filesystem::path kCldr = "/usr/share/unicode/cldr/common";

std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream file{path};
    if (!file) Die(path);
    return {std::istreambuf_iterator<char>{file}, {}};
}

/// The text from its root element on.
std::string_view WithoutProlog(std::string_view text) {
    const size_t root = text.find("<ldml");
    if (root == text.npos) Die("no root element");
    return text.substr(root);
}

std::string MakeLarge() {
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator{kCldr / "main"}) {
        if (entry.path().extension() == ".xml") paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    std::string text = "<all>\n";
    for (const auto& path : paths) text.append(WithoutProlog(ReadFile(path)));
    return text.append("</all>\n");
}

std::string MakeDeep() {
    constexpr int kTowers = 20;
    constexpr int kDepth = 10000;
    std::string text = "<root>";
    for (int tower = 0; tower < kTowers; ++tower) {
        for (int i = 0; i < kDepth; ++i) text.append("<level>");
        for (int i = 0; i < kDepth; ++i) text.append("</level>\n");
    }
    return text.append("</root>");
}

std::string MakeWide() {
    std::string text = "<root>\n";
    for (int i = 0; i < 200000; ++i) {
        text.append("<item>").append(std::to_string(i)).append("</item>\n");
    }
    return text.append("</root>");
}

std::string StartTagOf16() {
    std::string text = "<element";
    for (int i = 0; i < 16; ++i) {
        const std::string number = std::to_string(10 + i);
        text.append(" attribute").append(number).append("=\"value ").append(number).append("\"");
    }
    return text;
}

std::string MakeAttributes() {
    std::string text = "<root>\n";
    for (int i = 0; i < 20000; ++i) text.append(StartTagOf16()).append("/>\n");
    return text.append("</root>");
}

std::string MakeText() {
    std::string paragraph = "<p>";
    while (paragraph.size() < 4000) paragraph.append("The quick brown fox jumps over a lazy dog. ");
    paragraph.append("</p>\n");
    std::string text = "<root>\n";
    for (int i = 0; i < 2500; ++i) text.append(paragraph);
    return text.append("</root>");
}

std::string MakeSiblings() {
    std::string text = "<list><group>";
    for (int i = 0; i < 500; ++i) text.append("<item").append(std::to_string(i)).append("/>");
    return text.append("</group></list>");
}

std::string MakeGroups() {
    std::string text = "<root>";
    for (int group = 1; group < 60; ++group) {
        text.append("<group>");
        for (int i = 0; i < 100; ++i) text.append("<item>text</item>");
        text.append("</group>");
    }
    return text.append("<wanted/></root>");
}

struct Document {
    std::string name;
    std::string text;
    int fd = -1;  ///< with its bytes, for child processes
};

void PutIntoMemory(Document& document) {
    document.fd = memfd_create(document.name.c_str(), 0);
    size_t done = 0;
    while (done < document.text.size()) {
        const ssize_t count =
            write(document.fd, document.text.data() + done, document.text.size() - done);
        if (count <= 0) Die("memfd");
        done += static_cast<size_t>(count);
    }
}

std::vector<Document> MakeDocuments() {
    std::vector<Document> documents{
        {"mime", ReadFile("/usr/share/mime/packages/freedesktop.org.xml")},
        {"iso", ReadFile("/usr/share/xml/iso-codes/iso_639-3.xml")},
        {"xkb", ReadFile("/usr/share/X11/xkb/rules/base.xml")},
        {"cldr", ReadFile(kCldr / "main/en.xml")},
        {"annotations", ReadFile(kCldr / "annotations/en.xml")},
        {"large", MakeLarge()},
        {"deep", MakeDeep()},
        {"wide", MakeWide()},
        {"attributes", MakeAttributes()},
        {"text", MakeText()}};
    for (Document& document : documents) PutIntoMemory(document);
    return documents;
}

// --- The parsers ---------------------------------------------------------------------------------

class Parser {
  public:
    Parser() = default;
    virtual ~Parser() = default;
    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;

    /// Frees what the last parse made.
    virtual void Clear() = 0;
    /// Takes the bytes as the parser wants them.
    virtual void Take(std::string text) = 0;
    /// What is measured. False if the document is refused.
    virtual bool Parse() = 0;
    /// How many elements were found.
    virtual size_t Count() = 0;
};

/// Visits all elements below the top. `Links` gives the first child and the next sibling that are
/// elements, and the parent, of a node; a false one is none.
template <typename Links, typename Node>
size_t Walk(const Links& links, Node top, size_t* letters = nullptr) {
    size_t count = 0;
    Node node = links.FirstChild(top);
    while (node) {
        ++count;
        if (letters != nullptr) *letters += static_cast<size_t>(*links.Name(node));
        if (const Node child = links.FirstChild(node)) {
            node = child;
            continue;
        }
        while (!links.NextSibling(node)) {
            node = links.Parent(node);
            if (node == top) return count;
        }
        node = links.NextSibling(node);
    }
    return count;
}

struct MarkupParser : Parser {
    MarkupDocument document;
    std::string bytes;

    void Clear() override { document.SetDocumentText(nullptr); }
    void Take(std::string text) override { bytes = std::move(text); }
    bool Parse() override { return document.SetDocumentText(std::move(bytes)); }
    size_t Count() override { return static_cast<size_t>(document.GetElementCount()); }
};

struct PugixmlLinks {
    static pugi::xml_node Element(pugi::xml_node node) {
        while (node && node.type() != pugi::node_element) node = node.next_sibling();
        return node;
    }
    static pugi::xml_node FirstChild(pugi::xml_node node) { return Element(node.first_child()); }
    static pugi::xml_node NextSibling(pugi::xml_node node) { return Element(node.next_sibling()); }
    static pugi::xml_node Parent(pugi::xml_node node) { return node.parent(); }
    static const char* Name(pugi::xml_node node) { return node.name(); }
};

struct PugixmlParser : Parser {
    pugi::xml_document document;
    std::string bytes;

    void Clear() override { document.reset(); }
    void Take(std::string text) override { bytes = std::move(text); }
    bool Parse() override {
        return bool{document.load_buffer_inplace(bytes.data(), bytes.size(), pugi::parse_minimal,
                                                 pugi::encoding_utf8)};
    }
    size_t Count() override { return Walk(PugixmlLinks{}, pugi::xml_node{document}); }
};

using RapidxmlNode = rapidxml::xml_node<>*;

struct RapidxmlLinks {
    static RapidxmlNode Element(RapidxmlNode node) {
        while (node != nullptr && node->type() != rapidxml::node_element) {
            node = node->next_sibling();
        }
        return node;
    }
    static RapidxmlNode FirstChild(RapidxmlNode node) { return Element(node->first_node()); }
    static RapidxmlNode NextSibling(RapidxmlNode node) { return Element(node->next_sibling()); }
    static RapidxmlNode Parent(RapidxmlNode node) { return node->parent(); }
    static const char* Name(RapidxmlNode node) { return node->name(); }
};

struct RapidxmlParser : Parser {
    rapidxml::xml_document<> document;
    std::string bytes;

    void Clear() override { document.clear(); }
    void Take(std::string text) override { bytes = std::move(text); }
    bool Parse() override {
        document.parse<rapidxml::parse_fastest>(bytes.data());
        return true;
    }
    size_t Count() override { return Walk(RapidxmlLinks{}, RapidxmlNode{&document}); }
};

struct TinyxmlParser : Parser {
    tinyxml2::XMLDocument document;
    std::string bytes;

    void Clear() override { document.Clear(); }
    void Take(std::string text) override { bytes = std::move(text); }
    bool Parse() override {
        return document.Parse(bytes.data(), bytes.size()) == tinyxml2::XML_SUCCESS;
    }
    size_t Count() override {
        struct Counter : tinyxml2::XMLVisitor {
            size_t count = 0;
            bool VisitEnter(const tinyxml2::XMLElement& /*element*/,
                            const tinyxml2::XMLAttribute* /*attribute*/) override {
                ++count;
                return true;
            }
        } counter;
        document.Accept(&counter);
        return counter.count;
    }
};

struct LibxmlParser : Parser {
    std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document{nullptr, &xmlFreeDoc};
    std::string bytes;

    void Clear() override { document.reset(); }
    void Take(std::string text) override { bytes = std::move(text); }
    bool Parse() override {
        document.reset(xmlReadMemory(
            bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr,
            XML_PARSE_HUGE | XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
        return document != nullptr;
    }
    size_t Count() override {
        size_t count = 0;
        xmlNode* node = xmlDocGetRootElement(document.get());
        while (node != nullptr) {
            if (node->type == XML_ELEMENT_NODE) ++count;
            if (node->type == XML_ELEMENT_NODE && node->children != nullptr) {
                node = node->children;
                continue;
            }
            while (node != nullptr && node->next == nullptr) node = node->parent;
            if (node != nullptr) node = node->next;
        }
        return count;
    }
};

struct ExpatParser : Parser {
    std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser{nullptr, &XML_ParserFree};
    std::string bytes;
    size_t count = 0;

    void Clear() override { parser.reset(); }
    void Take(std::string text) override { bytes = std::move(text); }
    bool Parse() override {
        count = 0;
        parser.reset(XML_ParserCreate(nullptr));
        XML_SetUserData(parser.get(), &count);
        XML_SetElementHandler(
            parser.get(),
            [](void* elements, const XML_Char*, const XML_Char**) {
                ++*static_cast<size_t*>(elements);
            },
            [](void*, const XML_Char*) {});
        return XML_Parse(parser.get(), bytes.data(), static_cast<int>(bytes.size()), 1) ==
               XML_STATUS_OK;
    }
    size_t Count() override { return count; }
};

template <typename Made>
std::unique_ptr<Parser> Make() {
    return std::make_unique<Made>();
}

struct ParserRow {
    std::string_view name;
    std::unique_ptr<Parser> (*make)();
};

constexpr std::array kParsers{
    ParserRow{"Markup", Make<MarkupParser>},     ParserRow{"Pugixml", Make<PugixmlParser>},
    ParserRow{"Rapidxml", Make<RapidxmlParser>}, ParserRow{"Tinyxml", Make<TinyxmlParser>},
    ParserRow{"Libxml", Make<LibxmlParser>},     ParserRow{"Expat", Make<ExpatParser>}};

// --- Parsing -------------------------------------------------------------------------------------

size_t CountOfMarkup(const Document& document) {
    MarkupParser parser;
    parser.Take(document.text);
    if (!parser.Parse()) Die(document.name + ": " + parser.document.Result());
    return parser.Count();
}

void ParseWarm(benchmark::State& state, const ParserRow& row, const Document& document) {
    const auto parser = row.make();
    parser->Take(document.text);
    (void)parser->Parse();
    for (auto _ : state) {
        parser->Clear();
        parser->Take(document.text);
        bool isDone = false;
        state.SetIterationTime(ProcessorSecondsOf([&] { isDone = parser->Parse(); }));
        if (!isDone) return state.SkipWithError("refused");
    }
    if (parser->Count() != CountOfMarkup(document)) Die("other elements: " + document.name);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(document.text.size()));
}

/// What a first parse has cost.
struct First {
    double seconds = 0;
    double bytes = 0;
    double elements = 0;  ///< 0: refused
};

/// Bytes of memory that are this process's own.
double OwnMemory() {
    static std::array<char, 4096> text;
    const int fd = open("/proc/self/smaps_rollup", O_RDONLY | O_CLOEXEC);
    const ssize_t count = read(fd, text.data(), text.size() - 1);
    (void)close(fd);
    const char* const line = count > 0 ? strstr(text.data(), "\nAnonymous:") : nullptr;
    if (line == nullptr) Die("smaps_rollup");
    return 1024.0 * static_cast<double>(atol(line + strlen("\nAnonymous:")));
}

std::string ReadFrom(int fd) {
    std::string text(static_cast<size_t>(lseek(fd, 0, SEEK_END)), '\0');
    for (size_t done = 0; done < text.size();) {
        const ssize_t count =
            pread(fd, text.data() + done, text.size() - done, static_cast<off_t>(done));
        if (count <= 0) Die("memfd");
        done += static_cast<size_t>(count);
    }
    return text;
}

/// The new process: PARSER and the descriptors of the document and of the result are its arguments.
int RunFirst(char** arguments) {
    const std::string_view name = arguments[0];
    const auto* const row = std::find_if(kParsers.begin(), kParsers.end(),
                                         [name](const ParserRow& r) { return r.name == name; });
    const auto parser = row->make();
    parser->Take(ReadFrom(atoi(arguments[1])));
    const double before = OwnMemory();
    bool isDone = false;
    First first;
    first.seconds = ProcessorSecondsOf([&] { isDone = parser->Parse(); });
    first.bytes = OwnMemory() - before;
    if (isDone) first.elements = static_cast<double>(parser->Count());
    return write(atoi(arguments[2]), &first, sizeof first) == sizeof first ? 0 : 1;
}

First StartFirst(const ParserRow& row, const Document& document) {
    int ends[2];
    if (pipe(ends) != 0) Die("pipe");
    std::string name{row.name};
    std::string text = std::to_string(document.fd);
    std::string out = std::to_string(ends[1]);
    std::string program = "markup_bench";
    std::string option = "--first";
    std::array<char*, 6> arguments{program.data(), option.data(), name.data(),
                                   text.data(),    out.data(),    nullptr};
    pid_t child = 0;
    if (posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, arguments.data(), environ) != 0) {
        Die("spawn");
    }
    First first;
    if (read(ends[0], &first, sizeof first) != sizeof first) Die("child");
    (void)waitpid(child, nullptr, 0);
    (void)close(ends[0]);
    (void)close(ends[1]);
    return first;
}

void ParseFirst(benchmark::State& state, const ParserRow& row, const Document& document) {
    First first;
    for (auto _ : state) {
        first = StartFirst(row, document);
        if (first.elements == 0) return state.SkipWithError("refused");
        state.SetIterationTime(first.seconds);
    }
    state.counters["bytes"] = first.bytes / first.elements;
    state.counters["elements"] = first.elements;
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(document.text.size()));
}

// --- Finding -------------------------------------------------------------------------------------

template <typename Made>
struct Parsed : Made {
    explicit Parsed(std::string text) {
        Made::Take(std::move(text));
        if (!Made::Parse()) Die("refused");
    }
};

void Add(const std::string& name, std::function<void()> work) {
    benchmark::RegisterBenchmark(name.c_str(), [work = std::move(work)](benchmark::State& state) {
        for (auto _ : state) work();
    });
}

size_t WalkByMoves(MarkupDocument& document) {
    size_t count = 0;
    document.ResetPosition();
    if (!document.FindSibling()) return 0;
    for (;;) {
        ++count;
        if (document.FindChild()) {
            document.EnterChild();
            continue;
        }
        while (!document.FindSibling()) {
            if (!document.LeaveToParent()) return count;
        }
    }
}

void AddWalks(const Document& document) {
    const auto markup = std::make_shared<Parsed<MarkupParser>>(document.text);
    const auto pugixml = std::make_shared<Parsed<PugixmlParser>>(document.text);
    const auto rapidxml = std::make_shared<Parsed<RapidxmlParser>>(document.text);
    Add("MarkupWalk/" + document.name, [markup] {
        const MarkupDocument& parsed = markup->document;
        size_t letters = 0;
        for (int32_t at = 0; (at = parsed.GetFollowing(at)) != 0;) {
            letters += static_cast<size_t>(
                parsed.GetDocumentText()[static_cast<size_t>(parsed.PositionOf(at).start) + 1]);
        }
        benchmark::DoNotOptimize(letters);
    });
    Add("MarkupMoves/" + document.name,
        [markup] { benchmark::DoNotOptimize(WalkByMoves(markup->document)); });
    Add("PugixmlWalk/" + document.name, [pugixml] {
        size_t letters = 0;
        benchmark::DoNotOptimize(Walk(PugixmlLinks{}, pugi::xml_node{pugixml->document}, &letters));
        benchmark::DoNotOptimize(letters);
    });
    Add("RapidxmlWalk/" + document.name, [rapidxml] {
        size_t letters = 0;
        benchmark::DoNotOptimize(
            Walk(RapidxmlLinks{}, RapidxmlNode{&rapidxml->document}, &letters));
        benchmark::DoNotOptimize(letters);
    });
}

void AddPaths() {
    const auto markup = std::make_shared<Parsed<MarkupParser>>(MakeSiblings());
    const auto pugixml = std::make_shared<Parsed<PugixmlParser>>(MakeSiblings());
    const auto rapidxml = std::make_shared<Parsed<RapidxmlParser>>(MakeSiblings());
    Add("MarkupPath", [markup] {
        if (!markup->document.FindSibling("/list/group/item499")) Die("path");
    });
    Add("PugixmlPath", [pugixml] {
        if (!pugixml->document.child("list").child("group").child("item499")) Die("path");
    });
    Add("RapidxmlPath", [rapidxml] {
        if (rapidxml->document.first_node("list")->first_node("group")->first_node("item499") ==
            nullptr) {
            Die("path");
        }
    });
}

RapidxmlNode FindBelow(RapidxmlNode top, std::string_view name) {
    for (RapidxmlNode node = top->first_node(); node != nullptr; node = node->next_sibling()) {
        if (std::string_view{node->name(), node->name_size()} == name) return node;
        if (RapidxmlNode const found = FindBelow(node, name)) return found;
    }
    return nullptr;
}

void AddAnywhere() {
    const auto markup = std::make_shared<Parsed<MarkupParser>>(MakeGroups());
    const auto pugixml = std::make_shared<Parsed<PugixmlParser>>(MakeGroups());
    const auto rapidxml = std::make_shared<Parsed<RapidxmlParser>>(MakeGroups());
    Add("MarkupAnywhere", [markup] {
        markup->document.ResetPosition();
        if (!markup->document.FindSibling("//wanted")) Die("anywhere");
    });
    Add("PugixmlAnywhere", [pugixml] {
        const auto isWanted = [](const pugi::xml_node& node) {
            return strcmp(node.name(), "wanted") == 0;
        };
        if (!pugixml->document.find_node(isWanted)) Die("anywhere");
    });
    Add("RapidxmlAnywhere", [rapidxml] {
        if (FindBelow(&rapidxml->document, "wanted") == nullptr) Die("anywhere");
    });
}

void AddAttributes(const std::string& which, const char* name) {
    const std::string text = StartTagOf16() + "/>";
    const auto markup = std::make_shared<Parsed<MarkupParser>>(text);
    const auto pugixml = std::make_shared<Parsed<PugixmlParser>>(text);
    const auto rapidxml = std::make_shared<Parsed<RapidxmlParser>>(text);
    markup->document.FindSibling();
    Add("MarkupAttribute" + which, [markup, asked = std::string_view{name}] {
        if (markup->document.GetAttribute(asked).size() != 8) Die("attribute");
    });
    const auto pugixmlNode = pugixml->document.first_child();
    Add("PugixmlAttribute" + which, [pugixml, pugixmlNode, name] {
        if (*pugixmlNode.attribute(name).value() == '\0') Die("attribute");
    });
    RapidxmlNode const rapidxmlNode = rapidxml->document.first_node();
    Add("RapidxmlAttribute" + which, [rapidxml, rapidxmlNode, name] {
        if (rapidxmlNode->first_attribute(name)->value_size() != 8) Die("attribute");
    });
}

using ParseFunction = void(benchmark::State&, const ParserRow&, const Document&);

void AddParse(const std::string& name, ParseFunction* parse, const ParserRow& row,
              const Document& document) {
    const auto run = [parse, &row, &document](benchmark::State& state) {
        parse(state, row, document);
    };
    benchmark::RegisterBenchmark(name.c_str(), run)->UseManualTime();
}

void AddAll(const std::vector<Document>& documents) {
    for (const Document& document : documents) {
        for (const ParserRow& row : kParsers) {
            const std::string parser{row.name};
            AddParse(parser + "Parse/" + document.name, ParseWarm, row, document);
            AddParse(parser + "First/" + document.name, ParseFirst, row, document);
        }
        AddWalks(document);
    }
    AddPaths();
    AddAnywhere();
    AddAttributes("First", "attribute10");
    AddAttributes("Last", "attribute25");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 5 && std::string_view{argv[1]} == "--first") return RunFirst(argv + 2);
    // What was freed stays with the process, for each of the parsers.
    (void)mallopt(M_MMAP_THRESHOLD, 1 << 30);
    (void)mallopt(M_TRIM_THRESHOLD, 1 << 30);
    benchmark::Initialize(&argc, argv);
    const std::vector<Document> documents = MakeDocuments();
    AddAll(documents);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
