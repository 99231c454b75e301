#include "chatcontroller.h"

#include "chat/store/chatstores.h"
#include "platform/clock.h"
#include "platform/sleeper.h"
#include "support/fakereachability.h"
#include "jsontreemodel.h"
#include "messagerows.h"
#include "textsizememo.h"

#include "chat/outbox/chatoutbox.h"
#include "chat/store/chatrowsmodel.h"
#include "support/testapi.h"
#include "support/liveports.h"
#include "support/testhome.h"

#include <QAbstractItemModelTester>
#include <QImage>
#include <QJsonDocument>
#include <QMimeData>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// "key=value" per shown row, depth as leading dots.
QString shown(const JsonTreeModel &model)
{
    QStringList rows;
    for (int i = 0; i < model.rowCount(); ++i) {
        const QModelIndex at = model.index(i);
        rows.append(QString(at.data(JsonTreeModel::DepthRole).toInt(), u'.') +
                    at.data(JsonTreeModel::KeyRole).toString() + u'=' +
                    at.data(JsonTreeModel::ValueRole).toString());
    }
    return rows.join(u'|');
}

} // namespace

class DesktopModelsTest : public QObject
{
    Q_OBJECT

    TestApi api;

private slots:
    void jsonTree_data()
    {
        QTest::addColumn<QString>("json");
        QTest::addColumn<QList<int>>("toggles");
        QTest::addColumn<QString>("expected");

        QTest::newRow("empty object") << u"{}"_s << QList<int>{} << QString();
        QTest::newRow("scalar page") << u"5"_s << QList<int>{} << u"=5"_s;
        QTest::newRow("first level open") << uR"({"a":1,"b":{"c":true},"d":null,"e":"x"})"_s
                                          << QList<int>{} << uR"(a=1|b={1}|d=null|e="x")"_s;
        QTest::newRow("open a child")
            << uR"({"a":1,"b":{"c":true}})"_s << QList<int>{1} << u"a=1|b={1}|.c=true"_s;
        QTest::newRow("closing hides the whole subtree")
            << uR"([{"x":[1,2]}])"_s << QList<int>{0, 1, 0} << u"0={1}"_s;
        QTest::newRow("nested open")
            << uR"([{"x":[1,2]}])"_s << QList<int>{0, 1} << u"0={1}|.x=[2]|..0=1|..1=2"_s;
        QTest::newRow("scalars and bad rows ignored")
            << uR"({"a":1})"_s << QList<int>{0, -1, 7} << u"a=1"_s;
        QTest::newRow("empty container stays shut")
            << uR"({"a":[]})"_s << QList<int>{0} << u"a=[0]"_s;
    }

    void jsonTree()
    {
        QFETCH(QString, json);
        QFETCH(QList<int>, toggles);
        QFETCH(QString, expected);

        JsonTreeModel model;
        QAbstractItemModelTester tester(&model,
                                        QAbstractItemModelTester::FailureReportingMode::QtTest);
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(("[" + json + "]").toUtf8(), &error);
        QCOMPARE(error.error, QJsonParseError::NoError);
        model.setJson(document.array().first().toVariant());
        for (int row : toggles)
            model.toggle(row);
        QCOMPARE(shown(model), expected);
    }

    void messageRowsRenderOncePerText()
    {
        ChatRowsModel source;
        MessageRows rows;
        QAbstractItemModelTester tester(&rows,
                                        QAbstractItemModelTester::FailureReportingMode::QtTest);
        rows.setSourceModel(&source);

        ChatMessage hebrew =
            ChatMessage::make(u"assistant"_s, u"שלום עולם\nHello <script>x</script>"_s, 1000);
        hebrew.seq = 1;
        source.update({Row::message(hebrew)});
        const QString html = rows.index(0, 0).data(MessageRows::HtmlRole).toString();
        QVERIFY2(html.contains(u"dir=\"rtl\""_s) || html.contains(u"dir=rtl"_s), qPrintable(html));
        QVERIFY2(!html.contains(u"<script>"_s), qPrintable(html));
        QCOMPARE(rows.index(0, 0).data(MessageRows::HtmlRole).toString(), html);
        QCOMPARE(rows.cached(), 1);

        // A streamed change of the same row gives new HTML, not the remembered one.
        hebrew.text = u"Only English now"_s;
        source.update({Row::message(hebrew)});
        const QString changed = rows.index(0, 0).data(MessageRows::HtmlRole).toString();
        QVERIFY(changed.contains(u"Only English now"_s));
        QVERIFY(!changed.contains(u"dir=\"rtl\""_s));
        QCOMPARE(rows.cached(), 1);
        QCOMPARE(rows.index(0, 0).data(MessageRows::ReplyTextRole).toString(), QString());

        // A reply carries the text it answers.
        ChatMessage reply = ChatMessage::make(u"user"_s, u"Thanks"_s, 1001);
        reply.seq = 2;
        reply.replyToText = u"Only English now"_s;
        source.update({Row::message(hebrew), Row::message(reply)});
        QCOMPARE(rows.index(1, 0).data(MessageRows::ReplyTextRole).toString(),
                 u"Only English now"_s);
    }

    void memoMeasuresOnce()
    {
        TextSizeMemo memo;
        const QString text = u"<div>one two three four five six seven eight nine ten</div>"_s;
        const QSizeF wide = memo.measure(text, 2000, u"DejaVu Sans"_s, 15);
        QCOMPARE(memo.measure(text, 2000.4, u"DejaVu Sans"_s, 15), wide);
        QCOMPARE(memo.measured(), 1);
        const QSizeF narrow = memo.measure(text, 80, u"DejaVu Sans"_s, 15);
        QCOMPARE(memo.measured(), 2);
        QVERIFY(narrow.width() <= 80);
        QVERIFY(narrow.height() > wide.height());
        QVERIFY(wide.width() < 2000);
        QCOMPARE(memo.measure(QString(), 100, u"DejaVu Sans"_s, 15), QSizeF());
    }

    // What SharedItems makes of the clipboard is its own test's; here, that it lands in the outbox.
    void pasteAttaches()
    {
        TestHome home;
        FakeReachability reachability;
        ChatStores chats(ChatPorts{api, Sleeper::real(), reachability, Clock::system()});
        ChatController chat(chats, ChatScope::main(), u"tester"_s, u"user"_s);
        QMimeData data;
        QImage picture(40, 30, QImage::Format_ARGB32);
        picture.fill(QColor(200, 10, 10, 120));
        data.setImageData(picture);

        QVERIFY(chat.attachMime(&data));
        const QList<ComposerAttachment> &attached = chat.store()->composerAttachments();
        QCOMPARE(attached.size(), 1);
        const std::optional<QByteArray> bytes =
            chat.store()->outbox().readData(attached.first().fileID);
        QVERIFY(bytes.has_value());
        QCOMPARE(QImage::fromData(*bytes).size(), QSize(40, 30));
        QVERIFY(!chat.preview(attached.first().id).isEmpty());
    }
};

QTEST_MAIN(DesktopModelsTest)
#include "desktopmodelstest.moc"
