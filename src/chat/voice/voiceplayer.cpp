#include "voiceplayer.h"

#include "chat/model/chatendpoints.h"
#include "chat/chatlogging.h"

#include "chat/voice/patience.h"
#include "chat/voice/voiceparts.h"
#include "chat/voice/voicerate.h"
#include "net/api.h"
#include "platform/atomicfile.h"
#include "platform/sleeper.h"
#include "platform/voiceoutput.h"

#include <QDir>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto tick = 250ms;
// The server holds a "make the voice" request up to 8 s for news; our own limit is beyond that.
constexpr int prepareTimeoutMs = 20'000;

} // namespace

VoicePlayer::VoicePlayer(Api &api, Dependencies deps, QObject *parent)
    : QObject(parent)
    , m_api(api)
    , m_deps(std::move(deps))
{
    Q_ASSERT(m_deps.output && m_deps.sleeper && m_deps.clock);
    m_ticker.setInterval(tick);
    connect(&m_ticker, &QTimer::timeout, this, &VoicePlayer::progressChanged);
    connect(m_deps.output, &VoiceOutput::ended, this, &VoicePlayer::onEnded);
    connect(m_deps.output, &VoiceOutput::failed, this, &VoicePlayer::onFailed);
}

VoicePlayer::~VoicePlayer()
{
    ++m_generation;
}

bool VoicePlayer::isOgg(const QByteArray &head)
{
    return head.startsWith("OggS");
}

QString VoicePlayer::extensionOf(const QByteArray &head)
{
    if (isOgg(head))
        return u"ogg"_s;
    if (head.startsWith("RIFF") && head.mid(8, 4) == "WAVE")
        return u"wav"_s;
    if (head.startsWith("ID3") || (head.size() > 1 && uchar(head[0]) == 0xFF && (uchar(head[1]) & 0xE0) == 0xE0))
        return u"mp3"_s;
    return u"m4a"_s; // what the server sends when it is none of the others
}

double VoicePlayer::elapsed() const
{
    if (m_phase == Phase::Idle)
        return 0;
    const double at = m_deps.output->position();
    if (m_playingWhole || m_partIndex < 0)
        return at;
    return VoiceParts::before(m_seconds, m_partIndex) + at;
}

double VoicePlayer::total() const
{
    return VoiceParts::total(m_seconds);
}

void VoicePlayer::setPhase(Phase phase)
{
    if (m_phase == phase)
        return;
    m_phase = phase;
    if (phase == Phase::Playing)
        m_ticker.start();
    else
        m_ticker.stop();
    emit phaseChanged();
    emit progressChanged();
}

void VoicePlayer::begin()
{
    ++m_generation;
    m_deps.output->stop();
    m_seconds.clear();
    m_files.clear();
    m_total = 0;
    m_speechDone = false;
    m_partIndex = -1;
    m_whole.clear();
    m_partsBroken = false;
    m_playingWhole = false;
    m_waitingForPart = false;
    m_resumeAfterHold = false;
}

void VoicePlayer::play(qint64 seq, const ChatScope &scope)
{
    begin();
    m_seq = seq;
    m_scope = scope;
    m_fileID.clear();
    emit activeChanged();
    setPhase(Phase::Loading);
    loadSpeech(m_generation);
}

void VoicePlayer::playAttachment(const QString &fileID)
{
    begin();
    m_seq = 0;
    m_scope = ChatScope::main();
    m_fileID = fileID;
    emit activeChanged();
    setPhase(Phase::Loading);
    loadFile(ChatEndpoints::filePlayback(fileID), m_generation);
}

void VoicePlayer::stop()
{
    begin();
    const bool was = m_seq != 0 || !m_fileID.isEmpty();
    m_seq = 0;
    m_fileID.clear();
    if (was)
        emit activeChanged();
    setPhase(Phase::Idle);
}

void VoicePlayer::pause()
{
    if (m_phase != Phase::Playing)
        return;
    m_deps.output->pause();
    setPhase(Phase::Paused);
}

void VoicePlayer::resume()
{
    if (m_phase != Phase::Paused || m_held)
        return;
    m_deps.output->resume();
    setPhase(Phase::Playing);
}

void VoicePlayer::cycleRate()
{
    m_rate = VoiceRate::next(m_rate);
    m_deps.output->setRate(m_rate);
    emit rateChanged();
}

