// The voice player as the chat screen drives it (against the reference service, with a fake
// sound output and fake time), the files on their way into the composer (with a fake shrink),
// and pictures of both in English and Hebrew.

#include "chatcontroller.h"
#include "composerfiles.h"
#include "desktopstage.h"
#include "voicecontroller.h"
#include "voicesource.h"

#include "platform/atomicfile.h"
#include "platform/fileaudioport.h"
#include "support/service.h"
#include "support/testhome.h"
#include "support/testidentity.h"
#include "support/voicerig.h"

#include <QCoroSignal>
#include <cmath>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QQuickItem>
#include <QProcess>
#include <QQuickView>
#include <QStandardPaths>
#include <QSignalSpy>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(Halvenmark_DesktopPlugin)

using namespace Qt::StringLiterals;

namespace {

// A shrink that reports what the test says and ends when it says so.
class FakeShrink : public QObject
{
    Q_OBJECT

public:
    VideoCompress::Progress progress;
    VideoCompress::Stopped stopped;
    QString target;

signals:
    void finish(VideoCompress::Result result);
};

QCoro::Task<VideoCompress::Result> fakeShrink(FakeShrink *fake, QString target,
                                              VideoCompress::Progress progress,
                                              VideoCompress::Stopped stopped)
{
    fake->progress = std::move(progress);
    fake->stopped = std::move(stopped);
    fake->target = target;
    const VideoCompress::Result result = co_await qCoro(fake, &FakeShrink::finish);
    if (result.ok())
        AtomicFile::write(target, "shrunk");
    co_return result;
}

// Items by object name in the visual tree (list delegates are not QObject children).
QList<QQuickItem *> named(QQuickItem *item, const QString &name)
{
    QList<QQuickItem *> out;
    if (item->objectName() == name && item->isVisible())
        out.append(item);
    for (QQuickItem *child : item->childItems())
        out += named(child, name);
    return out;
}

} // namespace

class DesktopVoiceTest : public QObject, public VoiceRig
{
    Q_OBJECT

    TestHome home;
    Service service;
    TestIdentity identity{service};
    FakeShrink shrink;
    std::unique_ptr<DesktopStage> stage;
    std::unique_ptr<ChatController> chat;
    std::unique_ptr<ChatController> pictured; // a project's conversation, made for the pictures
    qint64 summarySeq = 0;

    VoiceController *voice() const { return stage->app.voice(); }
    ComposerFiles *files() const { return chat->files(); }

    QString video(const QString &name)
    {
        const QString path = QDir(home.path()).filePath(name);
        AtomicFile::write(path, "not really a video");
        return path;
    }

    static QVariantMap speech(qint64 seq)
    {
        return VoiceSource{VoiceSource::Kind::Speech, seq, {}, {}}.toMap();
    }

    void shrinkFakely(ChatController &controller)
    {
        controller.files()->setShrink([this](QString, QString target,
                                             VideoCompress::Progress progress,
                                             VideoCompress::Stopped stopped) {
            return fakeShrink(&shrink, target, progress, stopped);
        });
    }

    // The pictured conversation as the service holds it: the agent's spoken summary, the
    // user's voice note and an audio file. Made once; the store loads it like any other.
    ChatController *picturedChat()
    {
        if (pictured)
            return pictured.get();
        const auto add = [&](QJsonObject message) {
            message.insert("conversation_id", "project:41");
            return post(service, message);
        };
        summarySeq = add({{"role", "assistant"},
                          {"text", "Here is the summary you asked for."},
                          {"voice_file", "r.m4a"},
                          {"created_at", 1700000000}});
        add({{"role", "user"}, {"text", ""}, {"voice_file", "note-1.m4a"}, {"created_at", 1700000060}});
        add({{"role", "assistant"},
             {"text", "The recording from the meeting:"},
             {"created_at", 1700000120},
             {"attachments", QJsonArray{QJsonObject{{"file_id", "memo"}, {"name", "memo.ogg"}}}}});
        pictured = std::make_unique<ChatController>(stage->chats, ChatScope::project(41),
                                                    u"demo"_s, u"user"_s);
        shrinkFakely(*pictured);
        pictured->store()->prepare();
        pictured->store()->load();
        return pictured.get();
    }

private slots:
    void initTestCase()
    {
        DesktopStage::fixLook();
        QVERIFY(service.running());
        stage = std::make_unique<DesktopStage>(identity.api(), home.path());
        // Requests go out as the test's own identity, not the signed-out session's.
        identity.use(service);
        identity.signIn();
        voice()->use([this](QObject *parent) {
            return new VoicePlayer(identity.api(), dependencies(home.path()), parent);
        });
        chat =
            std::make_unique<ChatController>(stage->chats, ChatScope::main(), u"demo"_s, u"user"_s);
        chat->store()->prepare();
        shrinkFakely(*chat);
        seq = post(service, u"Hello"_s);
    }

