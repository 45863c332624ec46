#include "markup/name_tables.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "markup/entities.h"
#include "markup/entity_list.h"
#include "support/libc_fault.h"

using testing::Each;
using testing::ElementsAreArray;
using testing::Lt;

namespace {

/// The names of encodings with their code pages, in the order of the names.
constexpr const char* kEncodingRows =
    "_iso-2022-jp=50221 _iso-2022-jp$sio=50222 ansi_x3.4-1968=20127 ansi_x3.4-1986=20127\n"
    "arabic=28596 ascii=20127 asmo-708=708 big5=950 big5-hkscs=950 ccsid00858=858\n"
    "chinese=936 cn-big5=950 cn-gb=936 codepage437=437 cp-gr=869 cp-is=861 cp00858=858\n"
    "cp1125=1125 cp1133=1133 cp1200=1200 cp12000=12000 cp12001=12001 cp1201=1201 cp1250=1250\n"
    "cp1251=1251 cp1252=1252 cp1253=1253 cp1254=1254 cp1255=1255 cp1256=1256 cp1256=1256\n"
    "cp1257=1257 cp1258=1258 cp1361=1361 cp154=154 cp367=20127 cp437=437 cp500=775\n"
    "cp50221=50221 cp51932=51932 cp65001=65001 cp737=737 cp775=775 cp819=28591 cp850=850\n"
    "cp852=852 cp853=853 cp855=855 cp857=857 cp858=858 cp860=860 cp861=861 cp862=862\n"
    "cp863=863 cp864=864 cp865=865 cp866=866 cp869=869 cp874=874 cp932=932 cp936=936\n"
    "cp949=949 cp950=950 csascii=20127 csbig5=950 cseuckr=51949 cseucpkdfmtjapanese=20932\n"
    "csgb2312=936 csgb231280=936 csibm500=775 csibm855=855 csibm857=857 csibm860=860\n"
    "csibm861=861 csibm863=863 csibm864=864 csibm865=865 csibm866=866 csibm869=869\n"
    "csiso2022jp=50221 csiso2022kr=50225 csiso58gb231280=936 csisolatin1=28591\n"
    "csisolatin2=28592 csisolatin3=28593 csisolatin4=28594 csisolatin5=28595\n"
    "csisolatinarabic=28596 csisolatincyrillic=28595 csisolatingreek=28597\n"
    "csisolatinhebrew=28598 cskoi8r=20866 csksc56011987=949 csmacintosh=10000\n"
    "cspc775baltic=775 cspc8=437 cspc850multilingual=850 cspc862latinhebrew=862\n"
    "cspc8codepage437=437 cspcp852=852 csptcp154=154 csshiftjis=932 csunicode11utf7=65000\n"
    "cswindows31j=932 cyrillic=28595 cyrillic-asian=154 dos-720=720 dos-862=862 dos-874=874\n"
    "ebcdic-cp-be=775 ebcdic-cp-ch=775 ecma-114=28596 ecma-118=28597 elot_928=28597\n"
    "euc-cn=51936 euc-jp=20932 euc-kr=51949\n"
    "extended_unix_code_packed_format_for_japanese=20932 gb18030=54936 gb2312=936\n"
    "gb2312-80=936 gb231280=936 gb_2312-80=936 gbk=936 greek=28597 greek8=28597 hebrew=28598\n"
    "hz-gb-2312=52936 ibm-cp1133=1133 ibm00858=858 ibm367=20127 ibm437=437 ibm737=737\n"
    "ibm775=775 ibm819=28591 ibm850=850 ibm852=852 ibm855=855 ibm857=857 ibm860=860\n"
    "ibm861=861 ibm862=862 ibm863=863 ibm864=864 ibm865=865 ibm866=866 ibm869=869\n"
    "iso-2022-jp=50220 iso-2022-jp-ms=50221 iso-2022-kr=50225 iso-4873:1986=54936\n"
    "iso-8859-1=28591 iso-8859-11=874 iso-8859-13=28603 iso-8859-15=28605 iso-8859-2=28592\n"
    "iso-8859-3=28593 iso-8859-4=28594 iso-8859-5=28595 iso-8859-6=28596 iso-8859-7=28597\n"
    "iso-8859-8=28598 iso-8859-8-i=38598 iso-8859-9=28599 iso-ir-100=28591 iso-ir-101=28592\n"
    "iso-ir-109=28593 iso-ir-110=28594 iso-ir-126=28597 iso-ir-127=28596 iso-ir-138=28598\n"
    "iso-ir-144=28595 iso-ir-148=28599 iso-ir-149=949 iso-ir-58=936 iso-ir-6=20127\n"
    "iso-ir-6us=20127 iso2022-jp-ms=50221 iso2022-kr=50225 iso646-us=20127 iso8859-1=28591\n"
    "iso8859-13=28603 iso8859-15=28605 iso8859-2=28592 iso8859-3=28593 iso8859-4=28594\n"
    "iso8859-5=28595 iso8859-6=28596 iso8859-7=28597 iso8859-8=28598 iso8859-8-i=38598\n"
    "iso8859-9=28599 iso_646.irv:1991=20127 iso_8859-1=28591 iso_8859-15=28605\n"
    "iso_8859-1:1987=28591 iso_8859-2=28592 iso_8859-2:1987=28592 iso_8859-3=28593\n"
    "iso_8859-3:1988=28593 iso_8859-4=28594 iso_8859-4:1988=28594 iso_8859-5=28595\n"
    "iso_8859-5:1988=28595 iso_8859-6=28596 iso_8859-6:1987=28596 iso_8859-7=28597\n"
    "iso_8859-7:1987=28597 iso_8859-8=28598 iso_8859-8:1988=28598 iso_8859-9=28599\n"
    "iso_8859-9:1989=28599 johab=1361 koi=20866 koi8=20866 koi8-r=20866 koi8-ru=21866\n"
    "koi8-u=21866 koi8r=20866 korean=949 ks-c-5601=949 ks-c5601=949 ks_c_5601=949\n"
    "ks_c_5601-1987=949 ks_c_5601-1989=949 ks_c_5601_1987=949 ksc5601=949 ksc_5601=949\n"
    "l1=28591 l2=28592 l3=28593 l4=28594 l5=28599 l9=28605 latin-9=28605 latin1=28591\n"
    "latin2=28592 latin3=28593 latin4=28594 latin5=28599 latin9=28605 logical=38598\n"
    "mac=10000 macintosh=10000 ms-ansi=1252 ms-arab=1256 ms-cyrl=1251 ms-ee=1250\n"
    "ms-greek=1253 ms-hebr=1255 ms-turk=1254 ms50221=50221 ms51932=51932 ms932=932 ms936=936\n"
    "ms_kanji=932 pc-multilingual-850+euro=858 pt154=154 ptcp154=154 shifft_jis=932\n"
    "shifft_jis-ms=932 shift-jis=932 shift_jis=932 sjis=932 sjis-ms=932 sjis-open=932\n"
    "sjis-win=932 tis-620=874 ucs-2=1200 ucs-2be=1201 ucs-2le=1200 uhc=949 unicode=1200\n"
    "unicode-1-1-utf-7=65000 unicode-1-1-utf-8=65001 unicode-2-0-utf-8=65001\n"
    "unicodefffe=1201 us=20127 us-ascii=20127 utf-16=1200 utf-16be=1201 utf-16le=1200\n"
    "utf-32=12000 utf-32be=12001 utf-32le=12000 utf-7=65000 utf-8=65001 utf16=1200\n"
    "utf16be=1201 utf16le=1200 utf32=12000 utf32be=12001 utf32le=12000 utf8=65001\n"
    "visual=28598 winbaltrim=1257 windows-1250=1250 windows-1251=1251 windows-1252=1252\n"
    "windows-1253=1253 windows-1254=1254 windows-1255=1255 windows-1256=1256\n"
    "windows-1257=1257 windows-1258=1258 windows-31j=932 windows-50221=50221\n"
    "windows-51932=51932 windows-874=874 windows-932=932 windows-936=936 x-ansi=1252\n"
    "x-chinese-cns=20000 x-chinese-eten=20002 x-chinese_cns=20000 x-cp1250=1250\n"
    "x-cp1251=1251 x-cp20001=20001 x-cp20003=20003 x-cp20004=20004 x-cp20005=20005\n"
    "x-cp20261=20261 x-cp20269=20269 x-cp20936=20936 x-cp20949=20949 x-cp50227=50227\n"
    "x-euc=51932 x-euc-cn=51936 x-euc-jp=51932 x-europa=29001 x-ia5=20105 x-ia5-german=20106\n"
    "x-ia5-norwegian=20108 x-ia5-swedish=20107 x-iscii-as=57006 x-iscii-be=57003\n"
    "x-iscii-de=57002 x-iscii-gu=57010 x-iscii-ka=57008 x-iscii-ma=57009 x-iscii-or=57007\n"
    "x-iscii-pa=57011 x-iscii-ta=57004 x-iscii-te=57005 x-mac-arabic=10004 x-mac-ce=10029\n"
    "x-mac-chinesesimp=10008 x-mac-chinesetrad=10002 x-mac-croatian=10082\n"
    "x-mac-cyrillic=10007 x-mac-greek=10006 x-mac-hebrew=10005 x-mac-icelandic=10079\n"
    "x-mac-japanese=10001 x-mac-korean=10003 x-mac-romanian=10010 x-mac-thai=10021\n"
    "x-mac-turkish=10081 x-mac-ukrainian=10017 x-ms-cp932=932 x-sjis=932\n"
    "x-unicode-2-0-utf-7=65000 x-unicode-2-0-utf-8=65001 x-x-big5=950 x_chinese-eten=20002\n";

struct Entry {
    std::string name;
    int number = 0;
    size_t bucket = 0;
    bool operator==(const Entry&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Entry& entry) {
    return out << entry.name << '=' << entry.number << " in " << entry.bucket;
}

size_t SumOf(const std::string& name) {
    size_t sum = 0;
    for (const char letter : name) sum += static_cast<unsigned char>(letter);
    return sum;
}

/// The entries of a table, read off the texts of its buckets.
std::vector<Entry> EntriesOf(const NameTable& table, size_t lengthDigits, size_t numberDigits) {
    std::vector<Entry> entries;
    for (size_t bucket = 0; bucket < table.BucketCount(); ++bucket) {
        const std::string text{table.Bucket(bucket)};
        for (size_t at = 0; at < text.size();) {
            const size_t length = std::stoul(text.substr(at, lengthDigits));
            at += lengthDigits;
            const int number = std::stoi(text.substr(at, numberDigits));
            at += numberDigits;
            entries.push_back({text.substr(at, length), number, bucket});
            at += length;
        }
    }
    return entries;
}

std::vector<Entry> Sorted(std::vector<Entry> entries) {
    std::ranges::sort(entries, [](const Entry& one, const Entry& other) {
        return std::tie(one.name, one.number) < std::tie(other.name, other.number);
    });
    return entries;
}

std::vector<Entry> ListedEncodings() {
    std::vector<Entry> entries;
    std::istringstream words{kEncodingRows};
    for (std::string word; words >> word;) {
        const size_t equals = word.rfind('=');
        const std::string name = word.substr(0, equals);
        entries.push_back({name, std::stoi(word.substr(equals + 1)), SumOf(name) % 155});
    }
    return entries;
}

std::string UpperCase(std::string name) {
    for (char& letter : name) {
        if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 32);
    }
    return name;
}

size_t LongestBucket(const std::vector<Entry>& entries) {
    std::map<size_t, size_t> counts;
    size_t longest = 0;
    for (const Entry& entry : entries) longest = std::max(longest, ++counts[entry.bucket]);
    return longest;
}

}  // namespace

