#pragma once

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>

using namespace Qt::StringLiterals;

#include <concepts>
#include <exception>

// A reply that does not have the shape its record expects.
struct DecodeError : std::exception {
    QString key;      // dotted path to the offending value ("" for the whole body)
    QString expected; // "an object", "a string", ...
    QString found;

    DecodeError(QString key, QString expected, QString found);
    // Which key and which type, in the current language: the tail of the "unexpected shape" text.
    QString description() const;
    const char *what() const noexcept override { return "DecodeError"; }
};

// Lenient reading of one JSON object: a missing or null key gives the default,
// a value of the wrong type throws a DecodeError naming the key and the type.
class JsonRecord
{
public:
    // Throws unless value is an object.
    explicit JsonRecord(const QJsonValue &value, QString path = {});

    bool has(const QString &key) const;
    const QJsonObject &object() const { return m_object; }

    QString string(const QString &key, const QString &fallback = {}) const;
    bool boolean(const QString &key, bool fallback = false) const;
    double number(const QString &key, double fallback = 0) const;
    qint64 integer(const QString &key, qint64 fallback = 0) const;
    QStringList strings(const QString &key) const;
    QHash<QString, QString> stringMap(const QString &key) const;
    QJsonArray array(const QString &key) const;
    // A nested record; an empty one when the key is missing.
    JsonRecord record(const QString &key) const;
    // Text when the value is a string, else nothing, never throwing: for the few keys
    // the server is known to send in more than one type.
    QString looseString(const QString &key, const QString &fallback = {}) const;

    QString pathOf(const QString &key) const;

private:
    QJsonValue present(const QString &key) const;

    QJsonObject m_object;
    QString m_path;
};

namespace Decode {

QString typeName(const QJsonValue &value);

// Parses a reply body; not JSON at all is a DecodeError for the whole body.
QJsonValue parse(const QByteArray &body);

template<class T>
concept Record = requires(const QJsonValue &v) {
    { T::fromJson(v) } -> std::convertible_to<T>;
};

template<class T>
T from(const QJsonValue &value)
{
    if constexpr (std::same_as<T, QJsonValue>) {
        return value;
    } else if constexpr (std::same_as<T, QJsonObject>) {
        if (!value.isObject())
            throw DecodeError({}, u"an object"_s, typeName(value));
        return value.toObject();
    } else {
        static_assert(Record<T>, "a decodable record has static T fromJson(const QJsonValue &)");
        return T::fromJson(value);
    }
}

template<class T>
T from(const QByteArray &body)
{
    return from<T>(parse(body));
}

} // namespace Decode
