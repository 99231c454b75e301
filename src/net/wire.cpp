#include "wire.h"

#include "apierror.h"
#include "buildinfo.h"
#include "jsonrecord.h"

#include <QRegularExpression>

#include <charconv>
#include <cmath>

using namespace Qt::StringLiterals;

namespace Wire {

QString userAgent()
{
    const QString version = QString::fromUtf8(BuildInfo::version);
    const QString build = QString::fromUtf8(BuildInfo::build);
    return u"RelayboxApp/%1.%2 (%3; native)"_s
        .arg(version.isEmpty() ? u"0"_s : version,
             build.isEmpty() ? u"0"_s : build, QString::fromUtf8(BuildInfo::platform));
}

std::optional<double> refreshSeconds(const QByteArray &text)
{
    // from_chars reads the C locale's form and no blanks; it has no leading "+" of its own.
    const bool plus = text.startsWith('+');
    const char *begin = text.constData() + (plus ? 1 : 0);
    const char *end = text.constData() + text.size();
    if (begin == end || (plus && (*begin == '-' || *begin == '+')))
        return std::nullopt;
    double value = 0;
    const auto [ptr, ec] = std::from_chars(begin, end, value);
    if (ec != std::errc() || ptr != end || !std::isfinite(value))
        return std::nullopt;
    return value;
}

bool isEncoded(const QString &query)
{
    static const QRegularExpression encoded(
        u"^(?:[A-Za-z0-9\\-._~!$&'()*+,;=:@/?]|%[0-9A-Fa-f]{2})*$"_s);
    return query.contains(u'%') && encoded.match(query).hasMatch();
}

QString relativePath(QString path)
{
    if (path.startsWith(u'/'))
        path.remove(0, 1);
    return path;
}

QUrl url(const QUrl &base, const QString &path)
{
    const QString trimmed = relativePath(path);
    const qsizetype mark = trimmed.indexOf(u'?');
    const QString part = mark < 0 ? trimmed : trimmed.left(mark);
    const QString query = mark < 0 ? QString() : trimmed.mid(mark + 1);

    QUrl out = base;
    QString rootPath = base.path(QUrl::FullyDecoded);
    if (!rootPath.endsWith(u'/'))
        rootPath += u'/';
    // The path is plain text: whatever needs escaping is escaped, as a path component would be.
    out.setPath(rootPath + part, QUrl::DecodedMode);
    if (!query.isEmpty()) {
        const QByteArray wire = isEncoded(query)
                                    ? query.toUtf8()
                                    : QUrl::toPercentEncoding(query, "!$&'()*+,;=:@/?");
        out.setQuery(QString::fromLatin1(wire), QUrl::StrictMode);
    }
    return out.isValid() ? out : base;
}

QString reasonOf(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const ApiError::Failed &e) {
        return e.description();
    } catch (const DecodeError &e) {
        return e.description();
    } catch (const std::exception &e) {
        return QString::fromLocal8Bit(e.what());
    }
}

QString safeFilename(const QString &name)
{
    // Only the last component of whatever path it is, with no control characters, no leading
    // dots (hidden files, "..") and at most 255 bytes: one plain file name, or nothing.
    QString out = name.section(u'/', -1).section(u'\\', -1);
    for (QChar &c : out) {
        if (c.category() == QChar::Other_Control || c.category() == QChar::Other_Format)
            c = u'_';
    }
    qsizetype start = 0;
    while (start < out.size() && (out.at(start) == u'.' || out.at(start).isSpace()))
        ++start;
    out = out.mid(start).trimmed();
    while (out.toUtf8().size() > 255)
        out.chop(1);
    return out;
}

QString filenameFor(const QByteArray &contentDisposition, const QString &path)
{
    const QString header = QString::fromLatin1(contentDisposition);
    static const QRegularExpression extended(u"filename\\*=UTF-8''([^;]*)"_s,
                                             QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression plain(u"filename=(\"([^\"]*)\"|[^;]*)"_s,
                                          QRegularExpression::CaseInsensitiveOption);
    if (const auto m = extended.match(header); m.hasMatch()) {
        const QString name =
            safeFilename(QUrl::fromPercentEncoding(m.captured(1).trimmed().toLatin1()));
        if (!name.isEmpty())
            return name;
    }
    if (const auto m = plain.match(header); m.hasMatch()) {
        const QString name = safeFilename(QString::fromUtf8(
            (m.capturedLength(2) ? m.captured(2) : m.captured(1).trimmed()).toLatin1()));
        if (!name.isEmpty())
            return name;
    }
    QString page = relativePath(path);
    page = page.left(page.indexOf(u'?') < 0 ? page.size() : page.indexOf(u'?'));
    const QString name = safeFilename(QUrl::fromPercentEncoding(page.section(u'/', -1).toUtf8()));
    return name.isEmpty() ? u"download"_s : name;
}

} // namespace Wire
