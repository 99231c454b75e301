#include "collectingvoiceoutput.h"

#include <QMetaObject>

void CollectingVoiceOutput::play(const QString &file, double from, double)
{
    // The whole file comes after parts that would not play, from where they stopped: it
    // stands for all of them.
    if (from > 0 || file.contains(QLatin1String("-whole")))
        files.clear();
    files.append(file);
    QMetaObject::invokeMethod(this, &VoiceOutput::ended, Qt::QueuedConnection);
}