TEST(EntityTable, Has253EntriesIn130Buckets) {
    EXPECT_EQ(kEntityTable.BucketCount(), 130U);
    EXPECT_EQ(EntriesOf(kEntityTable, 1, 4).size(), 253U);
    EXPECT_EQ(ListedEntities().size(), 253U);
}

TEST(EntityTable, HoldsTheListInLowerCaseByTheSumOfBytes) {
    std::vector<Entry> listed;
    for (const auto& [name, codePoint] : ListedEntities()) {
        const std::string lower = InLowerCase(name);
        listed.push_back({lower, codePoint, SumOf(lower) % 130});
    }
    EXPECT_THAT(Sorted(EntriesOf(kEntityTable, 1, 4)), ElementsAreArray(Sorted(listed)));
}

TEST(EntityTable, HasThisTextInABucket) {
    EXPECT_EQ(kEntityTable.Bucket(0), "60216oslash60217ugrave60248oslash60249ugrave");
}

TEST(EntityTable, FindsTheUpperCaseOneOfNamesThatDifferInCase) {
    const auto found = FoundEntities();
    for (const auto& [name, codePoint] : ListedEntities()) {
        EXPECT_EQ(kEntityTable.Find(name), found.at(InLowerCase(name))) << name;
    }
    EXPECT_EQ(kEntityTable.Find("oslash"), 216);
    EXPECT_EQ(kEntityTable.Find("dagger"), 8225);
}

