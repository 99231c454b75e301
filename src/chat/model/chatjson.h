#pragma once

#include "net/jsonrecord.h"

#include <QJsonValue>
#include <QString>

#include <optional>

// Reading helpers shared by the chat records.
namespace ChatJson {

// Exactly an optional "+" or "-" and decimal digits that fit 64 bits; anything else
// (spaces, "0x", "12a", "") is nothing.
std::optional<qint64> parseInteger(QStringView text);

// --- Strict readers over a JsonRecord: a missing or null key is nothing, a value of the
// wrong type throws the record's DecodeError.
std::optional<QString> optionalString(const JsonRecord &r, const QString &key);
std::optional<qint64> optionalInteger(const JsonRecord &r, const QString &key);
std::optional<int> optionalInt(const JsonRecord &r, const QString &key);
int integer32(const JsonRecord &r, const QString &key, int fallback = 0);
// Ids the server types as text but has been seen to send as numbers: both are accepted,
// a number is kept as its decimal digits.
std::optional<QString> idText(const JsonRecord &r, const QString &key);

// --- Loose readers for frames and run records, which are never rejected: a value that
// makes no sense reads as nothing.
std::optional<QString> looseText(const QJsonValue &value);
std::optional<qint64> looseInteger(const QJsonValue &value);
std::optional<int> looseInt(const QJsonValue &value); // within int range
std::optional<double> looseNumber(const QJsonValue &value);
bool looseFlag(const QJsonValue &value, bool fallback = false);

// A time in seconds since 1970 that a message may carry: finite, from 1970 to the end of
// year 9999. Anything else (1e300, NaN, negative) is no time at all.
bool isSaneTime(double seconds);
// Milliseconds of a sane time; 0 for any other value, never an undefined conversion.
qint64 millisOf(double seconds);
// The largest seq the client accepts: every integer up to it is exact in a JSON number.
constexpr qint64 maxSeq = qint64(1) << 53;

// The last path segment of a URL ("…/voice/abc.m4a?sig=1" gives "abc.m4a"); nothing for none.
std::optional<QString> fileNameOf(const QString &url);

} // namespace ChatJson
