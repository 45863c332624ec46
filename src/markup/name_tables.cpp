// The lists come first, then what the compiler makes of them: the entries are counted into their
// buckets, the counts are summed up, and each entry is written where its bucket has grown to. So
// the entries of a bucket keep the order of the list.

#include "markup/name_tables.h"

#include <array>

#include "markup/characters.h"
#include "markup/name_compare.h"

namespace {

struct NamedNumber {
    std::string_view name;
    size_t number = 0;
};

// In the order of bytes, which puts upper case first.
constexpr NamedNumber kEntities[] = {
    {"AElig", 198},    {"Aacute", 193},  {"Acirc", 194},   {"Agrave", 192},  {"Alpha", 913},
    {"Aring", 197},    {"Atilde", 195},  {"Auml", 196},    {"Beta", 914},    {"Ccedil", 199},
    {"Chi", 935},      {"Dagger", 8225}, {"Delta", 916},   {"ETH", 208},     {"Eacute", 201},
    {"Ecirc", 202},    {"Egrave", 200},  {"Epsilon", 917}, {"Eta", 919},     {"Euml", 203},
    {"Gamma", 915},    {"Iacute", 205},  {"Icirc", 206},   {"Igrave", 204},  {"Iota", 921},
    {"Iuml", 207},     {"Kappa", 922},   {"Lambda", 923},  {"Mu", 924},      {"Ntilde", 209},
    {"Nu", 925},       {"OElig", 338},   {"Oacute", 211},  {"Ocirc", 212},   {"Ograve", 210},
    {"Omega", 937},    {"Omicron", 927}, {"Oslash", 216},  {"Otilde", 213},  {"Ouml", 214},
    {"Phi", 934},      {"Pi", 928},      {"Prime", 8243},  {"Psi", 936},     {"Rho", 929},
    {"Scaron", 352},   {"Sigma", 931},   {"THORN", 222},   {"Tau", 932},     {"Theta", 920},
    {"Uacute", 218},   {"Ucirc", 219},   {"Ugrave", 217},  {"Upsilon", 933}, {"Uuml", 220},
    {"Xi", 926},       {"Yacute", 221},  {"Yuml", 376},    {"Zeta", 918},    {"aacute", 225},
    {"acirc", 226},    {"acute", 180},   {"aelig", 230},   {"agrave", 224},  {"alefsym", 8501},
    {"alpha", 945},    {"amp", 38},      {"and", 8743},    {"ang", 8736},    {"apos", 39},
    {"aring", 229},    {"asymp", 8776},  {"atilde", 227},  {"auml", 228},    {"bdquo", 8222},
    {"beta", 946},     {"brvbar", 166},  {"bull", 8226},   {"cap", 8745},    {"ccedil", 231},
    {"cedil", 184},    {"cent", 162},    {"chi", 967},     {"circ", 710},    {"clubs", 9827},
    {"cong", 8773},    {"copy", 169},    {"crarr", 8629},  {"cup", 8746},    {"curren", 164},
    {"dArr", 8659},    {"dagger", 8224}, {"darr", 8595},   {"deg", 176},     {"delta", 948},
    {"diams", 9830},   {"divide", 247},  {"eacute", 233},  {"ecirc", 234},   {"egrave", 232},
    {"empty", 8709},   {"emsp", 8195},   {"ensp", 8194},   {"epsilon", 949}, {"equiv", 8801},
    {"eta", 951},      {"eth", 240},     {"euml", 235},    {"euro", 8364},   {"exist", 8707},
    {"fnof", 402},     {"forall", 8704}, {"frac12", 189},  {"frac14", 188},  {"frac34", 190},
    {"frasl", 8260},   {"gamma", 947},   {"ge", 8805},     {"gt", 62},       {"hArr", 8660},
    {"harr", 8596},    {"hearts", 9829}, {"hellip", 8230}, {"iacute", 237},  {"icirc", 238},
    {"iexcl", 161},    {"igrave", 236},  {"image", 8465},  {"infin", 8734},  {"int", 8747},
    {"iota", 953},     {"iquest", 191},  {"isin", 8712},   {"iuml", 239},    {"kappa", 954},
    {"lArr", 8656},    {"lambda", 955},  {"lang", 9001},   {"laquo", 171},   {"larr", 8592},
    {"lceil", 8968},   {"ldquo", 8220},  {"le", 8804},     {"lfloor", 8970}, {"lowast", 8727},
    {"loz", 9674},     {"lrm", 8206},    {"lsaquo", 8249}, {"lsquo", 8216},  {"lt", 60},
    {"macr", 175},     {"mdash", 8212},  {"micro", 181},   {"middot", 183},  {"minus", 8722},
    {"mu", 956},       {"nabla", 8711},  {"nbsp", 160},    {"ndash", 8211},  {"ne", 8800},
    {"ni", 8715},      {"not", 172},     {"notin", 8713},  {"nsub", 8836},   {"ntilde", 241},
    {"nu", 957},       {"oacute", 243},  {"ocirc", 244},   {"oelig", 339},   {"ograve", 242},
    {"oline", 8254},   {"omega", 969},   {"omicron", 959}, {"oplus", 8853},  {"or", 8744},
    {"ordf", 170},     {"ordm", 186},    {"oslash", 248},  {"otilde", 245},  {"otimes", 8855},
    {"ouml", 246},     {"para", 182},    {"part", 8706},   {"permil", 8240}, {"perp", 8869},
    {"phi", 966},      {"pi", 960},      {"piv", 982},     {"plusmn", 177},  {"pound", 163},
    {"prime", 8242},   {"prod", 8719},   {"prop", 8733},   {"psi", 968},     {"quot", 34},
    {"rArr", 8658},    {"radic", 8730},  {"rang", 9002},   {"raquo", 187},   {"rarr", 8594},
    {"rceil", 8969},   {"rdquo", 8221},  {"real", 8476},   {"reg", 174},     {"rfloor", 8971},
    {"rho", 961},      {"rlm", 8207},    {"rsaquo", 8250}, {"rsquo", 8217},  {"sbquo", 8218},
    {"scaron", 353},   {"sdot", 8901},   {"sect", 167},    {"shy", 173},     {"sigma", 963},
    {"sigmaf", 962},   {"sim", 8764},    {"spades", 9824}, {"sub", 8834},    {"sube", 8838},
    {"sum", 8721},     {"sup", 8835},    {"sup1", 185},    {"sup2", 178},    {"sup3", 179},
    {"supe", 8839},    {"szlig", 223},   {"tau", 964},     {"there4", 8756}, {"theta", 952},
    {"thetasym", 977}, {"thinsp", 8201}, {"thorn", 254},   {"tilde", 732},   {"times", 215},
    {"trade", 8482},   {"uArr", 8657},   {"uacute", 250},  {"uarr", 8593},   {"ucirc", 251},
    {"ugrave", 249},   {"uml", 168},     {"upsih", 978},   {"upsilon", 965}, {"uuml", 252},
    {"weierp", 8472},  {"xi", 958},      {"yacute", 253},  {"yen", 165},     {"yuml", 255},
    {"zeta", 950},     {"zwj", 8205},    {"zwnj", 8204}};

struct CodePage {
    size_t number;
    std::string_view names;  ///< with a blank between them
};

// Also "shifft_jis", and "cp1256" twice: documents and callers have what they have.
constexpr CodePage kCodePages[] = {
    {154, "cp154 csptcp154 cyrillic-asian pt154 ptcp154"},
    {437, "codepage437 cp437 cspc8 cspc8codepage437 ibm437"},
    {708, "asmo-708"},
    {720, "dos-720"},
    {737, "cp737 ibm737"},
    {775, "cp500 cp775 csibm500 cspc775baltic ebcdic-cp-be ebcdic-cp-ch ibm775"},
    {850, "cp850 cspc850multilingual ibm850"},
    {852, "cp852 cspcp852 ibm852"},
    {853, "cp853"},
    {855, "cp855 csibm855 ibm855"},
    {857, "cp857 csibm857 ibm857"},
    {858, "ccsid00858 cp00858 cp858 ibm00858 pc-multilingual-850+euro"},
    {860, "cp860 csibm860 ibm860"},
    {861, "cp-is cp861 csibm861 ibm861"},
    {862, "cp862 cspc862latinhebrew dos-862 ibm862"},
    {863, "cp863 csibm863 ibm863"},
    {864, "cp864 csibm864 ibm864"},
    {865, "cp865 csibm865 ibm865"},
    {866, "cp866 csibm866 ibm866"},
    {869, "cp-gr cp869 csibm869 ibm869"},
    {874, "cp874 dos-874 iso-8859-11 tis-620 windows-874"},
    {932,
     "cp932 csshiftjis cswindows31j ms932 ms_kanji shifft_jis shifft_jis-ms shift-jis shift_jis "
     "sjis sjis-ms sjis-open sjis-win windows-31j windows-932 x-ms-cp932 x-sjis"},
    {936,
     "chinese cn-gb cp936 csgb2312 csgb231280 csiso58gb231280 gb2312 gb2312-80 gb231280 gb_2312-80 "
     "gbk iso-ir-58 ms936 windows-936"},
    {949,
     "cp949 csksc56011987 iso-ir-149 korean ks-c-5601 ks-c5601 ks_c_5601 ks_c_5601-1987 "
     "ks_c_5601-1989 ks_c_5601_1987 ksc5601 ksc_5601 uhc"},
    {950, "big5 big5-hkscs cn-big5 cp950 csbig5 x-x-big5"},
    {1125, "cp1125"},
    {1133, "cp1133 ibm-cp1133"},
    {1200, "cp1200 ucs-2 ucs-2le unicode utf-16 utf-16le utf16 utf16le"},
    {1201, "cp1201 ucs-2be unicodefffe utf-16be utf16be"},
    {1250, "cp1250 ms-ee windows-1250 x-cp1250"},
    {1251, "cp1251 ms-cyrl windows-1251 x-cp1251"},
    {1252, "cp1252 ms-ansi windows-1252 x-ansi"},
    {1253, "cp1253 ms-greek windows-1253"},
    {1254, "cp1254 ms-turk windows-1254"},
    {1255, "cp1255 ms-hebr windows-1255"},
    {1256, "cp1256 cp1256 ms-arab windows-1256"},
    {1257, "cp1257 winbaltrim windows-1257"},
    {1258, "cp1258 windows-1258"},
    {1361, "cp1361 johab"},
    {10000, "csmacintosh mac macintosh"},
    {10001, "x-mac-japanese"},
    {10002, "x-mac-chinesetrad"},
    {10003, "x-mac-korean"},
    {10004, "x-mac-arabic"},
    {10005, "x-mac-hebrew"},
    {10006, "x-mac-greek"},
    {10007, "x-mac-cyrillic"},
    {10008, "x-mac-chinesesimp"},
    {10010, "x-mac-romanian"},
    {10017, "x-mac-ukrainian"},
    {10021, "x-mac-thai"},
    {10029, "x-mac-ce"},
    {10079, "x-mac-icelandic"},
    {10081, "x-mac-turkish"},
    {10082, "x-mac-croatian"},
    {12000, "cp12000 utf-32 utf-32le utf32 utf32le"},
    {12001, "cp12001 utf-32be utf32be"},
    {20000, "x-chinese-cns x-chinese_cns"},
    {20001, "x-cp20001"},
    {20002, "x-chinese-eten x_chinese-eten"},
    {20003, "x-cp20003"},
    {20004, "x-cp20004"},
    {20005, "x-cp20005"},
    {20105, "x-ia5"},
    {20106, "x-ia5-german"},
    {20107, "x-ia5-swedish"},
    {20108, "x-ia5-norwegian"},
    {20127,
     "ansi_x3.4-1968 ansi_x3.4-1986 ascii cp367 csascii ibm367 iso-ir-6 iso-ir-6us iso646-us "
     "iso_646.irv:1991 us us-ascii"},
    {20261, "x-cp20261"},
    {20269, "x-cp20269"},
    {20866, "cskoi8r koi koi8 koi8-r koi8r"},
    {20932, "cseucpkdfmtjapanese euc-jp extended_unix_code_packed_format_for_japanese"},
    {20936, "x-cp20936"},
    {20949, "x-cp20949"},
    {21866, "koi8-ru koi8-u"},
    {28591,
     "cp819 csisolatin1 ibm819 iso-8859-1 iso-ir-100 iso8859-1 iso_8859-1 iso_8859-1:1987 l1 "
     "latin1"},
    {28592, "csisolatin2 iso-8859-2 iso-ir-101 iso8859-2 iso_8859-2 iso_8859-2:1987 l2 latin2"},
    {28593, "csisolatin3 iso-8859-3 iso-ir-109 iso8859-3 iso_8859-3 iso_8859-3:1988 l3 latin3"},
    {28594, "csisolatin4 iso-8859-4 iso-ir-110 iso8859-4 iso_8859-4 iso_8859-4:1988 l4 latin4"},
    {28595,
     "csisolatin5 csisolatincyrillic cyrillic iso-8859-5 iso-ir-144 iso8859-5 iso_8859-5 "
     "iso_8859-5:1988"},
    {28596,
     "arabic csisolatinarabic ecma-114 iso-8859-6 iso-ir-127 iso8859-6 iso_8859-6 iso_8859-6:1987"},
    {28597,
     "csisolatingreek ecma-118 elot_928 greek greek8 iso-8859-7 iso-ir-126 iso8859-7 iso_8859-7 "
     "iso_8859-7:1987"},
    {28598,
     "csisolatinhebrew hebrew iso-8859-8 iso-ir-138 iso8859-8 iso_8859-8 iso_8859-8:1988 visual"},
    {28599, "iso-8859-9 iso-ir-148 iso8859-9 iso_8859-9 iso_8859-9:1989 l5 latin5"},
    {28603, "iso-8859-13 iso8859-13"},
    {28605, "iso-8859-15 iso8859-15 iso_8859-15 l9 latin-9 latin9"},
    {29001, "x-europa"},
    {38598, "iso-8859-8-i iso8859-8-i logical"},
    {50220, "iso-2022-jp"},
    {50221, "_iso-2022-jp cp50221 csiso2022jp iso-2022-jp-ms iso2022-jp-ms ms50221 windows-50221"},
    {50222, "_iso-2022-jp$sio"},
    {50225, "csiso2022kr iso-2022-kr iso2022-kr"},
    {50227, "x-cp50227"},
    {51932, "cp51932 ms51932 windows-51932 x-euc x-euc-jp"},
    {51936, "euc-cn x-euc-cn"},
    {51949, "cseuckr euc-kr"},
    {52936, "hz-gb-2312"},
    {54936, "gb18030 iso-4873:1986"},
    {57002, "x-iscii-de"},
    {57003, "x-iscii-be"},
    {57004, "x-iscii-ta"},
    {57005, "x-iscii-te"},
    {57006, "x-iscii-as"},
    {57007, "x-iscii-or"},
    {57008, "x-iscii-ka"},
    {57009, "x-iscii-ma"},
    {57010, "x-iscii-gu"},
    {57011, "x-iscii-pa"},
    {65000, "csunicode11utf7 unicode-1-1-utf-7 utf-7 x-unicode-2-0-utf-7"},
    {65001, "cp65001 unicode-1-1-utf-8 unicode-2-0-utf-8 utf-8 utf8 x-unicode-2-0-utf-8"},
};

consteval size_t CountEncodings() {
    size_t count = 0;
    for (const CodePage& page : kCodePages) {
        ++count;
        for (const char character : page.names) count += character == ' ' ? 1 : 0;
    }
    return count;
}

consteval auto ListEncodings() {
    std::array<NamedNumber, CountEncodings()> list;
    size_t count = 0;
    for (const CodePage& page : kCodePages) {
        size_t begin = 0;
        for (size_t at = 0; at <= page.names.size(); ++at) {
            if (at < page.names.size() && page.names[at] != ' ') continue;
            list[count++] = {page.names.substr(begin, at - begin), page.number};
            begin = at + 1;
        }
    }
    return list;
}

constexpr auto kEncodings = ListEncodings();

constexpr size_t SumOf(std::string_view name) {
    size_t sum = 0;
    for (const char character : name) sum += static_cast<unsigned char>(Lower(character));
    return sum;
}

constexpr size_t NumberOf(std::string_view digits) {
    size_t number = 0;
    for (const char digit : digits) number = number * 10 + static_cast<size_t>(digit - '0');
    return number;
}

consteval size_t SizeOf(std::span<const NamedNumber> entries, size_t digits) {
    size_t size = 0;
    for (const NamedNumber& entry : entries) size += digits + entry.name.size();
    return size;
}

template <size_t kSize, size_t kBuckets>
struct PackedNames {
    std::array<char, kSize> text{};
    std::array<uint16_t, kBuckets + 1> starts{};
};

template <size_t kCount>
constexpr void WriteNumber(std::array<char, kCount>& text, uint16_t& at, size_t number,
                           size_t digits) {
    for (size_t i = digits; i > 0; --i, number /= 10) {
        text[at + i - 1] = static_cast<char>('0' + number % 10);
    }
    if (number != 0) throw "a number has more digits than its place";
    at = static_cast<uint16_t>(at + digits);
}

template <size_t kSize, size_t kBuckets, size_t kLengthDigits, size_t kNumberDigits>
consteval auto Pack(std::span<const NamedNumber> entries) {
    static_assert(kSize <= UINT16_MAX);
    PackedNames<kSize, kBuckets> packed;
    for (const NamedNumber& entry : entries) {
        uint16_t& end = packed.starts[SumOf(entry.name) % kBuckets + 1];
        end = static_cast<uint16_t>(end + kLengthDigits + kNumberDigits + entry.name.size());
    }
    for (size_t i = 1; i <= kBuckets; ++i) {
        packed.starts[i] = static_cast<uint16_t>(packed.starts[i] + packed.starts[i - 1]);
    }
    auto ends = packed.starts;
    for (const NamedNumber& entry : entries) {
        uint16_t& at = ends[SumOf(entry.name) % kBuckets];
        WriteNumber(packed.text, at, entry.name.size(), kLengthDigits);
        WriteNumber(packed.text, at, entry.number, kNumberDigits);
        for (const char character : entry.name) packed.text[at++] = Lower(character);
    }
    return packed;
}

constexpr auto kPackedEntities = Pack<SizeOf(kEntities, 1 + 4), 130, 1, 4>(kEntities);
constexpr auto kPackedEncodings = Pack<SizeOf(kEncodings, 2 + 5), 155, 2, 5>(kEncodings);

consteval bool IsInOrder(std::span<const NamedNumber> entries) {
    for (size_t i = 1; i < entries.size(); ++i) {
        if (entries[i - 1].name >= entries[i].name) return false;
    }
    return true;
}

static_assert(std::size(kEntities) == 253);
static_assert(IsInOrder(kEntities));
static_assert(std::size(kCodePages) == 110);
static_assert(std::size(kEncodings) == 365);

template <size_t kSize, size_t kBuckets>
constexpr NameTable TableOf(const PackedNames<kSize, kBuckets>& packed, size_t lengthDigits,
                            size_t numberDigits) {
    return {{packed.text.data(), kSize}, packed.starts, lengthDigits, numberDigits};
}

}  // namespace

constinit const NameTable kEntityTable = TableOf(kPackedEntities, 1, 4);
constinit const NameTable kEncodingTable = TableOf(kPackedEncodings, 2, 5);

int NameTable::Find(std::string_view name) const {
    std::string_view entries = Bucket(SumOf(name) % BucketCount());
    while (!entries.empty()) {
        const size_t length = NumberOf(entries.substr(0, m_LengthDigits));
        const std::string_view number = entries.substr(m_LengthDigits, m_NumberDigits);
        entries.remove_prefix(m_LengthDigits + m_NumberDigits);
        if (IsSameName(name, entries.substr(0, length), true)) {
            return static_cast<int>(NumberOf(number));
        }
        entries.remove_prefix(length);
    }
    return -1;
}
