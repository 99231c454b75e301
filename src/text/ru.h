#pragma once

#include <QHash>
#include <QString>

namespace Ru {

// English text → its Russian, for the two-text L::t. Built once, thread-safe.
const QHash<QString, QString> &words();

} // namespace Ru
