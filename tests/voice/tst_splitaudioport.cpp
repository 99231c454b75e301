// Two ports as one: the microphone's signals come from one, the speaker's from the other, and a
// side that cannot open leaves nothing open.
#include "platform/fileaudioport.h"
#include "platform/splitaudioport.h"

#include <QSignalSpy>
#include <QTest>

class SplitAudioPortTest : public QObject
{
    Q_OBJECT

private slots:
    void eachDirectionComesFromItsOwnSide()
    {
        WavFile tone{16000, 2, QByteArray(6400, '\x11')};
        FileAudioPort microphone(tone);
        FileAudioPort speaker;
        SplitAudioPort port(&microphone, &speaker);
        QSignalSpy captured(&port, &AudioPort::captured);
        QSignalSpy rendered(&port, &AudioPort::rendered);
        QSignalSpy done(&port, &AudioPort::bufferDone);
        QVERIFY(port.open("mic", "out"));
        QCOMPARE(port.captureFormat().channels, 2);
        port.enqueue(QByteArray(960, '\x22'), 7);

        microphone.tick();
        QCOMPARE(captured.size(), 1);
        QCOMPARE(captured[0][0].toByteArray().at(0), '\x11');
        QCOMPARE(rendered.size(), 0); // the microphone's own speaker is not the call's
        speaker.tick();
        QCOMPARE(captured.size(), 1); // nor is the speaker's silent microphone
        QCOMPARE(rendered.size(), 1);
        QCOMPARE(done.size(), 1);
        QCOMPARE(done[0][0].toULongLong(), 7u);
        QCOMPARE(speaker.played().left(960), QByteArray(960, '\x22'));
        QCOMPARE(microphone.openedInput, QByteArray("mic"));
        QCOMPARE(speaker.openedOutput, QByteArray("out"));
    }

    void aSideThatFailsClosesTheOther()
    {
        FileAudioPort microphone;
        FileAudioPort speaker;
        speaker.failNextOpen = true;
        SplitAudioPort port(&microphone, &speaker);
        QVERIFY(!port.open({}, {}));
        QVERIFY(!microphone.isOpen());
        QCOMPARE(port.error(), speaker.error());
    }
};

QTEST_GUILESS_MAIN(SplitAudioPortTest)
#include "tst_splitaudioport.moc"