void VoicePlayer::holdForRecording()
{
    m_held = true;
    if (m_phase == Phase::Playing) {
        m_resumeAfterHold = true;
        m_deps.output->pause();
        setPhase(Phase::Paused);
    }
}

void VoicePlayer::resumeAfterRecording()
{
    m_held = false;
    if (std::exchange(m_resumeAfterHold, false))
        resume();
}

void VoicePlayer::seek(double seconds)
{
    if (m_phase != Phase::Playing && m_phase != Phase::Paused)
        return;
    const bool paused = m_phase == Phase::Paused;
    if (m_playingWhole) {
        m_deps.output->play(m_whole, std::max(0.0, seconds), m_rate);
    } else {
        VoiceParts::Place place = VoiceParts::locate(m_seconds, seconds);
        if (place.index >= m_files.size()) {
            // Not made yet: the latest part that is here, from its start.
            place = {int(m_files.size()) - 1, 0};
        }
        if (place.index < 0)
            return;
        playPart(place.index, place.offset);
    }
    if (paused) {
        m_deps.output->pause();
        setPhase(Phase::Paused);
    }
    emit progressChanged();
}

void VoicePlayer::playPart(int index, double offset)
{
    m_partIndex = index;
    m_playingWhole = false;
    m_waitingForPart = false;
    m_deps.output->play(m_files.at(index), offset, m_rate);
    setPhase(Phase::Playing);
    if (m_held) {
        m_resumeAfterHold = true;
        m_deps.output->pause();
        setPhase(Phase::Paused);
    }
}

void VoicePlayer::playWhole(double offset)
{
    m_playingWhole = true;
    m_partIndex = -1;
    m_deps.output->play(m_whole, offset, m_rate);
    setPhase(Phase::Playing);
    if (m_held) {
        m_resumeAfterHold = true;
        m_deps.output->pause();
        setPhase(Phase::Paused);
    }
}

void VoicePlayer::onEnded()
{
    if (m_phase != Phase::Playing)
        return;
    if (!m_playingWhole) {
        const int next = m_partIndex + 1;
        if (next < m_files.size()) {
            playPart(next, 0);
            return;
        }
        const bool more = !m_speechDone || next < std::max<int>(m_total, int(m_seconds.size()));
        if (more) {
            // The next part is still being made: it plays as soon as it lands.
            m_waitingForPart = true;
            setPhase(Phase::Loading);
            return;
        }
    }
    stop();
}

void VoicePlayer::onFailed(const QString &why)
{
    qCInfo(lcVoiceNotes) << "voice did not play:" << why;
    if (m_playingWhole || m_phase == Phase::Idle) {
        setPhase(Phase::Failed);
        return;
    }
    // A part that will not play: the whole file instead, from where the parts had got to.
    m_partsBroken = true;
    if (!m_whole.isEmpty()) {
        playWhole(elapsed());
        return;
    }
    setPhase(Phase::Loading);
}

QString VoicePlayer::keep(const QString &name, const QByteArray &bytes)
{
    const QString path = QDir(m_deps.cache).filePath(name + u'.' + extensionOf(bytes.left(16)));
    // The user's own conversation: readable by the user alone.
    if (!AtomicFile::write(path, bytes))
        return {};
    return path;
}

QCoro::Task<std::optional<QByteArray>> VoicePlayer::fetchPatiently(QString path, bool post,
                                                                   int generation)
{
    QPointer<VoicePlayer> self(this);
    Sleeper *sleeper = m_deps.sleeper;
    const std::function<double()> clock = m_deps.clock;
    const double start = clock();
    const QJsonObject fields = m_scope.fields();
    Api &api = m_api; // outlives the player
    Patience patience;
    for (;;) {
        std::exception_ptr failed;
        QByteArray body;
        try {
            if (post) {
                Api::Request request = api.authorized(path, "POST"_ba, fields);
                request.request.setTransferTimeout(prepareTimeoutMs);
                const Api::Reply reply = co_await api.exchange(request);
                body = reply.data;
            } else {
                body = co_await api.fetch(path);
            }
        } catch (...) {
            failed = std::current_exception();
        }
        if (!self || !self->current(generation))
            co_return std::nullopt;
        if (!failed)
            co_return body;
        try {
            std::rethrow_exception(failed);
        } catch (const Api::Unauthorized &) {
            co_return std::nullopt; // signed out: the session takes it from here
        } catch (const Api::Failed &e) {
            // Worth waiting for: a server that is down or busy, a part not made yet. Any other
            // refusal (no such message) will not change by asking again.
            const bool later = e.unreachable() || e.status == 408 || e.status == 429
                               || (e.status == 404 && !post);
            if (!later) {
                qCInfo(lcVoiceNotes) << "voice refused:" << path << e.description();
                co_return std::nullopt;
            }
        } catch (const std::exception &e) {
            qCDebug(lcVoiceNotes) << "voice not there yet:" << path << e.what();
        }
        const auto wait = patience.next(clock() - start);
        if (!wait)
            co_return std::nullopt;
        co_await sleeper->sleep(*wait);
        if (!self || !self->current(generation))
            co_return std::nullopt;
    }
}

