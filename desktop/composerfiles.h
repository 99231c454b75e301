#pragma once

#include "chat/media/shareditems.h"
#include "chat/media/videocompress.h"

#include <QCoroTask>
#include <QObject>
#include <QPointer>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

#include <atomic>
#include <functional>
#include <memory>

class ChatStore;

// Files on their way into the composer: most go straight into the store's outbox folder,
// videos are shrunk first (off the main thread, with progress) and join the composer when
// they are ready. A send made meanwhile waits for them.
class ComposerFiles : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("made by the chat controller")
    // Videos being shrunk or that could not be: {id, name, progress (0–1), failed, failure}.
    Q_PROPERTY(QVariantList preparing READ preparing NOTIFY preparingChanged)
    // A video is still being shrunk.
    Q_PROPERTY(bool busy READ busy NOTIFY preparingChanged)
    // A video could not be prepared and is still listed: sending waits until it is removed.
    Q_PROPERTY(bool blocked READ blocked NOTIFY preparingChanged)
    // The user pressed send while videos were shrinking: the turn goes when they are ready.
    Q_PROPERTY(bool sendWaiting READ sendWaiting NOTIFY sendWaitingChanged)

public:
    // Why a video was not attached.
    enum Failure { None, TooLong, Unreadable, NotShrunk };
    Q_ENUM(Failure)

    using Shrink = std::function<QCoro::Task<VideoCompress::Result>(
        QString source, QString target, VideoCompress::Progress progress,
        VideoCompress::Stopped stopped)>;

    explicit ComposerFiles(ChatStore *store, QObject *parent = nullptr);
    ~ComposerFiles() override;

    // Tests shrink without FFmpeg.
    void setShrink(Shrink shrink) { m_shrink = std::move(shrink); }

    QVariantList preparing() const;
    bool busy() const;
    bool blocked() const;
    bool sendWaiting() const { return m_sendWaiting; }

    // Returns how many were taken (videos count from the moment they start shrinking).
    int attach(const QList<SharedItem> &items);
    // Stops a video's shrinking or drops one that failed; false when id is none of them.
    Q_INVOKABLE bool remove(const QString &id);
    // The text a person reads for a failure, in the current language.
    Q_INVOKABLE QString failureText(int failure) const;
    // Called on send: true when the send must not go now (it waits, or is blocked).
    bool holdSend();

signals:
    void preparingChanged();
    void sendWaitingChanged();
    // The videos a waiting send waited for are in the composer: the send goes now.
    void ready();

private:
    struct Job {
        QString id;
        QString name;   // the source file's name, as the chip shows it
        QString folder; // scratch folder of the result
        double progress = 0;
        Failure failure = None;
        std::shared_ptr<std::atomic_bool> stop;
    };

    void shrink(const SharedItem &item);
    static QCoro::Task<> run(QPointer<ComposerFiles> self, Shrink shrink, QString id,
                             QString source, QString target);
    void progressed(const QString &id, double fraction);
    void finished(const QString &id, const VideoCompress::Result &result, const QString &target);
    void settle();
    qsizetype indexOf(const QString &id) const;

    ChatStore *m_store;
    Shrink m_shrink;
    QList<Job> m_jobs;
    bool m_sendWaiting = false;
};
