#pragma once

#include "chat/markup/styledtext.h"

#include <QList>
#include <QString>

// Rich text for a QML Text item (Text.RichText): one <div> per line with its direction, tables
// as <table>. The only tags in the output are the writer's own; every character of the
// message is escaped, and only http(s) and mailto targets become links.
namespace Markup::HtmlWriter {

QString write(const QList<Block> &blocks);

QString render(const QString &text);

} // namespace Markup::HtmlWriter