QCoro::Task<> VoicePlayer::loadSpeech(int generation)
{
    QPointer<VoicePlayer> self(this);
    const qint64 seq = m_seq;
    const ChatScope scope = m_scope;
    bool again = false;
    for (;;) {
        const QString ask =
            scope.path(ChatEndpoints::message(seq, again ? u"/voice?wait=8&retry=1"_s : u"/voice?wait=8"_s));
        const std::optional<QByteArray> body = co_await fetchPatiently(ask, true, generation);
        if (!self || !current(generation))
            co_return;
        std::optional<VoiceSpeech> speech;
        if (body) {
            try {
                speech = VoiceSpeech::fromJson(Decode::parse(*body));
            } catch (const DecodeError &e) {
                qCInfo(lcVoiceNotes) << "voice answer not understood:" << e.description();
            }
        }
        if (!speech) {
            setPhase(Phase::Failed);
            co_return;
        }
        m_total = speech->total;
        m_seconds.clear();
        for (const VoiceSpeech::Part &part : std::as_const(speech->parts))
            m_seconds.append(part.seconds);
        const qsizetype before = m_files.size();
        for (const VoiceSpeech::Part &part : std::as_const(speech->parts)) {
            if (part.index != m_files.size())
                continue; // parts land in order; a gap waits for the next answer
            const QString partPath = scope.path(
                ChatEndpoints::message(seq, u"/voice-part/"_s + QString::number(part.index)));
            const std::optional<QByteArray> bytes = co_await fetchPatiently(partPath, false, generation);
            if (!self || !current(generation))
                co_return;
            const QString file = bytes ? keep(u"%1-%2-part-%3"_s.arg(seq).arg(scope.storageKey(u"voice"_s)).arg(part.index), *bytes)
                                       : QString();
            if (file.isEmpty()) {
                setPhase(Phase::Failed);
                co_return;
            }
            m_files.append(file);
            emit partLanded(part.index);
            if (m_partsBroken)
                continue;
            if (m_partIndex < 0 || m_waitingForPart)
                playPart(int(m_files.size()) - 1, 0);
        }
        if (speech->done()) {
            m_speechDone = true;
            const bool noParts = m_files.isEmpty();
            if ((noParts || m_partsBroken) && !speech->voiceURL.isEmpty()) {
                co_await loadFile(speech->voiceURL, generation);
            } else if (noParts) {
                setPhase(Phase::Failed);
            } else if (m_waitingForPart && m_partIndex + 1 >= m_files.size()) {
                stop(); // the last part had already played
            }
            co_return;
        }
        again = true;
        if (m_files.size() == before) {
            // Nothing new: a server that answers at once must not be asked in a tight loop.
            co_await m_deps.sleeper->sleep(1s);
            if (!self || !current(generation))
                co_return;
        }
    }
}

QCoro::Task<> VoicePlayer::loadFile(QString path, int generation)
{
    QPointer<VoicePlayer> self(this);
    const double from = m_partsBroken ? elapsed() : 0;
    const std::optional<QByteArray> bytes = co_await fetchPatiently(path, false, generation);
    if (!self || !current(generation))
        co_return;
    const QString name = m_fileID.isEmpty() ? u"%1-whole"_s.arg(m_seq) : u"file-"_s + m_fileID;
    m_whole = bytes ? keep(name, *bytes) : QString();
    if (m_whole.isEmpty()) {
        setPhase(Phase::Failed);
        co_return;
    }
    playWhole(from);
}
