#include "laneticker.h"

#include "terminaltext.h"

#include "chat/store/chatstore.h"
#include "chat/markup/ansiwriter.h"

#include <cstdio>

using namespace Qt::StringLiterals;

LaneTicker::LaneTicker(ChatStore *store, QString runID, bool terminal, int width)
    : m_run(std::move(runID))
    , m_terminal(terminal)
    , m_width(width)
{
    m_connection =
        QObject::connect(store, &ChatStore::laneChanged, store, [this](const Lane &lane) {
            if (lane.id == m_run)
                show(lane);
        });
}

LaneTicker::~LaneTicker()
{
    QObject::disconnect(m_connection);
    if (m_terminal && !m_last.isEmpty()) {
        std::fputs("\r\x1b[K", stderr);
        std::fflush(stderr);
    }
}

QString LaneTicker::summary(const Lane &lane, int width, bool withText)
{
    QString out = u"▸ "_s + TerminalText::safe(lane.heading());
    for (const Activity &step : lane.tools) {
        out += u" · "_s + TerminalText::safe(step.title) +
               (Activity::isOpen(step.status) ? u" …"_s
                : step.status == u"error"     ? u" ✗"_s
                                              : u" ✓"_s);
    }
    const QString last = lane.text.section(u'\n', -1, -1, QString::SectionSkipEmpty).trimmed();
    if (withText && !last.isEmpty())
        out += u": "_s + TerminalText::safe(last);
    if (width <= 1)
        return out;
    // Cut to the width, by whole characters.
    QString cut;
    int used = 0;
    for (qsizetype i = 0; i < out.size(); ++i) {
        const qsizetype len = out[i].isHighSurrogate() && i + 1 < out.size() ? 2 : 1;
        const int w = Markup::AnsiWriter::displayWidth(QStringView(out).mid(i, len));
        if (used + w > width - 1) {
            cut += u'…';
            return cut;
        }
        cut += QStringView(out).mid(i, len);
        used += w;
        i += len - 1;
    }
    return cut;
}

void LaneTicker::show(const Lane &lane)
{
    const QString line = summary(lane, m_terminal ? m_width : 0, m_terminal);
    if (line == m_last)
        return;
    m_last = line;
    const QByteArray bytes = (m_terminal ? u"\r\x1b[K"_s + line : line + u'\n').toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    std::fflush(stderr);
}