TEST(EntityTable, FindsNothingElse) {
    for (const char* const name : {"", "a", "apo", "aposs", "hsalso", "0216", "\xC3\xB8"}) {
        EXPECT_EQ(kEntityTable.Find(name), -1) << name;
    }
}

TEST(EncodingTable, Has365EntriesFor110CodePagesIn155Buckets) {
    const std::vector<Entry> entries = EntriesOf(kEncodingTable, 2, 5);
    std::map<int, int> pages;
    for (const Entry& entry : entries) ++pages[entry.number];
    EXPECT_EQ(kEncodingTable.BucketCount(), 155U);
    EXPECT_EQ(entries.size(), 365U);
    EXPECT_EQ(pages.size(), 110U);
}

TEST(EncodingTable, HoldsTheListByTheSumOfBytes) {
    EXPECT_THAT(Sorted(EntriesOf(kEncodingTable, 2, 5)),
                ElementsAreArray(Sorted(ListedEncodings())));
}

TEST(EncodingTable, HasEntriesOfThisForm) {
    EXPECT_NE(kEncodingTable.Bucket(SumOf("ksc_5601") % 155).find("0800949ksc_5601"),
              std::string_view::npos);
}

TEST(EncodingTable, FindsEachNameInAnyCase) {
    for (const Entry& entry : ListedEncodings()) {
        EXPECT_EQ(kEncodingTable.Find(entry.name), entry.number) << entry.name;
        EXPECT_EQ(kEncodingTable.Find(UpperCase(entry.name)), entry.number) << entry.name;
        EXPECT_EQ(LookUpEncoding(entry.name), entry.number) << entry.name;
    }
}

