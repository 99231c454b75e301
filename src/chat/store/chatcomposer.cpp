#include "chat/store/chatcomposer.h"
#include "chat/chatlogging.h"

#include "chat/outbox/chatoutbox.h"
#include "chat/store/composerattachmentsmodel.h"
#include "platform/clock.h"
#include "text/l.h"

#include <QFileInfo>
#include <QLoggingCategory>
#include <QMimeDatabase>
#include <QUuid>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

QString freshID()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

QString couldNotSaveFile()
{
    return L::t(u"לא ניתן לשמור את הקובץ במכשיר הזה."_s, u"Could not save the file on this device."_s,
                u"Не удалось сохранить файл на этом устройстве."_s);
}

} // namespace

ChatComposer::ChatComposer(ChatOutbox &outbox, Sleeper &sleeper, Clock &clock, QObject *parent)
    : QObject(parent)
    , m_outbox(outbox)
    , m_clock(clock)
    , m_model(new ComposerAttachmentsModel(this))
    , m_save(this, 500ms, [this] { save(); }, &sleeper)
{
}

ChatComposer::~ChatComposer()
{
    if (m_save.pending())
        save();
}

const QList<ComposerAttachment> &ChatComposer::attachments() const
{
    return m_model->items();
}

void ChatComposer::setText(const QString &text)
{
    if (m_text == text)
        return;
    m_text = text;
    emit changed();
    m_save.schedule();
}

void ChatComposer::save()
{
    m_save.flush();
    const std::optional<QString> text = m_text.isEmpty() ? std::nullopt : std::optional(m_text);
    if (!m_outbox.setComposer(text, m_replyTo))
        qCWarning(lcChat) << "could not save the composer";
}

void ChatComposer::setReplyTo(const std::optional<ChatMessage> &message)
{
    m_replyTo = message;
    emit changed();
    save();
}

void ChatComposer::continueTask(int number, const QString &text)
{
    ChatMessage target = ChatMessage::make(u"assistant"_s, text,
                                           m_clock.epochSeconds());
    target.taskNo = QString::number(number);
    setReplyTo(target);
    emit focusRequested();
}

bool ChatComposer::attach(const QString &name, const QString &mime, const QByteArray &data)
{
    const ComposerAttachment a{freshID(), name, mime.isEmpty() ? u"application/octet-stream"_s : mime,
                               freshID()};
    if (!m_outbox.writeData(a.fileID, data)) {
        emit failed(couldNotSaveFile());
        return false;
    }
    m_model->append(a);
    emit changed();
    return true;
}

bool ChatComposer::attachFile(const QString &path, const QString &name, const QString &mime)
{
    const QFileInfo info(path);
    const QString shown = name.isEmpty() ? info.fileName() : name;
    const QString type = mime.isEmpty() ? QMimeDatabase().mimeTypeForFile(info).name() : mime;
    const ComposerAttachment a{freshID(), shown, type.isEmpty() ? u"application/octet-stream"_s : type,
                               freshID()};
    if (!info.isFile() || !m_outbox.copyData(a.fileID, path)) {
        emit failed(couldNotSaveFile());
        return false;
    }
    m_model->append(a);
    emit changed();
    return true;
}

void ChatComposer::removeAttachment(const QString &id)
{
    const QList<ComposerAttachment> &items = m_model->items();
    for (qsizetype i = 0; i < items.size(); ++i) {
        if (items.at(i).id == id) {
            m_outbox.removeData(items.at(i).fileID);
            m_model->remove(int(i));
            emit changed();
            return;
        }
    }
}

void ChatComposer::restore()
{
    m_text = m_outbox.state().composerText.value_or(QString());
    m_replyTo = m_outbox.state().replyTo;
    emit changed();
}

void ChatComposer::sent(bool keepDraft)
{
    if (!keepDraft) {
        m_model->set({});
        m_text.clear();
    }
    m_replyTo.reset();
    save();
    emit changed();
}

void ChatComposer::takeBack(const OutboxTurn &turn)
{
    if (m_text.trimmed().isEmpty())
        m_text = turn.text;
    else if (!turn.text.isEmpty() && !m_text.contains(turn.text))
        m_text += u"\n"_s + turn.text;
    for (const OutboxFile &file : turn.files)
        m_model->append(ComposerAttachment{file.id, file.name, file.mime, file.fileID});
    m_replyTo.reset();
    save();
    emit changed();
}

void ChatComposer::clear()
{
    m_text.clear();
    m_replyTo.reset();
    m_model->set({});
    emit changed();
}
