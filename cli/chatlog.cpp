#include "chatlog.h"

#include "terminaltext.h"

#include "chat/model/chatjson.h"
#include "text/l.h"

#include <QDateTime>
#include <QFuture>
#include <QtConcurrent/QtConcurrentRun>

using namespace Qt::StringLiterals;

namespace ChatLog {

Facts facts(const Markup::AnsiWriter::Options &render)
{
    return {L::t(u"את/ה"_s, u"You"_s, u"Вы"_s),
            L::t(u"את/ה (טלגרם)"_s, u"You (Telegram)"_s, u"Вы (Telegram)"_s),
            L::t(u"הסוכן"_s, u"Agent"_s, u"Агент"_s),
            L::t(u"משימה %1"_s, u"task %1"_s, u"задача %1"_s), render};
}

namespace {

void twoDigits(QString &out, int n)
{
    out += QChar(u'0' + n / 10);
    out += QChar(u'0' + n % 10);
}

// The user's own text, its long lines wrapped at words.
QString wrapped(const QString &text, int width)
{
    if (text.size() <= width)
        return text;
    QStringList lines;
    for (const QString &line : text.split(u'\n')) {
        if (Markup::AnsiWriter::displayWidth(line) <= width) {
            lines << line;
            continue;
        }
        for (const auto &[from, to] : Markup::AnsiWriter::wrap(line, width))
            lines << line.mid(from, to - from);
    }
    return lines.join(u'\n');
}

} // namespace

QString Clock::stamp(qint64 millis)
{
    QString out;
    stampInto(out, millis);
    return out;
}

void Clock::stampInto(QString &out, qint64 millis)
{
    const qint64 hour = millis >= 0 ? millis / 3'600'000 : (millis - 3'599'999) / 3'600'000;
    auto found = m_offsets.constFind(hour);
    if (found == m_offsets.constEnd())
        found = m_offsets.insert(hour, QDateTime::fromMSecsSinceEpoch(millis).offsetFromUtc());
    const qint64 local = millis / 1000 + *found;
    qint64 days = local / 86400;
    qint64 secs = local % 86400;
    if (secs < 0) {
        secs += 86400;
        --days;
    }
    // Days since 1970 to a civil date (proleptic Gregorian).
    const qint64 z = days + 719468;
    const qint64 era = (z >= 0 ? z : z - 146096) / 146097;
    const qint64 doe = z - era * 146097;
    const qint64 yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const qint64 doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const qint64 mp = (5 * doy + 2) / 153;
    const int day = int(doy - (153 * mp + 2) / 5 + 1);
    const int month = int(mp < 10 ? mp + 3 : mp - 9);
    const qint64 year = yoe + era * 400 + (month <= 2 ? 1 : 0);
    if (year >= 1000 && year <= 9999) {
        const int y = int(year);
        twoDigits(out, y / 100);
        twoDigits(out, y % 100);
    } else {
        out += QString::number(year);
    }
    out += u'-';
    twoDigits(out, month);
    out += u'-';
    twoDigits(out, day);
    out += u' ';
    twoDigits(out, int(secs / 3600));
    out += u':';
    twoDigits(out, int(secs / 60 % 60));
}

QList<const ChatMessage *> chosen(const MessageList &messages, std::optional<qint64> since,
                                  std::optional<int> limit)
{
    QList<const ChatMessage *> out;
    out.reserve(messages.size());
    for (const ChatMessage &m : messages) {
        if (!since || m.seq > *since)
            out.append(&m);
    }
    if (limit && out.size() > *limit)
        out.remove(0, out.size() - *limit);
    return out;
}

void append(QString &out, const ChatMessage &m, const Facts &facts, Clock &clock)
{
    const bool agent = m.role == u"assistant";
    const qsizetype start = out.size();
    out += u'#';
    out += QString::number(m.seq);
    out += u" ["_s;
    clock.stampInto(out, ChatJson::millisOf(m.createdAt));
    out += u"] "_s;
    out += agent ? facts.agent : m.source == u"telegram" ? facts.youTelegram : facts.you;
    if (const auto task = m.taskNumber()) {
        out += u" · "_s;
        out += facts.task.arg(*task);
    }
    out += u':';
    const qsizetype heading = out.size() - start;
    QString body;
    if (agent)
        body = Markup::AnsiWriter::render(m.text, facts.render);
    else
        body = wrapped(facts.render.marks ? TerminalText::safe(m.text, TerminalText::Lines::Keep)
                                          : Markup::AnsiWriter::unmarked(TerminalText::safe(
                                                m.text, TerminalText::Lines::Keep)),
                       facts.render.width);
    // A short body stays on the heading's line; a longer one starts below it, so that its
    // wrapping and tables keep the width they were laid out for.
    const bool inline_ =
        !body.contains(u'\n') &&
        heading + 1 + Markup::AnsiWriter::displayWidth(body) <= facts.render.width;
    out += inline_ ? u' ' : u'\n';
    out += body;
}

QString entry(const ChatMessage &m, const Facts &facts, Clock &clock)
{
    QString out;
    append(out, m, facts, clock);
    return out;
}

QByteArray text(const QList<const ChatMessage *> &messages, const Facts &facts)
{
    Clock clock;
    QString all;
    all.reserve(messages.size() * 120);
    for (const ChatMessage *m : messages) {
        append(all, *m, facts, clock);
        all += u'\n';
    }
    return all.toUtf8();
}

void print(const QList<const ChatMessage *> &messages, const Facts &facts, FILE *out)
{
    constexpr qsizetype chunk = 512;
    QList<QFuture<QByteArray>> parts;
    for (qsizetype from = 0; from < messages.size(); from += chunk) {
        const QList<const ChatMessage *> slice = messages.mid(from, chunk);
        parts.append(QtConcurrent::run([slice, facts] { return text(slice, facts); }));
    }
    // Written in order as each is ready; the pool is making the next ones meanwhile.
    for (QFuture<QByteArray> &part : parts) {
        const QByteArray bytes = part.result();
        std::fwrite(bytes.constData(), 1, size_t(bytes.size()), out);
    }
    std::fflush(out);
}

} // namespace ChatLog
