#pragma once

#include "chat/markup/styledtext.h"

#include <QList>
#include <QString>

// A message for a terminal: SGR styles (bold, italic, underline, strike, dim code), OSC 8
// hyperlinks, tables drawn with box characters to fit the width, direction marks at the
// head of each line. Without colour: the same layout as plain text, links written out.
namespace Markup::AnsiWriter {

QString write(const QList<Block> &blocks, int width, bool colour);

QString render(const QString &text, int width, bool colour);

// Columns the text takes on a terminal: wide East Asian characters and emoji take two,
// combining marks and format characters (direction marks, isolates) none.
int displayWidth(QStringView text);

} // namespace Markup::AnsiWriter
