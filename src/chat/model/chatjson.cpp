#include "chat/model/chatjson.h"

#include <QUrl>

#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

namespace ChatJson {

namespace {

// Doubles hold integers exactly up to 2^53; beyond that a "whole" number is a guess.
constexpr double exactLimit = 9007199254740992.0;

std::optional<qint64> wholeNumber(double d)
{
    if (!std::isfinite(d) || d != std::floor(d) || std::abs(d) > exactLimit)
        return std::nullopt;
    return qint64(d);
}

} // namespace

std::optional<qint64> parseInteger(QStringView text)
{
    QStringView digits = text;
    if (digits.startsWith(u'+') || digits.startsWith(u'-'))
        digits = digits.mid(1);
    if (digits.isEmpty())
        return std::nullopt;
    for (QChar c : digits) {
        if (c < u'0' || c > u'9')
            return std::nullopt;
    }
    bool ok = false;
    const qint64 value = text.toLongLong(&ok, 10);
    if (!ok)
        return std::nullopt;
    return value;
}

std::optional<QString> optionalString(const JsonRecord &r, const QString &key)
{
    if (!r.has(key))
        return std::nullopt;
    return r.string(key);
}

std::optional<qint64> optionalInteger(const JsonRecord &r, const QString &key)
{
    if (!r.has(key))
        return std::nullopt;
    return r.integer(key);
}

std::optional<int> optionalInt(const JsonRecord &r, const QString &key)
{
    if (!r.has(key))
        return std::nullopt;
    return integer32(r, key);
}

int integer32(const JsonRecord &r, const QString &key, int fallback)
{
    const qint64 value = r.integer(key, fallback);
    if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max())
        throw DecodeError(r.pathOf(key), u"a whole number"_s, QString::number(value));
    return int(value);
}

std::optional<QString> idText(const JsonRecord &r, const QString &key)
{
    if (!r.has(key))
        return std::nullopt;
    const QJsonValue v = r.object().value(key);
    if (v.isDouble()) {
        if (const auto text = looseText(v))
            return text;
    }
    return r.string(key);
}

std::optional<QString> looseText(const QJsonValue &value)
{
    if (value.isString())
        return value.toString();
    if (value.isDouble()) {
        if (const auto whole = wholeNumber(value.toDouble()))
            return QString::number(*whole);
        if (std::isfinite(value.toDouble()))
            return QString::number(value.toDouble(), 'g', 17);
    }
    return std::nullopt;
}

std::optional<qint64> looseInteger(const QJsonValue &value)
{
    if (value.isDouble())
        return wholeNumber(value.toDouble());
    if (value.isString())
        return parseInteger(QStringView(value.toString()).trimmed());
    return std::nullopt;
}

std::optional<int> looseInt(const QJsonValue &value)
{
    const auto n = looseInteger(value);
    if (!n || *n < std::numeric_limits<int>::min() || *n > std::numeric_limits<int>::max())
        return std::nullopt;
    return int(*n);
}

std::optional<double> looseNumber(const QJsonValue &value)
{
    if (value.isDouble())
        return value.toDouble();
    if (value.isString()) {
        bool ok = false;
        const double d = value.toString().trimmed().toDouble(&ok);
        if (ok && std::isfinite(d))
            return d;
    }
    return std::nullopt;
}

bool isSaneTime(double seconds)
{
    return std::isfinite(seconds) && seconds >= 0 && seconds <= 253402300799.0;
}

qint64 millisOf(double seconds)
{
    return isSaneTime(seconds) ? qint64(std::llround(seconds * 1000)) : 0;
}

bool looseFlag(const QJsonValue &value, bool fallback)
{
    if (value.isBool())
        return value.toBool();
    if (value.isDouble())
        return value.toDouble() != 0;
    if (value.isString()) {
        const QString s = value.toString().trimmed().toLower();
        if (s == u"true" || s == u"1" || s == u"yes")
            return true;
        if (s == u"false" || s == u"0" || s == u"no" || s.isEmpty())
            return false;
    }
    return fallback;
}

std::optional<QString> fileNameOf(const QString &url)
{
    if (url.trimmed().isEmpty())
        return std::nullopt;
    const QString name = QUrl(url.trimmed()).fileName();
    if (name.isEmpty())
        return std::nullopt;
    return name;
}

} // namespace ChatJson
