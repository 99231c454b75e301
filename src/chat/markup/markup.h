#pragma once

#include "chat/markup/styledtext.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QStringView>

#include <optional>

// The agent's light markdown with some HTML, turned into styled text with the right direction
// per line. Pure functions of the text: no state, no I/O, safe from any thread.
namespace Markup {

// One block of a message: running text, or a table.
struct Piece {
    enum class Kind { Text, Table };

    Kind kind = Kind::Text;
    QString text;            // Kind::Text
    QStringList head;        // Kind::Table
    QList<QStringList> rows; // Kind::Table, each padded or cut to the head's width

    bool operator==(const Piece &) const = default;
};

inline constexpr QChar leftToRightMark{0x200E};
inline constexpr QChar rightToLeftMark{0x200F};
inline constexpr QChar leftToRightIsolate{0x2066};
inline constexpr QChar rightToLeftIsolate{0x2067};
inline constexpr QChar popDirectionalIsolate{0x2069};

// Text blocks and tables. A table is a run of lines that start with "|": head, delimiter row,
// rows. Nothing inside a <pre> block is read as a table.
QList<Piece> pieces(const QString &text);

// The cells of a table line; "\|" stands for a literal "|".
QStringList cells(QStringView line);

// Whether line is a delimiter row for a head of count cells.
bool delimiter(QStringView line, qsizetype count);

// Right-to-left (true), left-to-right (false), or none: the first letter that decides.
std::optional<bool> lean(QStringView text);

// Whether one line reads right to left: more right-to-left words than left-to-right ones, or
// on a tie between both kinds, the direction of the whole text (whole).
bool rightToLeft(QStringView line, std::optional<bool> whole);

// text with a direction mark at the head of each line.
QString directed(const QString &text);

// The HTML entities of the markup decoded: &lt; &gt; &quot; &#39; and, last, &amp;.
QString decoded(QStringView text);

// line with each run of the other script wrapped in direction isolates, so that a path or a
// phrase keeps its own order inside a line of the other direction.
QString isolate(QStringView line, bool rtl);

// The inline styles of one text block (tags, **bold**, links, escapes, entities).
QList<Run> attributed(QStringView text);

// A whole message: lines with their direction and isolates, and tables.
QList<Block> blocks(const QString &text);

// The displayed text of a message: what is read on screen, with its direction marks and
// isolates and without styling.
QString shown(const QString &text);

// Whether a link target may be opened: http, https or mailto.
bool openable(QStringView url);

} // namespace Markup
