#include "jsonrecord.h"

#include "text/l.h"

#include <QJsonDocument>
#include <QJsonParseError>

using namespace Qt::StringLiterals;

#include <cmath>

DecodeError::DecodeError(QString key, QString expected, QString found)
    : key(std::move(key))
    , expected(std::move(expected))
    , found(std::move(found))
{
}

namespace {

// The type words of a decoding error, in the current language.
QString shown(const QString &english)
{
    struct Words {
        const char16_t *en, *he, *ru;
    };
    static constexpr Words words[] = {
        {u"an object", u"אובייקט", u"объект"},
        {u"a string", u"מחרוזת", u"строка"},
        {u"a number", u"מספר", u"число"},
        {u"a whole number", u"מספר שלם", u"целое число"},
        {u"true or false", u"אמת או שקר", u"да или нет"},
        {u"a list", u"רשימה", u"список"},
        {u"null", u"ערך ריק", u"пустое значение"},
        {u"nothing", u"כלום", u"ничего"},
    };
    for (const Words &w : words) {
        if (english == QStringView(w.en))
            return L::t(QString::fromUtf16(w.he), english, QString::fromUtf16(w.ru));
    }
    return english;
}

} // namespace

QString DecodeError::description() const
{
    if (key.isEmpty())
        return L::t(u"ציפינו ל%1, התקבל %2"_s, u"expected %1, found %2"_s,
                    u"ожидалось: %1, получено: %2"_s)
            .arg(shown(expected), shown(found));
    return L::t(u"„%1” צריך להיות %2, התקבל %3"_s, u"“%1” should be %2, found %3"_s,
                u"«%1» должно быть: %2, получено: %3"_s)
        .arg(key, shown(expected), shown(found));
}

JsonRecord::JsonRecord(const QJsonValue &value, QString path)
    : m_path(std::move(path))
{
    if (!value.isObject())
        throw DecodeError(m_path, u"an object"_s, Decode::typeName(value));
    m_object = value.toObject();
}

bool JsonRecord::has(const QString &key) const
{
    return !present(key).isUndefined();
}

QString JsonRecord::pathOf(const QString &key) const
{
    return m_path.isEmpty() ? key : m_path + u'.' + key;
}

QJsonValue JsonRecord::present(const QString &key) const
{
    const QJsonValue v = m_object.value(key);
    return v.isNull() ? QJsonValue(QJsonValue::Undefined) : v;
}

QString JsonRecord::string(const QString &key, const QString &fallback) const
{
    const QJsonValue v = present(key);
    if (v.isUndefined())
        return fallback;
    if (!v.isString())
        throw DecodeError(pathOf(key), u"a string"_s, Decode::typeName(v));
    return v.toString();
}

QString JsonRecord::looseString(const QString &key, const QString &fallback) const
{
    const QJsonValue v = present(key);
    return v.isString() ? v.toString() : fallback;
}

bool JsonRecord::boolean(const QString &key, bool fallback) const
{
    const QJsonValue v = present(key);
    if (v.isUndefined())
        return fallback;
    if (!v.isBool())
        throw DecodeError(pathOf(key), u"true or false"_s, Decode::typeName(v));
    return v.toBool();
}

double JsonRecord::number(const QString &key, double fallback) const
{
    const QJsonValue v = present(key);
    if (v.isUndefined())
        return fallback;
    if (!v.isDouble())
        throw DecodeError(pathOf(key), u"a number"_s, Decode::typeName(v));
    return v.toDouble();
}

qint64 JsonRecord::integer(const QString &key, qint64 fallback) const
{
    const double d = number(key, double(fallback));
    if (d != std::floor(d) || std::abs(d) > 9007199254740992.0)
        throw DecodeError(pathOf(key), u"a whole number"_s, QString::number(d));
    return qint64(d);
}

QStringList JsonRecord::strings(const QString &key) const
{
    const QJsonArray items = array(key);
    QStringList out;
    out.reserve(items.size());
    for (qsizetype i = 0; i < items.size(); ++i) {
        const QJsonValue item = items.at(i);
        if (!item.isString())
            throw DecodeError(pathOf(key) + u"[%1]"_s.arg(i), u"a string"_s,
                              Decode::typeName(item));
        out.append(item.toString());
    }
    return out;
}

QHash<QString, QString> JsonRecord::stringMap(const QString &key) const
{
    const JsonRecord inner = record(key);
    QHash<QString, QString> out;
    for (auto it = inner.m_object.begin(); it != inner.m_object.end(); ++it) {
        if (it.value().isNull())
            continue;
        if (!it.value().isString())
            throw DecodeError(inner.pathOf(it.key()), u"a string"_s,
                              Decode::typeName(it.value()));
        out.insert(it.key(), it.value().toString());
    }
    return out;
}

QJsonArray JsonRecord::array(const QString &key) const
{
    const QJsonValue v = present(key);
    if (v.isUndefined())
        return {};
    if (!v.isArray())
        throw DecodeError(pathOf(key), u"a list"_s, Decode::typeName(v));
    return v.toArray();
}

JsonRecord JsonRecord::record(const QString &key) const
{
    const QJsonValue v = present(key);
    return JsonRecord(v.isUndefined() ? QJsonValue(QJsonObject()) : v, pathOf(key));
}

namespace Decode {

QString typeName(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Null: return u"null"_s;
    case QJsonValue::Bool: return u"true or false"_s;
    case QJsonValue::Double: return u"a number"_s;
    case QJsonValue::String: return u"a string"_s;
    case QJsonValue::Array: return u"a list"_s;
    case QJsonValue::Object: return u"an object"_s;
    case QJsonValue::Undefined: break;
    }
    return u"nothing"_s;
}

QJsonValue parse(const QByteArray &body)
{
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError)
        throw DecodeError({}, u"JSON"_s,
                          u"text that does not parse (%1)"_s.arg(error.errorString()));
    return doc.isArray() ? QJsonValue(doc.array()) : QJsonValue(doc.object());
}

} // namespace Decode
