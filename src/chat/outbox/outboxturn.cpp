#include "chat/outbox/outboxturn.h"
#include "chat/chatlogging.h"

#include "chat/model/chatjson.h"
#include "text/l.h"

#include <algorithm>

#include <QJsonArray>
#include <QLoggingCategory>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// A part of a turn that cannot be read: logged and left out.
template<class F>
auto salvage(const QString &turnID, const QString &what, F &&read) -> decltype(read())
{
    try {
        return read();
    } catch (const DecodeError &e) {
        qCWarning(lcOutbox).noquote() << "outbox turn" << turnID << "lost its" << what << "("
                                      << e.key << "should be" << e.expected << "found"
                                      << e.found << ")";
        return std::nullopt;
    }
}

const char *failureName(TurnFailure failure)
{
    switch (failure) {
    case TurnFailure::Offline: return "offline";
    case TurnFailure::Refused: return "refused";
    case TurnFailure::None: break;
    }
    return "";
}

// Hebrew, English, Russian.
constexpr const char16_t *savedTexts[] = {
    u"ההודעה נשמרה במכשיר הזה. הקישו „נסו שוב” על ההודעה.",
    u"Your message is saved on this device. Tap Retry on the message.",
    u"Сообщение сохранено на этом устройстве. Нажмите «Повторить» на сообщении.",
};
constexpr const char16_t *unconfirmedTexts[] = {
    u"השרת לא אישר את קבלת ההודעה.",
    u"Message acceptance was not confirmed.",
    u"Сервер не подтвердил приём сообщения.",
};

bool oneOf(const char16_t *const (&texts)[3], const QString &text)
{
    return std::any_of(std::begin(texts), std::end(texts),
                       [&](const char16_t *t) { return text == QStringView(t); });
}

QString spoken(const char16_t *const (&texts)[3])
{
    return L::t(QString::fromUtf16(texts[0]), QString::fromUtf16(texts[1]),
                QString::fromUtf16(texts[2]));
}

} // namespace

QString OutboxTurn::shownError() const
{
    if (failure == TurnFailure::None)
        return error;
    return unconfirmed ? notConfirmed() : savedForRetry();
}

QString OutboxTurn::savedForRetry()
{
    return spoken(savedTexts);
}

QString OutboxTurn::notConfirmed()
{
    return spoken(unconfirmedTexts);
}

bool OutboxTurn::isSavedForRetryText(const QString &error)
{
    return oneOf(savedTexts, error);
}

bool OutboxTurn::isNotConfirmedText(const QString &error)
{
    return oneOf(unconfirmedTexts, error);
}

bool OutboxTurn::carriesBytes() const
{
    return !files.isEmpty() || voiceNote.has_value();
}

OutboxTurn OutboxTurn::fromJson(const QJsonValue &value)
{
    using namespace ChatJson;
    const JsonRecord r(value);
    OutboxTurn t;
    t.id = r.string(u"id"_s);
    t.text = r.string(u"text"_s);
    t.fromVoice = r.boolean(u"fromVoice"_s);
    t.voiceReply = r.boolean(u"voiceReply"_s);
    t.replyID = r.string(u"replyID"_s);
    t.replyText = r.string(u"replyText"_s);
    t.replyRole = r.string(u"replyRole"_s);
    t.created = r.number(u"created"_s);
    t.error = r.string(u"error"_s);
    t.reason = r.string(u"reason"_s);
    // Older files name an unconfirmed turn only by its text: worked out once.
    t.unconfirmed = r.has(u"unconfirmed"_s) ? r.boolean(u"unconfirmed"_s) : isNotConfirmedText(t.error);
    const QString failure = r.string(u"failure"_s);
    if (failure == u"offline")
        t.failure = TurnFailure::Offline;
    else if (failure == u"refused")
        t.failure = TurnFailure::Refused;
    else if (!t.error.isEmpty()) {
        // Written before the kind was kept: an offline attempt left the saved-for-retry text,
        // anything else was the server's (or our) reason for refusing.
        t.failureGuessed = true;
        if (isSavedForRetryText(t.error)) {
            t.failure = TurnFailure::Offline;
        } else {
            t.failure = TurnFailure::Refused;
            if (!isNotConfirmedText(t.error)) {
                t.reason = t.error;
                t.error = savedForRetry();
            }
        }
    }
    if (r.has(u"voicePeak"_s))
        t.voicePeak = float(r.number(u"voicePeak"_s));
    t.afterSeq = optionalInteger(r, u"afterSeq"_s);
    t.typed = optionalString(r, u"typed"_s);

    const QJsonArray files = salvage(t.id, u"files"_s, [&] {
        return std::optional(r.array(u"files"_s));
    }).value_or(QJsonArray());
    for (qsizetype i = 0; i < files.size(); ++i) {
        const auto file = salvage(t.id, u"file %1"_s.arg(i), [&] {
            return std::optional(OutboxFile::fromJson(files.at(i)));
        });
        if (file)
            t.files.append(*file);
    }
    if (r.has(u"voiceNote"_s)) {
        t.voiceNote = salvage(t.id, u"voice note"_s, [&] {
            return std::optional(OutboxFile::fromJson(r.object().value(u"voiceNote")));
        });
    }
    if (r.has(u"geo"_s)) {
        t.geo = salvage(t.id, u"location"_s, [&] {
            return std::optional(Decode::from<QJsonObject>(r.object().value(u"geo")));
        });
    }
    return t;
}

QJsonObject OutboxTurn::toJson() const
{
    QJsonArray fileList;
    for (const OutboxFile &f : files)
        fileList.append(f.toJson());
    QJsonObject o{
        {u"id"_s, id},
        {u"text"_s, text},
        {u"fromVoice"_s, fromVoice},
        {u"voiceReply"_s, voiceReply},
        {u"replyID"_s, replyID},
        {u"replyText"_s, replyText},
        {u"replyRole"_s, replyRole},
        {u"created"_s, created},
        {u"files"_s, fileList},
        {u"error"_s, error},
    };
    if (failure != TurnFailure::None)
        o.insert(u"failure"_s, QString::fromLatin1(failureName(failure)));
    if (unconfirmed)
        o.insert(u"unconfirmed"_s, true);
    if (!reason.isEmpty())
        o.insert(u"reason"_s, reason);
    if (geo)
        o.insert(u"geo"_s, *geo);
    if (voiceNote)
        o.insert(u"voiceNote"_s, voiceNote->toJson());
    // JSON has no NaN; a peak that is not a number is no peak.
    if (voicePeak && std::isfinite(*voicePeak))
        o.insert(u"voicePeak"_s, double(*voicePeak));
    if (afterSeq)
        o.insert(u"afterSeq"_s, *afterSeq);
    if (typed)
        o.insert(u"typed"_s, *typed);
    return o;
}
