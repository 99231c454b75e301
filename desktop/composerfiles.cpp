#include "composerfiles.h"

#include "chat/store/chatstore.h"
#include "text/l.h"

#include <QDir>
#include <QFileInfo>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace {

ComposerFiles::Failure failureOf(VideoCompress::Failure failure)
{
    switch (failure) {
    case VideoCompress::Failure::TooLong:
        return ComposerFiles::TooLong;
    case VideoCompress::Failure::Unreadable:
        return ComposerFiles::Unreadable;
    default:
        return ComposerFiles::NotShrunk;
    }
}

} // namespace

ComposerFiles::ComposerFiles(ChatStore *store, QObject *parent)
    : QObject(parent)
    , m_store(store)
    , m_shrink([](QString source, QString target, VideoCompress::Progress progress,
                  VideoCompress::Stopped stopped) {
        const VideoLimits limits;
        return VideoCompress::shrinkAsync(std::move(source), std::move(target), std::move(progress),
                                          limits, std::move(stopped));
    })
{}

ComposerFiles::~ComposerFiles()
{
    // The worker threads notice between packets; their coroutines find us gone.
    for (const Job &job : std::as_const(m_jobs))
        job.stop->store(true);
}

QVariantList ComposerFiles::preparing() const
{
    QVariantList out;
    for (const Job &job : m_jobs)
        out.append(QVariantMap{{u"id"_s, job.id},
                               {u"name"_s, job.name},
                               {u"progress"_s, job.progress},
                               {u"failed"_s, job.failure != None},
                               {u"failure"_s, int(job.failure)}});
    return out;
}

bool ComposerFiles::busy() const
{
    return std::any_of(m_jobs.begin(), m_jobs.end(),
                       [](const Job &j) { return j.failure == None; });
}

bool ComposerFiles::blocked() const
{
    return std::any_of(m_jobs.begin(), m_jobs.end(),
                       [](const Job &j) { return j.failure != None; });
}

int ComposerFiles::attach(const QList<SharedItem> &items)
{
    int taken = 0;
    for (const SharedItem &item : items) {
        if (item.isFile() && item.mime.startsWith(u"video/")) {
            shrink(item);
            ++taken;
        } else if (item.isFile() ? m_store->attachFile(item.path, item.name, item.mime)
                                 : m_store->attach(item.name, item.mime, item.data)) {
            ++taken;
        }
    }
    return taken;
}

void ComposerFiles::shrink(const SharedItem &item)
{
    Job job;
    job.id = u"video-"_s + QUuid::createUuid().toString(QUuid::Id128);
    job.name = item.name;
    job.folder = SharedItems::scratch();
    job.stop = std::make_shared<std::atomic_bool>(false);
    if (job.folder.isEmpty())
        job.failure = NotShrunk;
    m_jobs.append(job);
    emit preparingChanged();
    if (job.failure != None)
        return;
    const QString target =
        QDir(job.folder).filePath(QFileInfo(item.name).completeBaseName() + u".mp4"_s);
    run(QPointer(this), m_shrink, job.id, item.path, target);
}

QCoro::Task<> ComposerFiles::run(QPointer<ComposerFiles> self, Shrink shrink, QString id,
                                 QString source, QString target)
{
    const qsizetype at = self->indexOf(id);
    const std::shared_ptr<std::atomic_bool> stop = self->m_jobs.at(at).stop;
    VideoCompress::Progress progress = [self, id](double fraction) {
        if (self)
            self->progressed(id, fraction);
    };
    VideoCompress::Stopped stopped = [stop] { return stop->load(); };
    const VideoCompress::Result result = co_await shrink(source, target, progress, stopped);
    if (!self) {
        QDir(QFileInfo(target).path()).removeRecursively();
        co_return;
    }
    self->finished(id, result, target);
}

void ComposerFiles::progressed(const QString &id, double fraction)
{
    const qsizetype at = indexOf(id);
    if (at < 0)
        return;
    // Whole percents: the chip redraws a hundred times, not a thousand.
    const double rounded = std::floor(std::clamp(fraction, 0.0, 1.0) * 100) / 100;
    if (rounded == m_jobs[at].progress)
        return;
    m_jobs[at].progress = rounded;
    emit preparingChanged();
}

void ComposerFiles::finished(const QString &id, const VideoCompress::Result &result,
                             const QString &target)
{
    const qsizetype at = indexOf(id);
    if (at < 0) {
        // Removed while it shrank.
        QDir(QFileInfo(target).path()).removeRecursively();
        return;
    }
    if (!result.ok()) {
        m_jobs[at].failure = failureOf(result.failure);
        QDir(m_jobs[at].folder).removeRecursively();
        emit preparingChanged();
        settle();
        return;
    }
    const Job job = m_jobs.takeAt(at);
    // A store that cannot keep it says so in its sendError; the user's own file is untouched.
    m_store->attachFile(target, QFileInfo(target).fileName(), u"video/mp4"_s);
    QDir(job.folder).removeRecursively();
    emit preparingChanged();
    settle();
}

bool ComposerFiles::remove(const QString &id)
{
    const qsizetype at = indexOf(id);
    if (at < 0)
        return false;
    const Job job = m_jobs.takeAt(at);
    job.stop->store(true);
    if (job.failure != None)
        QDir(job.folder).removeRecursively();
    emit preparingChanged();
    settle();
    return true;
}

QString ComposerFiles::failureText(int failure) const
{
    switch (Failure(failure)) {
    case None:
        return {};
    case TooLong:
        return VideoCompress::text(VideoCompress::Failure::TooLong);
    case Unreadable:
        return VideoCompress::text(VideoCompress::Failure::Unreadable);
    case NotShrunk:
        return VideoCompress::text(VideoCompress::Failure::Unwritable);
    }
    return {};
}

bool ComposerFiles::holdSend()
{
    if (blocked())
        return true;
    if (!busy())
        return false;
    if (!m_sendWaiting) {
        m_sendWaiting = true;
        emit sendWaitingChanged();
    }
    return true;
}

void ComposerFiles::settle()
{
    if (!m_sendWaiting || busy())
        return;
    m_sendWaiting = false;
    emit sendWaitingChanged();
    // A video that failed keeps the turn in the composer: nothing goes out without it.
    if (!blocked())
        emit ready();
}

qsizetype ComposerFiles::indexOf(const QString &id) const
{
    for (qsizetype i = 0; i < m_jobs.size(); ++i) {
        if (m_jobs.at(i).id == id)
            return i;
    }
    return -1;
}
