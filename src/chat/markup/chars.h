#pragma once

#include <QString>
#include <QStringView>

// Character classes of the markup, and the text hygiene every entry point applies.
namespace Markup::Chars {

// The Unicode White_Space set: what \s means in the patterns and what separates words.
constexpr bool isWhiteSpace(char16_t u)
{
    if (u < 0x80)
        return u == u' ' || (u >= 0x09 && u <= 0x0D);
    return u == 0x85 || u == 0xA0 || u == 0x1680 || (u >= 0x2000 && u <= 0x200A) || u == 0x2028 ||
           u == 0x2029 || u == 0x202F || u == 0x205F || u == 0x3000;
}

// Letters that make a text lean right to left: Hebrew, Arabic and neighbours.
constexpr bool isRtlLetter(char16_t u)
{
    return (u >= 0x0590 && u <= 0x08FF) || (u >= 0xFB1D && u <= 0xFDFF) ||
           (u >= 0xFE70 && u <= 0xFEFF);
}

constexpr bool isLatinLetter(char16_t u)
{
    return (u >= u'A' && u <= u'Z') || (u >= u'a' && u <= u'z') || (u >= 0x00C0 && u <= 0x024F);
}

// Letters that make a text lean left to right: Latin, Greek and Cyrillic.
constexpr bool isLtrLetter(char16_t u)
{
    return isLatinLetter(u) || (u >= 0x0370 && u <= 0x04FF);
}

// Whether needle occurs in text; quicker than a general search for the short needles here.
// The first character of needle is matched exactly, the rest with cs.
bool contains(QStringView text, QStringView needle, Qt::CaseSensitivity cs = Qt::CaseSensitive);

// text itself when it is well-formed UTF-16; otherwise a copy in storage with every unpaired
// surrogate replaced by U+FFFD, so that positions stay the same.
QStringView valid(QStringView text, QString &storage);

QString valid(const QString &text);

} // namespace Markup::Chars
