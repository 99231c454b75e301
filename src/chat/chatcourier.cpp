#include "chatcourier.h"

#include "chat/chatbackgroundtransfer.h"
#include "chat/chatoutbox.h"
#include "chat/uploadreply.h"
#include "net/api.h"
#include "platform/sleeper.h"
#include "text/l.h"

#include <QJsonArray>

#include <algorithm>
#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcChat)

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// A blip (a dropped connection, a timed-out answer, the proxy briefly down) is ridden out
// inside one attempt: the text is tried once more after this pause. The transfer is named
// after the turn and the server is idempotent by its id, so the second try cannot post twice.
constexpr auto blipPause = 8s;

enum class Failure { Offline, Blip, Refused, DeadReply };

// Hebrew, English, Russian.
constexpr const char16_t *savedText[] = {
    u"ההודעה נשמרה במכשיר הזה. הקישו „נסו שוב” על ההודעה.",
    u"Your message is saved on this device. Tap Retry on the message.",
    u"Сообщение сохранено на этом устройстве. Нажмите «Повторить» на сообщении.",
};

Failure classify(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const Api::TransportError &e) {
        return e.transient() ? Failure::Blip : Failure::Offline;
    } catch (const Api::Failed &e) {
        if (e.code == u"reply_target_not_found")
            return Failure::DeadReply;
        return e.unreachable() ? Failure::Blip : Failure::Refused;
    } catch (const Api::Unauthorized &) {
        return Failure::Offline; // signed out: the turn waits for the next session
    } catch (...) {
        return Failure::Refused;
    }
}

QString reasonOf(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const Api::Failed &e) {
        return e.description();
    } catch (const DecodeError &e) {
        return e.description();
    } catch (const std::exception &e) {
        return QString::fromLocal8Bit(e.what());
    }
}

QJsonObject withScope(QJsonObject body, const ChatScope &scope)
{
    const QJsonObject fields = scope.fields();
    for (auto it = fields.begin(); it != fields.end(); ++it)
        body.insert(it.key(), it.value());
    return body;
}

} // namespace

ChatCourier::ChatCourier(ChatScope scope, QString storageKey, Sleeper *sleeper)
    : m_scope(std::move(scope))
    , m_storageKey(std::move(storageKey))
    , m_sleeper(sleeper ? sleeper : &Sleeper::real())
{
}

QString ChatCourier::savedForRetry()
{
    return L::t(QString::fromUtf16(savedText[0]), QString::fromUtf16(savedText[1]),
                QString::fromUtf16(savedText[2]));
}

QString ChatCourier::notConfirmed()
{
    return L::t(u"השרת לא אישר את קבלת ההודעה."_s, u"Message acceptance was not confirmed."_s,
                u"Сервер не подтвердил приём сообщения."_s);
}

bool ChatCourier::isOfflineError(const QString &error)
{
    // The text was stored in whatever language the app spoke then.
    return std::any_of(std::begin(savedText), std::end(savedText),
                       [&](const char16_t *text) { return error == QStringView(text); });
}

