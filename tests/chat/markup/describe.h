#pragma once

#include <QString>

// Direction marks and isolates made visible, for comparing: <LRM> <RLM> <LRI> <RLI> <PDI>.
inline QString visible(QString text)
{
    const char16_t marks[] = {0x200E, 0x200F, 0x2066, 0x2067, 0x2069};
    const char *names[] = {"<LRM>", "<RLM>", "<LRI>", "<RLI>", "<PDI>"};
    for (int i = 0; i < 5; ++i)
        text.replace(QChar(marks[i]), QLatin1String(names[i]));
    return text;
}
