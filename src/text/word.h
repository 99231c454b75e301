#pragma once

#include <QHash>
#include <QString>

// Server keywords (states, severities, roles, trends, categories) that arrive as bare
// English words and are shown in the user's language.
namespace Word {

struct Text
{
    QString he;
    QString ru;
};

// Lower-case keyword → its Hebrew and Russian. Built once, thread-safe.
const QHash<QString, Text> &table();

// The keyword in the current language; English and unknown words pass through as sent.
QString of(const QString &raw);

} // namespace Word