QCoro::Task<ChatCourier::Result> ChatCourier::deliver(OutboxTurn turn, const ChatOutbox *outbox)
{
    if (turn.voiceNote) {
        // Voice notes go through "webapi/voice" first; this build cannot record them, so a
        // turn carrying one (from another build) waits in the outbox untouched.
        co_return Result{Delivery::Stopped,
                         L::t(u"הודעות קוליות עדיין לא נשלחות מהמכשיר הזה."_s,
                              u"Voice notes cannot be sent from this device yet."_s,
                              u"Голосовые сообщения с этого устройства пока не отправляются."_s)};
    }

    QStringList lines;
    for (const OutboxFile &file : turn.files) {
        const std::optional<QByteArray> bytes = outbox->readData(file.fileID);
        if (!bytes) {
            co_return Result{Delivery::Stopped,
                             L::t(u"הקובץ %1 כבר לא נמצא במכשיר."_s,
                                  u"The file %1 is no longer on this device."_s,
                                  u"Файла %1 больше нет на устройстве."_s)
                                 .arg(file.name)};
        }
        Multipart::Fields fields;
        fields.append({u"client_request_id"_s, file.id});
        const QJsonObject scope = m_scope.fields();
        for (auto it = scope.begin(); it != scope.end(); ++it)
            fields.append({it.key(), it.value().isDouble() ? QString::number(it.value().toInteger())
                                                           : it.value().toString()});
        Api::Upload upload{{u"file"_s, file.name, file.mime, *bytes}, fields};
        const QString key = ChatBackgroundTransfer::key(m_storageKey, u"upload"_s, file.id);
        std::exception_ptr failed;
        UploadReply reply;
        // Named, not a braced temporary: GCC 12 destroys brace-built aggregate arguments of a
        // coroutine twice.
        const Api::Options options{{}, key};
        try {
            reply = co_await Api::upload<UploadReply>(m_scope.path(u"webapi/upload"_s), upload,
                                                      options);
        } catch (...) {
            failed = std::current_exception();
        }
        if (failed) {
            const Failure kind = classify(failed);
            if (kind == Failure::Offline || kind == Failure::Blip)
                co_return Result{Delivery::Offline, savedForRetry()};
            co_return Result{Delivery::Stopped, reasonOf(failed)};
        }
        if (!reply.ok || !reply.fileID) {
            co_return Result{Delivery::Stopped,
                             reply.error.value_or(L::t(u"השרת לא קיבל את הקובץ %1."_s,
                                                       u"The server did not take the file %1."_s,
                                                       u"Сервер не принял файл %1."_s)
                                                      .arg(file.name))};
        }
        lines.append(u"[attachment: "_s + reply.name.value_or(file.name) + u"]"_s);
    }
    co_return co_await sendText(std::move(turn), std::move(lines));
}

QCoro::Task<ChatCourier::Result> ChatCourier::sendText(OutboxTurn turn, QStringList attachmentLines)
{
    QString text = turn.text;
    for (const QString &line : attachmentLines)
        text += (text.isEmpty() ? QString() : u"\n"_s) + line;
    QJsonObject body;
    body.insert(u"text"_s, text);
    body.insert(u"voice_reply"_s, turn.voiceReply);
    body.insert(u"from_voice"_s, turn.fromVoice);
    if (!turn.replyID.isEmpty())
        body.insert(u"reply_to_id"_s, turn.replyID);
    body.insert(u"client_request_id"_s, turn.id);
    body = withScope(body, m_scope);
    const QString key = ChatBackgroundTransfer::key(m_storageKey, u"chat"_s, turn.id);

    const Api::Options options{{}, key};
    for (int attempt = 0;; ++attempt) {
        std::exception_ptr failed;
        QJsonObject reply;
        try {
            reply = co_await Api::post(m_scope.path(u"webapi/chat"_s), body, options);
        } catch (...) {
            failed = std::current_exception();
        }
        if (!failed) {
            const qint64 seq = qint64(reply.value(u"user_seq").toDouble());
            const QString run = reply.value(u"run_id").toString();
            if (seq >= 1 && !run.isEmpty())
                co_return Result{Delivery::Settled, {}, seq, run};
            co_return Result{Delivery::Stopped, notConfirmed()};
        }
        const Failure kind = classify(failed);
        if (kind == Failure::DeadReply) {
            Result dead{Delivery::Stopped, reasonOf(failed)};
            dead.deadReply = true;
            co_return dead;
        }
        if (kind == Failure::Refused)
            co_return Result{Delivery::Stopped, reasonOf(failed)};
        if (kind == Failure::Offline || attempt > 0)
            co_return Result{Delivery::Offline, savedForRetry()};
        qCDebug(lcChat) << "the chat post hit a blip; one more try in" << blipPause.count() << "s";
        co_await m_sleeper->sleep(blipPause);
        // A receipt of any status from the first try would answer again: drop it.
        if (auto *transfers = ChatBackgroundTransfer::shared())
            transfers->discard(key);
    }
}
