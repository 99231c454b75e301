#pragma once

#include "chat/markup/styledtext.h"

#include <QList>
#include <QStringView>

// The inline styling of one text block: HTML tags open and close styles, **bold** spans
// (across lines and tags), [label](url) and bare links, backslash escapes and entities.
// Inside <code> and <pre> the text is taken literally: only entities are decoded.
namespace Markup::Styler {

QList<Run> runs(QStringView text);

} // namespace Markup::Styler