    void cleanupTestCase()
    {
        pictured.reset();
        chat.reset();
        stage.reset();
    }

    void clock_data()
    {
        QTest::addColumn<double>("seconds");
        QTest::addColumn<QString>("text");
        QTest::newRow("zero") << 0.0 << u"0:00"_s;
        QTest::newRow("rounds down") << 5.9 << u"0:05"_s;
        QTest::newRow("minutes") << 65.0 << u"1:05"_s;
        QTest::newRow("hours") << 3605.0 << u"1:00:05"_s;
        QTest::newRow("negative") << -3.0 << u"0:00"_s;
        QTest::newRow("not a number") << qQNaN() << u"0:00"_s;
    }

    void clock()
    {
        QFETCH(double, seconds);
        QTEST(VoiceController::clock(seconds), "text");
    }

    void sources_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<QStringList>("keys");
        QTest::newRow("agent's voice: speech by parts")
            << uR"({"seq":7,"role":"assistant","text":"x","voice_file":"r.m4a"})"_s
            << QStringList{u"seq:7"_s};
        QTest::newRow("user's note: a file")
            << uR"({"seq":8,"role":"user","text":"x","voice_file":"note.m4a"})"_s
            << QStringList{u"file:note.m4a"_s};
        QTest::newRow("audio attachments by name or type, others not")
            << uR"({"seq":9,"role":"user","text":"x","attachments":[
                   {"file_id":"a","name":"a.OGG"},{"file_id":"b","name":"b","mime":"audio/wav"},
                   {"file_id":"c","name":"c.pdf","mime":"application/pdf"},
                   {"file_id":"d","name":"d.m4a"}]})"_s
            << QStringList{u"file:a"_s, u"file:b"_s, u"file:d"_s};
        QTest::newRow("the note itself is not listed twice")
            << uR"({"seq":10,"role":"user","text":"x","voice_file":"n.ogg",
                   "attachments":[{"file_id":"n.ogg","name":"n.ogg"}]})"_s
            << QStringList{u"file:n.ogg"_s};
    }

    void sources()
    {
        QFETCH(QString, message);
        QStringList keys;
        const ChatMessage m =
            ChatMessage::fromJson(QJsonDocument::fromJson(message.toUtf8()).object());
        for (const VoiceSource &source : VoiceSource::of(m))
            keys.append(source.key());
        QTEST(keys, "keys");
    }

    void videoOutcome_data()
    {
        QTest::addColumn<VideoCompress::Failure>("failure");
        QTest::addColumn<bool>("sent");
        QTest::newRow("shrunk") << VideoCompress::Failure::None << true;
        QTest::newRow("too long") << VideoCompress::Failure::TooLong << false;
        QTest::newRow("unreadable") << VideoCompress::Failure::Unreadable << false;
    }

    void videoOutcome()
    {
        QFETCH(VideoCompress::Failure, failure);
        QFETCH(bool, sent);
        const int attachedBefore = int(chat->store()->composerAttachments().size());
        QCOMPARE(chat->attachUrls({QUrl::fromLocalFile(video(u"clip.mov"_s))}), 1);
        QCOMPARE(files()->preparing().size(), 1);
        QVERIFY(files()->busy());
        shrink.progress(0.423);
        QCOMPARE(files()->preparing().at(0).toMap().value(u"progress"_s).toDouble(), 0.42);

        // Send waits for the video, with the text the composer has when it is ready.
        const int before = chat->store()->queuedCount();
        chat->store()->setComposerText(u"look"_s);
        chat->send(u"look"_s);
        QCOMPARE(chat->store()->queuedCount(), before);
        QVERIFY(files()->sendWaiting());
        const QString folder = QFileInfo(shrink.target).path();

        VideoCompress::Result result;
        result.failure = failure;
        QSignalSpy ready(files(), &ComposerFiles::ready);
        QSignalSpy changed(files(), &ComposerFiles::preparingChanged);
        emit shrink.finish(result); // the shrink's task ends on the next turn of the loop
        QVERIFY(changed.wait());
        QCOMPARE(ready.size(), sent ? 1 : 0);
        QVERIFY(!files()->sendWaiting());
        QVERIFY(!QFileInfo::exists(folder));
        if (sent) {
            QCOMPARE(chat->store()->queuedCount(), before + 1);
            QCOMPARE(chat->store()->pendingTurns().last().files, QStringList{u"clip.mp4"_s});
            QVERIFY(files()->preparing().isEmpty());
            return;
        }
        QCOMPARE(chat->store()->queuedCount(), before);
        QVERIFY(files()->blocked());
        const QVariantMap chip = files()->preparing().at(0).toMap();
        QCOMPARE(files()->failureText(chip.value(u"failure"_s).toInt()),
                 VideoCompress::text(failure));
        chat->send(u"look"_s); // nothing goes while a broken video is attached
        QCOMPARE(chat->store()->queuedCount(), before);
        chat->removeAttachment(chip.value(u"id"_s).toString());
        QVERIFY(!files()->blocked());
        QCOMPARE(int(chat->store()->composerAttachments().size()), attachedBefore);
        chat->store()->setComposerText({});
    }

    void cancelStopsTheShrink()
    {
        chat->attachUrls({QUrl::fromLocalFile(video(u"long.mp4"_s))});
        const QString id = files()->preparing().at(0).toMap().value(u"id"_s).toString();
        QVERIFY(!shrink.stopped());
        chat->removeAttachment(id);
        QVERIFY(shrink.stopped());
        QVERIFY(files()->preparing().isEmpty());
        const QString folder = QFileInfo(shrink.target).path();
        VideoCompress::Result cancelled;
        cancelled.failure = VideoCompress::Failure::Cancelled;
        emit shrink.finish(cancelled);
        QTRY_VERIFY(!QFileInfo::exists(folder));
        QVERIFY(files()->preparing().isEmpty());
    }

    // "Aa" while recording: the heard words join what the composer holds, and nothing is sent.
    void recordingBecomesText()
    {
        service.control("POST", u"voice/transcript"_s, {{"user", "demo"}, {"text", "and buy milk"}});
        WavFile tone{16000, 1, {}};
        for (int i = 0; i < 16000; ++i) {
            const auto v = qint16(8000 * std::sin(i * 0.2));
            tone.samples.append(char(v & 0xff)).append(char((v >> 8) & 0xff));
        }
        chat->useMicrophone(new FileAudioPort(tone, chat.get()));
        chat->store()->setComposerText(u"Call the plumber"_s);
        chat->startRecording();
        QTRY_VERIFY(chat->recording());
        QTest::qWait(300);
        chat->finishRecordingAsText();
        QTRY_VERIFY(!chat->transcribing());
        QCOMPARE(chat->recordError(), QString());
        QCOMPARE(chat->store()->composerText(), u"Call the plumber and buy milk"_s);
        QVERIFY(chat->pending().isEmpty());
    }

    // The composer's own shrink: FFmpeg on a worker thread, its progress back on this one.
    void realVideoJoinsTheComposer()
    {
        const QString ffmpeg = QStandardPaths::findExecutable(u"ffmpeg"_s);
        if (ffmpeg.isEmpty())
            QSKIP("ffmpeg is not installed (scripts/setup installs it)");
        const QString clip = QDir(home.path()).filePath(u"real.mkv"_s);
        QCOMPARE(QProcess::execute(ffmpeg, {"-v", "error", "-y", "-f", "lavfi", "-i",
                                            "testsrc2=size=320x240:rate=15", "-t", "2", "-c:v",
                                            "mpeg4", clip}),
                 0);
        ComposerFiles real(chat->store());
        QList<double> seen;
        connect(&real, &ComposerFiles::preparingChanged, this, [&] {
            if (!real.preparing().isEmpty())
                seen.append(real.preparing().at(0).toMap().value(u"progress"_s).toDouble());
        });
        QCOMPARE(real.attach({{clip, {}, u"real.mkv"_s, SharedItems::mimeOfFile(clip)}}), 1);
        QTRY_VERIFY_WITH_TIMEOUT(real.preparing().isEmpty(), 60'000);
        QVERIFY(seen.size() > 2 && seen.last() > 0.5);
        const ComposerAttachment added = chat->store()->composerAttachments().last();
        QCOMPARE(added.name, u"real.mp4"_s);
        QCOMPARE(added.mime, u"video/mp4"_s);
        chat->removeAttachment(added.id);
    }

    void screens_data()
    {
        QTest::addColumn<QString>("language");
        // The Right arrow moves the way the bar points: forward, or back right to left.
        QTest::addColumn<QString>("rightPart");
        QTest::addColumn<double>("rightFrom");
        QTest::newRow("en") << u"en"_s << u"part-2"_s << 1.5;
        QTest::newRow("he") << u"he"_s << u"part-0"_s << 0.0;
    }

    // The chat with a voice playing, a note and an audio file, and the composer with a
    // video half shrunk.
    void screens()
    {
        QFETCH(QString, language);
        L::set(language);
        ChatController *shown = picturedChat();
        QTRY_COMPARE(shown->store()->messages().size(), 3);
        script(service, {{"conversation_id", "project:41"},
                         {"seq", summarySeq},
                         {"seconds", QJsonArray{2.0, 3.0, 1.5}},
                         {"released", 3},
                         {"done", true}});
        voice()->toggle(speech(summarySeq), shown);
        settle([&] { return voice()->player()->partsLanded() == 3; });
        output.at = 1.2;
        voice()->seek(3.2);
        shown->attachUrls({QUrl::fromLocalFile(video(u"holiday.mov"_s))});
        shrink.progress(0.42);

        const QString qml = QDir(home.path()).filePath(u"screen.qml"_s);
        QFile file(qml);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("import QtQuick\nimport Halvenmark.Desktop\n"
                   "Surface { width: 720; height: 600\n"
                   "  LayoutMirroring.enabled: Lang.rtl; LayoutMirroring.childrenInherit: true\n"
                   "  ChatPage { anchors.fill: parent; chat: testChat } }\n");
        file.close();
        QQuickView view;
        DesktopStage::prepare(*view.engine(), {{u"testChat"_s, shown}});
        view.setSource(QUrl::fromLocalFile(qml));
        QCOMPARE(view.status(), QQuickView::Ready); // the screen loads without errors
        view.show();
        QQuickItem *root = view.rootObject();
        QTRY_COMPARE(named(root, u"voiceBar"_s).size(), 3);
        QTRY_COMPARE(named(root, u"preparing_running"_s).size(), 1);
        QCOMPARE(named(root, u"voiceTime"_s).at(0)->property("text").toString(), u"0:03 / 0:06"_s);
        QTest::qWait(100); // the list's scroll to the end lands on the next frames
        const QString shot = DesktopStage::shots() + u"/voice-"_s + language + u".png"_s;
        QVERIFY(view.grabWindow().save(shot));

        // The keys of a player with focus: Space pauses, Right moves 5 s.
        QQuickItem *bar = named(root, u"voiceBar"_s).at(0);
        bar->forceActiveFocus();
        QTRY_VERIFY(bar->hasActiveFocus());
        QTest::keyClick(&view, Qt::Key_Space);
        QCOMPARE(voice()->state(), VoiceController::Paused);
        QTest::keyClick(&view, Qt::Key_Right);
        QTEST(QFileInfo(output.played.last().file).completeBaseName().section(u'-', -2),
              "rightPart");
        QTEST(output.played.last().from, "rightFrom");
        QCOMPARE(voice()->state(), VoiceController::Paused);

        shown->files()->remove(shown->files()->preparing().at(0).toMap().value(u"id"_s).toString());
        VideoCompress::Result cancelled; // the shrink ends too, as it would after a cancel
        cancelled.failure = VideoCompress::Failure::Cancelled;
        emit shrink.finish(cancelled);
        QTRY_VERIFY(!QFileInfo::exists(QFileInfo(shrink.target).path()));
        voice()->stop();
        L::set(u"en"_s);
    }
};

QTEST_MAIN(DesktopVoiceTest)
#include "desktopvoicetest.moc"
