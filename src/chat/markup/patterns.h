#pragma once

#include <QList>
#include <QRegularExpression>
#include <QString>
#include <QStringView>

// The seven expressions of the markup language, and the scanners that find their matches.
//
// The expressions are written for PCRE2 so that they mean what the agent's markup means:
// \s is the Unicode White_Space set, \b after a tag name follows the word rules of the
// markup (letters, marks, decimal digits, connector punctuation, ZWNJ/ZWJ; a following mark
// or format character is never a boundary), and "." in `bold` crosses line breaks.
//
// A scanner returns exactly the matches that a plain left-to-right global match of its
// expression returns, but bounds what each attempt may scan, so that a hostile message
// (tens of thousands of unclosed brackets, tags or emphasis markers, or one endless line of
// words) costs linear time and never hits the engine's stack limit.
namespace Markup::Patterns {

const QRegularExpression &tags();
const QRegularExpression &bold();
const QRegularExpression &mdLink();
const QRegularExpression &bareLink();
const QRegularExpression &escapes();
const QRegularExpression &latin();
const QRegularExpression &hebrew();

// What is left of `latin` and `hebrew` after their first word: where a long run resumes.
const QRegularExpression &latinRest();
const QRegularExpression &hebrewRest();

struct Span {
    qsizetype start = 0;
    qsizetype end = 0;
    bool operator==(const Span &) const = default;
};

struct Tag {
    qsizetype start = 0;
    qsizetype end = 0;
    bool closing = false;
    QString name; // lower case: "b", "strong", ..., or "a"
    QString href; // as written, for an opening "a"
    bool operator==(const Tag &) const = default;
};

struct Link {
    qsizetype start = 0;
    qsizetype end = 0;
    qsizetype labelStart = 0;
    qsizetype labelEnd = 0;
    QString url;
    bool operator==(const Link &) const = default;
};

// Words of a long run are read in windows of about this many characters.
inline constexpr qsizetype runWindow = 2048;

QList<Tag> findTags(QStringView text);
QList<Span> findBold(QStringView text);
QList<Link> findMdLinks(QStringView text);
QList<Span> findBareLinks(QStringView text);
QList<Span> findLatin(QStringView text, qsizetype window = runWindow);
QList<Span> findHebrew(QStringView text, qsizetype window = runWindow);

// `escapes` applied: the backslash before an escapable character removed.
QString unescaped(QStringView text);

// The unbounded reference: every match of re in text, left to right.
QList<Span> globalSpans(const QRegularExpression &re, QStringView text);

} // namespace Markup::Patterns
