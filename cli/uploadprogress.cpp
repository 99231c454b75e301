#include "uploadprogress.h"

#include "terminaltext.h"
#include "chat/transfer/uploadmeter.h"

#include "chat/transfer/chatbackgroundtransfer.h"
#include "text/l.h"

#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;

UploadProgress::UploadProgress(Names names)
    : m_names(std::move(names))
{
    auto *transfers = ChatBackgroundTransfer::shared();
    if (!transfers || isatty(STDERR_FILENO) != 1)
        return;
    QObject::connect(
        transfers, &ChatBackgroundTransfer::progress, transfers,
        [this](const QString &key, qint64 sent, qint64 total) { report(key, sent, total); });
}

QString UploadProgress::size(qint64 bytes)
{
    if (bytes < 1000)
        return L::t(u"%1 בתים"_s, u"%1 B"_s, u"%1 Б"_s).arg(bytes);
    if (bytes < 1000 * 1000)
        return L::t(u"%1 ק״ב"_s, u"%1 kB"_s, u"%1 КБ"_s).arg(double(bytes) / 1e3, 0, 'f', 1);
    if (bytes < qint64(1000) * 1000 * 1000)
        return L::t(u"%1 מ״ב"_s, u"%1 MB"_s, u"%1 МБ"_s).arg(double(bytes) / 1e6, 0, 'f', 1);
    return L::t(u"%1 ג״ב"_s, u"%1 GB"_s, u"%1 ГБ"_s).arg(double(bytes) / 1e9, 0, 'f', 2);
}

QString UploadProgress::line(const QString &name, qint64 sent, qint64 total, double seconds)
{
    QString out = name + u"  "_s +
                  L::t(u"%1 מתוך %2"_s, u"%1 of %2"_s, u"%1 из %2"_s).arg(size(sent), size(total));
    if (seconds < 0.25 || sent <= 0)
        return out;
    const double rate = double(sent) / seconds;
    out += u"  "_s + L::t(u"%1 לשנייה"_s, u"%1/s"_s, u"%1/с"_s).arg(size(qint64(rate)));
    if (sent < total) {
        const qint64 left = qint64(double(total - sent) / rate + 0.999);
        const QString time = left >= 60
                                 ? u"%1:%2"_s.arg(left / 60).arg(left % 60, 2, 10, QChar(u'0'))
                                 : L::t(u"%1 שנ׳"_s, u"%1 s"_s, u"%1 с"_s).arg(left);
        out += u"  "_s + L::t(u"עוד %1"_s, u"%1 left"_s, u"осталось %1"_s).arg(time);
    }
    return out;
}

void UploadProgress::report(const QString &key, qint64 sent, qint64 total)
{
    const qsizetype at = key.indexOf(u":upload:");
    if (at < 0 || total < UploadMeter::smallest)
        return;
    auto started = m_started.find(key);
    if (started == m_started.end()) {
        started = m_started.insert(key, QElapsedTimer());
        started->start();
    }
    const QString name = TerminalText::safe(m_names(key.mid(at + 8)));
    const QString shown =
        line(name.isEmpty() ? u"…"_s : name, sent, total, double(started->elapsed()) / 1000);
    const QByteArray bytes =
        (u"\r\x1b[K"_s + shown + (sent >= total ? u"\n"_s : QString())).toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    std::fflush(stderr);
}
