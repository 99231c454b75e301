#include "chatcontroller.h"

#include "chat/outbox/chatoutbox.h"
#include "chat/store/chatrowsmodel.h"
#include "chat/store/chatstores.h"
#include "chat/model/delivery.h"
#include "chat/voice/recorder.h"
#include "platform/qtaudioport.h"
#include "chat/media/shareditems.h"
#include "composerfiles.h"
#include "voicecontroller.h"
#include "messagerows.h"
#include "text/l.h"

#include "platform/clock.h"
#include <QClipboard>
#include <QCoroTask>
#include <QPointer>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMimeData>

using namespace Qt::StringLiterals;

ChatController::ChatController(ChatStores &stores, ChatScope scope, QString account, QString role,
                               QObject *parent)
    : QObject(parent)
    , m_ports(stores.ports())
    , m_account(account)
    , m_store(stores.make(std::move(scope), std::move(account), std::move(role), this))
    , m_rows(new MessageRows(this))
    , m_files(new ComposerFiles(m_store, this))
{
    m_rows->setSourceModel(m_store->rows());
    connect(m_store, &ChatStore::pendingChanged, this, &ChatController::pendingChanged);
    // A send that waited for videos goes with whatever the composer holds by then.
    connect(m_files, &ComposerFiles::ready, this, [this] { m_store->send(m_store->composerText()); });
}

ChatController::~ChatController()
{
    m_store->close();
    m_store->flushDisk();
}

void ChatController::open()
{
    m_store->open();
}

void ChatController::refresh()
{
    if (m_store->isOpen())
        m_store->refresh();
}

QVariantList ChatController::pending() const
{
    const double now = m_ports.clock.epochSeconds();
    QVariantList out;
    for (const PendingTurn &turn : m_store->pendingTurns()) {
        QString state = u"sending"_s;
        if (!turn.error.isEmpty())
            state = u"failed"_s;
        else if (turn.processing)
            state = u"working"_s;
        else if (!turn.online)
            state = u"waiting"_s;
        QStringList progress;
        for (const QString &text : turn.uploads)
            progress.append(text);
        if (!turn.voiceUpload.isEmpty())
            progress.append(turn.voiceUpload);
        out.append(QVariantMap{{u"id"_s, turn.id},
                               {u"text"_s, turn.text},
                               {u"files"_s, turn.files},
                               {u"error"_s, turn.error},
                               {u"state"_s, state},
                               {u"progress"_s, progress.join(u" · "_s)},
                               {u"stalled"_s, !progress.isEmpty() && !turn.moving(now)}});
    }
    return out;
}

void ChatController::send(const QString &text)
{
    if (m_files->holdSend())
        return;
    m_store->send(text);
}

void ChatController::retry(const QString &turnID)
{
    m_store->retry(turnID);
}

void ChatController::discard(const QString &turnID)
{
    // The store puts the turn's text back after whatever the composer already holds.
    m_store->takeBack(turnID);
}

void ChatController::replyTo(qint64 seq)
{
    for (const ChatMessage &message : m_store->messages()) {
        if (message.seq == seq) {
            m_store->setReplyTo(message);
            return;
        }
    }
}

void ChatController::clearReply()
{
    m_store->setReplyTo(std::nullopt);
}

int ChatController::attachUrls(const QList<QUrl> &urls)
{
    QList<SharedItem> items;
    for (const QUrl &url : urls) {
        const QString path = url.toLocalFile();
        if (url.isLocalFile() && QFileInfo(path).isFile())
            items.append({path, {}, QFileInfo(path).fileName(), SharedItems::mimeOfFile(path)});
    }
    return m_files->attach(items);
}

bool ChatController::paste()
{
    return attachMime(QGuiApplication::clipboard()->mimeData());
}

bool ChatController::attachMime(const QMimeData *data)
{
    return m_files->attach(SharedItems::fromMime(data)) > 0;
}

void ChatController::removeAttachment(const QString &id)
{
    if (!m_files->remove(id))
        m_store->removeAttachment(id);
}

QUrl ChatController::preview(const QString &id) const
{
    for (const ComposerAttachment &a : m_store->composerAttachments()) {
        if (a.id == id && a.mime.startsWith(u"image/"))
            return QUrl::fromLocalFile(m_store->outbox().dataPath(a.fileID));
    }
    return {};
}

void ChatController::copy(const QString &text) const
{
    QGuiApplication::clipboard()->setText(text);
}

void ChatController::stop(int number)
{
    if (number > 0)
        m_store->cancelTask(number);
}

void ChatController::markRead()
{
    m_store->markRead();
}

bool ChatController::recording() const
{
    return m_recorder && m_recorder->recording();
}

double ChatController::recordLevel() const
{
    return m_recorder ? m_recorder->level() : 0.0;
}

QString ChatController::recordError() const
{
    if (!m_transcribeError.isEmpty())
        return m_transcribeError;
    return m_recorder ? m_recorder->error() : QString();
}

void ChatController::startRecording()
{
    if (!m_recorder) {
        if (!m_microphone)
            m_microphone = new QtAudioPort(this);
        m_recorder = new Recorder(
            {.port = m_microphone, .sleeper = m_ports.sleeper, .clock = m_ports.clock}, this);
        connect(m_recorder, &Recorder::recordingChanged, this, &ChatController::recordingChanged);
        connect(m_recorder, &Recorder::errorChanged, this, &ChatController::recordingChanged);
        connect(m_recorder, &Recorder::levelChanged, this, &ChatController::recordLevelChanged);
    }
    m_recorder->setPlayer(m_voice ? m_voice->existingPlayer() : nullptr);
    m_recorder->start(); // runs on by itself; its properties tell the screen
}

void ChatController::finishRecording()
{
    const std::optional<Recorder::Take> take = m_recorder ? m_recorder->stop() : std::nullopt;
    if (!take)
        return;
    QFile file(take->path);
    const QByteArray wav = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    file.close();
    // The outbox keeps its own copy; without a turn the recording stays where it is.
    if (!m_store->submitVoice(take->peak, wav).isEmpty())
        QFile::remove(take->path);
}

void ChatController::finishRecordingAsText()
{
    const std::optional<Recorder::Take> take = m_recorder ? m_recorder->stop() : std::nullopt;
    if (!take || m_transcribing)
        return;
    QFile file(take->path);
    const QByteArray wav = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    file.close();
    m_transcribing = true;
    m_transcribeError.clear();
    emit recordingChanged();
    [](QPointer<ChatController> self, QString path, float peak, QByteArray wav) -> QCoro::Task<> {
        QString heard;
        QString failure;
        try {
            const QString got = co_await self->m_store->transcribe(peak, std::move(wav));
            heard = got;
        } catch (...) {
            failure = L::t(u"לא ניתן להפוך את ההקלטה לטקסט; היא נשמרה ב־%1"_s,
                           u"Could not turn the recording into text; it is kept at %1"_s,
                           u"Не удалось превратить запись в текст; она сохранена в %1"_s)
                          .arg(path);
        }
        if (!self)
            co_return;
        self->m_transcribing = false;
        self->m_transcribeError = failure;
        if (failure.isEmpty()) {
            QFile::remove(path);
            const QString before = self->m_store->composerText();
            self->m_store->setComposerText(
                before.trimmed().isEmpty() ? heard : before.trimmed() + u' ' + heard);
        }
        emit self->recordingChanged();
    }(QPointer<ChatController>(this), take->path, take->peak, wav);
}

void ChatController::cancelRecording()
{
    if (m_recorder)
        m_recorder->cancel();
}
