#pragma once

#include "chat/markup/styledtext.h"

#include <QList>
#include <QString>

// The displayed text of a message with no styling: each line led by its direction mark,
// isolates kept, link labels as shown, table rows as cells between " | ".
namespace Markup::PlainWriter {

QString write(const QList<Block> &blocks);

// text safe to print on a terminal: control characters (escape sequences above all) become
// visible symbols instead of acting on the terminal.
QString printable(QStringView text);
QString printable(const QString &text);

} // namespace Markup::PlainWriter
