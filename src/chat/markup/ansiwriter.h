#pragma once

#include "chat/markup/styledtext.h"

#include <QList>
#include <QString>

#include <utility>

// A message for a terminal: SGR styles (bold, italic, underline, strike, dim code), OSC 8
// hyperlinks, tables drawn with box characters to fit the width, direction marks at the
// head of each line. Without colour: the same layout as plain text, links written out.
namespace Markup::AnsiWriter {

// What the terminal takes. Paragraphs wrap at word boundaries to width; links print their
// target after the label unless hyperlinks; marks: direction marks and isolates are kept (a
// pipe gets none unless asked, they are invisible and confuse tools like grep).
struct Options {
    int width = 80;
    bool colour = false;
    bool hyperlinks = false;
    bool marks = true;
};

QString write(const QList<Block> &blocks, const Options &options);
QString render(const QString &text, const Options &options);

// Hyperlinks follow colour, marks kept.
QString write(const QList<Block> &blocks, int width, bool colour);
QString render(const QString &text, int width, bool colour);

// Word wrap of one line to width columns, a word longer than a line broken: each line as
// [start, end) positions into text. Spaces at a break are dropped.
QList<std::pair<qsizetype, qsizetype>> wrap(QStringView text, int width);

// Direction marks and isolates taken out.
QString unmarked(QStringView text);

// Columns the text takes on a terminal: wide East Asian characters and emoji take two,
// combining marks and format characters (direction marks, isolates) none.
int displayWidth(QStringView text);

} // namespace Markup::AnsiWriter
