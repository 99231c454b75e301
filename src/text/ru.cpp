#include "ru.h"

namespace Ru {

const QHash<QString, QString> &words()
{
    // A magic static: built once under the compiler's run-once guard. It owns only
    // QStrings, so tearing it down after the event loop is harmless.
    static const QHash<QString, QString> table = {
    };
    return table;
}

} // namespace Ru
