#include "chatcontroller.h"

#include "chat/chatoutbox.h"
#include "chat/chatrowsmodel.h"
#include "chat/delivery.h"
#include "chat/voice/recorder.h"
#include "platform/qtaudioport.h"
#include "messagerows.h"
#include "text/l.h"

#include <QBuffer>
#include <QClipboard>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QImageWriter>
#include <QMimeData>
#include <QMimeDatabase>
#include <QPainter>

using namespace Qt::StringLiterals;

ChatController::ChatController(ChatScope scope, QString account, QString role, QObject *parent)
    : QObject(parent)
    , m_account(account)
    , m_store(new ChatStore(std::move(scope), std::move(account), std::move(role), {}, this))
    , m_rows(new MessageRows(this))
{
    m_rows->setSourceModel(m_store->rows());
    connect(m_store, &ChatStore::pendingChanged, this, &ChatController::pendingChanged);
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
    const double now = QDateTime::currentMSecsSinceEpoch() / 1000.0;
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
    int attached = 0;
    for (const QUrl &url : urls) {
        if (url.isLocalFile() && QFileInfo(url.toLocalFile()).isFile() &&
            m_store->attachFile(url.toLocalFile()))
            ++attached;
    }
    return attached;
}

bool ChatController::paste()
{
    return attachMime(QGuiApplication::clipboard()->mimeData());
}

bool ChatController::attachMime(const QMimeData *data)
{
    if (!data)
        return false;
    if (data->hasUrls()) {
        QList<QUrl> local;
        for (const QUrl &url : data->urls()) {
            if (url.isLocalFile())
                local.append(url);
        }
        if (!local.isEmpty())
            return attachUrls(local) > 0;
    }
    if (!data->hasImage())
        return false;
    const QImage image = qvariant_cast<QImage>(data->imageData());
    if (image.isNull())
        return false;
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "jpeg");
    writer.setQuality(90);
    // JPEG has no alpha: flatten onto white so transparent parts do not turn black.
    QImage flat(image.size(), QImage::Format_RGB32);
    flat.fill(Qt::white);
    {
        QPainter painter(&flat);
        painter.drawImage(0, 0, image);
    }
    if (!writer.write(flat))
        return false;
    return m_store->attach(u"photo.jpg"_s, u"image/jpeg"_s, bytes);
}

void ChatController::removeAttachment(const QString &id)
{
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
    return m_recorder ? m_recorder->error() : QString();
}

void ChatController::startRecording()
{
    if (!m_recorder) {
        m_microphone = new QtAudioPort(this);
        Recorder::Dependencies deps;
        deps.port = m_microphone;
        m_recorder = new Recorder(deps, this);
        connect(m_recorder, &Recorder::recordingChanged, this, &ChatController::recordingChanged);
        connect(m_recorder, &Recorder::errorChanged, this, &ChatController::recordingChanged);
        connect(m_recorder, &Recorder::levelChanged, this, &ChatController::recordLevelChanged);
    }
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

void ChatController::cancelRecording()
{
    if (m_recorder)
        m_recorder->cancel();
}
