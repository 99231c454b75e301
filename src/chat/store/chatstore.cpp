#include "chat/store/chatstore.h"

#include "chat/voice/voicedelivery.h"
#include "text/l.h"

using namespace Qt::StringLiterals;

ChatStore::ChatStore(ChatScope scope, QString account, QString role, ChatPorts ports,
                     QObject *parent)
    : QObject(parent)
    , m_api(ports.api)
    , m_scope(std::move(scope))
    , m_account(std::move(account))
    , m_outbox(std::make_unique<ChatOutbox>(storageKey()))
    , m_timeline(std::make_unique<ChatTimeline>(m_scope.conversationID(), ports.clock))
    , m_files(std::make_unique<ChatFiles>(m_scope, m_account, role == u"owner", *m_timeline,
                                          ports.sleeper, ports.clock))
    , m_composer(std::make_unique<ChatComposer>(*m_outbox, ports.sleeper, ports.clock))
    , m_sync(std::make_unique<ChatSync>(ports.api, m_scope, *m_timeline, *m_outbox,
                                        ports.sleeper, ports.reachability))
{
    ChatSender::Parts parts{*m_outbox, *m_composer, *m_timeline, *m_sync};
    m_sender = std::make_unique<ChatSender>(ports.api, m_scope, storageKey(), parts,
                                            ports.sleeper, ports.reachability, ports.clock);

    ChatTimeline *timeline = m_timeline.get();
    connect(timeline, &ChatTimeline::laneChanged, this, &ChatStore::laneChanged);
    connect(timeline, &ChatTimeline::messageAdded, this, &ChatStore::messageAdded);
    connect(timeline, &ChatTimeline::unreadChanged, this, &ChatStore::unreadChanged);
    connect(timeline, &ChatTimeline::messagesChanged, m_files.get(), &ChatFiles::saveTranscript);
    connect(timeline, &ChatTimeline::lanesChanged, m_files.get(), &ChatFiles::saveActivity);

    ChatSync *sync = m_sync.get();
    connect(sync, &ChatSync::connectedChanged, this, &ChatStore::connectedChanged);
    connect(sync, &ChatSync::loadingChanged, this, &ChatStore::loadingChanged);
    connect(sync, &ChatSync::failureChanged, this, &ChatStore::failureChanged);
    connect(sync, &ChatSync::networkAvailableChanged, this, &ChatStore::networkAvailableChanged);
    connect(sync, &ChatSync::frameArrived, this, &ChatStore::frameArrived);
    connect(sync, &ChatSync::pageArrived, this, [this](const MessagesFeed &feed, bool replacing) {
        absorb(feed, replacing);
        m_timeline->absorbActivity(feed);
    });
    connect(sync, &ChatSync::stamped, m_sender.get(), &ChatSender::stamp);
    connect(sync, &ChatSync::recovered, m_sender.get(), [this] { m_sender->drain(); });

    ChatSender *sender = m_sender.get();
    connect(sender, &ChatSender::pendingChanged, this, &ChatStore::pendingChanged);
    connect(sender, &ChatSender::sendErrorChanged, this, &ChatStore::sendErrorChanged);
    connect(sender, &ChatSender::cancellingChanged, this, &ChatStore::cancellingChanged);
    connect(sender, &ChatSender::turnQueued, this, &ChatStore::turnQueued);
    connect(sender, &ChatSender::delivered, this, &ChatStore::delivered);
    connect(sender, &ChatSender::withdrawn, this, &ChatStore::withdrawn);
    connect(sender, &ChatSender::settled, this, &ChatStore::settled);
    connect(sender, &ChatSender::notice, this, &ChatStore::setBanner);

    ChatComposer *composer = m_composer.get();
    connect(composer, &ChatComposer::changed, this, &ChatStore::composerChanged);
    connect(composer, &ChatComposer::focusRequested, this, &ChatStore::focusComposer);
    connect(composer, &ChatComposer::failed, sender, &ChatSender::setSendError);
}

ChatStore::~ChatStore()
{
    close();
    flushDisk();
}

void ChatStore::setBanner(const QString &text)
{
    m_banner = text;
    emit bannerChanged();
}

void ChatStore::reset()
{
    // Lanes and anchors still waiting to be written go first: they are read back below.
    m_files->flush();
    m_files->forget();
    m_timeline->clear(m_files->anchors());
    m_sync->clear();
}

void ChatStore::open()
{
    if (isOpen())
        return;
    prepare();
    goLive();
}

void ChatStore::prepare()
{
    reset();
    m_files->rememberProject();
    m_outbox->load();
    if (const int lost = m_outbox->lost(); lost > 0) {
        // Damaged files kept every turn they could; the user hears how many could not be.
        setBanner(L::t(u"לא ניתן היה לקרוא %1 מההודעות שחיכו לשליחה במכשיר הזה."_s,
                       u"%1 of the messages waiting on this device could not be read."_s,
                       u"Не удалось прочитать %1 из сообщений, ждавших отправки на этом устройстве."_s)
                      .arg(lost));
    }
    m_files->hydrate();
    m_sender->restorePending();
    m_composer->restore();
    m_sender->resumeBackgroundTransfers();
}

void ChatStore::goLive()
{
    if (isOpen())
        return;
    m_sync->open();
    m_sender->drain();
}

void ChatStore::close()
{
    m_sync->close();
}

void ChatStore::absorb(const MessagesFeed &feed, bool replacing)
{
    const std::optional<TimelineMerge> merged = m_timeline->merge(feed, replacing);
    if (!merged)
        return;
    m_sync->follow(feed, replacing);
    m_sender->reconcile(feed);
    m_timeline->show(*merged);
}

QCoro::Task<QString> ChatStore::transcribe(float peak, QByteArray wav) const
{
    return VoiceDelivery::transcribe(m_api, m_scope, peak, std::move(wav));
}

void ChatStore::forget()
{
    close();
    flushDisk();
    reset();
}

void ChatStore::reloadOutbox()
{
    m_outbox->load();
    m_composer->clear();
    m_sender->forgetStamps();
    m_sender->restorePending();
}

QVariantList ChatStore::pendingTurnsForQml() const
{
    QVariantList out;
    for (const PendingTurn &p : m_sender->pendingTurns())
        out.append(QVariantMap{{u"id"_s, p.id},
                               {u"text"_s, p.text},
                               {u"files"_s, p.files},
                               {u"error"_s, p.error},
                               {u"reason"_s, p.reason},
                               {u"refused"_s, p.refused},
                               {u"online"_s, p.online},
                               {u"processing"_s, p.processing}});
    return out;
}

QVariantMap ChatStore::replyToForQml() const
{
    const std::optional<ChatMessage> &to = m_composer->replyTo();
    if (!to)
        return {};
    return {{u"seq"_s, to->seq}, {u"role"_s, to->role}, {u"text"_s, to->text}};
}

QVariantList ChatStore::attachmentsForQml() const
{
    QVariantList out;
    for (const ComposerAttachment &a : m_composer->attachments())
        out.append(QVariantMap{{u"id"_s, a.id}, {u"name"_s, a.name}, {u"failed"_s, a.failed}});
    return out;
}

QVariantList ChatStore::cancellingForQml() const
{
    QVariantList out;
    for (int n : m_sender->cancelling())
        out.append(n);
    return out;
}
