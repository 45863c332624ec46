#pragma once

#include <map>
#include <sstream>
#include <string>

/// The character entities of HTML 4, section 24, and "apos" in the order of their characters: a row
/// of names for consecutive code points, from the one in front on.
inline constexpr const char* kEntityRows =
    "34 quot\n"
    "38 amp apos\n"
    "60 lt\n"
    "62 gt\n"
    "160 nbsp iexcl cent pound curren yen brvbar sect uml copy ordf laquo not shy reg macr\n"
    "176 deg plusmn sup2 sup3 acute micro para middot cedil sup1 ordm raquo frac14 frac12 frac34\n"
    "191 iquest Agrave Aacute Acirc Atilde Auml Aring AElig Ccedil Egrave Eacute Ecirc Euml\n"
    "204 Igrave Iacute Icirc Iuml ETH Ntilde Ograve Oacute Ocirc Otilde Ouml times Oslash Ugrave\n"
    "218 Uacute Ucirc Uuml Yacute THORN szlig agrave aacute acirc atilde auml aring aelig ccedil\n"
    "232 egrave eacute ecirc euml igrave iacute icirc iuml eth ntilde ograve oacute ocirc otilde\n"
    "246 ouml divide oslash ugrave uacute ucirc uuml yacute thorn yuml\n"
    "338 OElig oelig\n"
    "352 Scaron scaron\n"
    "376 Yuml\n"
    "402 fnof\n"
    "710 circ\n"
    "732 tilde\n"
    "913 Alpha Beta Gamma Delta Epsilon Zeta Eta Theta Iota Kappa Lambda Mu Nu Xi Omicron Pi\n"
    "929 Rho\n"
    "931 Sigma Tau Upsilon Phi Chi Psi Omega\n"
    "945 alpha beta gamma delta epsilon zeta eta theta iota kappa lambda mu nu xi omicron pi\n"
    "961 rho sigmaf sigma tau upsilon phi chi psi omega\n"
    "977 thetasym upsih\n"
    "982 piv\n"
    "8194 ensp emsp\n"
    "8201 thinsp\n"
    "8204 zwnj zwj lrm rlm\n"
    "8211 ndash mdash\n"
    "8216 lsquo rsquo sbquo\n"
    "8220 ldquo rdquo bdquo\n"
    "8224 dagger Dagger bull\n"
    "8230 hellip\n"
    "8240 permil\n"
    "8242 prime Prime\n"
    "8249 lsaquo rsaquo\n"
    "8254 oline\n"
    "8260 frasl\n"
    "8364 euro\n"
    "8465 image\n"
    "8472 weierp\n"
    "8476 real\n"
    "8482 trade\n"
    "8501 alefsym\n"
    "8592 larr uarr rarr darr harr\n"
    "8629 crarr\n"
    "8656 lArr uArr rArr dArr hArr\n"
    "8704 forall\n"
    "8706 part exist\n"
    "8709 empty\n"
    "8711 nabla isin notin\n"
    "8715 ni\n"
    "8719 prod\n"
    "8721 sum minus\n"
    "8727 lowast\n"
    "8730 radic\n"
    "8733 prop infin\n"
    "8736 ang\n"
    "8743 and or cap cup int\n"
    "8756 there4\n"
    "8764 sim\n"
    "8773 cong\n"
    "8776 asymp\n"
    "8800 ne equiv\n"
    "8804 le ge\n"
    "8834 sub sup nsub\n"
    "8838 sube supe\n"
    "8853 oplus\n"
    "8855 otimes\n"
    "8869 perp\n"
    "8901 sdot\n"
    "8968 lceil rceil lfloor rfloor\n"
    "9001 lang rang\n"
    "9674 loz\n"
    "9824 spades\n"
    "9827 clubs\n"
    "9829 hearts diams\n";

/// Their code points by name.
inline std::map<std::string, int> ListedEntities() {
    std::map<std::string, int> entities;
    std::istringstream rows{kEntityRows};
    for (std::string row; std::getline(rows, row);) {
        std::istringstream words{row};
        int codePoint = 0;
        words >> codePoint;
        for (std::string name; words >> name; ++codePoint) entities[name] = codePoint;
    }
    return entities;
}

/// The name as the table has it.
inline std::string InLowerCase(std::string name) {
    for (char& letter : name) {
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter + 32);
    }
    return name;
}

/// What is found by name in lower case: of those that differ in case the one in upper case, which
/// is first in a map.
inline std::map<std::string, int> FoundEntities() {
    std::map<std::string, int> found;
    for (const auto& [name, codePoint] : ListedEntities())
        found.emplace(InLowerCase(name), codePoint);
    return found;
}