TEST(EncodingTable, FindsACodePageUnderTheNameThatItHasTwice) {
    const auto entries = EntriesOf(kEncodingTable, 2, 5);
    EXPECT_EQ(std::ranges::count(entries, "cp1256", &Entry::name), 2);
    EXPECT_EQ(kEncodingTable.Find("cp1256"), 1256);
}

TEST(NameTable, HasShortBuckets) {
    EXPECT_EQ(LongestBucket(EntriesOf(kEntityTable, 1, 4)), 6U);
    EXPECT_EQ(LongestBucket(EntriesOf(kEncodingTable, 2, 5)), 6U);
}

TEST(NameTable, TakesNoMemoryToFindAName) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    FaultOf<&::malloc> fault;
    int calls = 0;
    fault.Always([&](size_t size) {
        ++calls;
        return LibcFault::Real<&::malloc>(size);
    });
    const int results[] = {kEntityTable.Find("Thetasym"), kEntityTable.Find("unknown"),
                           LookUpEncoding("ISO_646.irv:1991"), LookUpEncoding("UTF-32LE"),
                           LookUpEncoding("extended_unix_code_packed_format_for_japanese")};
    const int found = calls;
    EXPECT_EQ(found, 0);
    EXPECT_THAT(results, testing::ElementsAre(977, -1, 20127, 65005, 20932));
}
