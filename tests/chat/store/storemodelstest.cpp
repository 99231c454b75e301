// The list models the chat screen draws pending turns and composer attachments from.

#include "chat/store/composerattachmentsmodel.h"
#include "chat/store/pendingturnsmodel.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// "id:text" per turn; a third field is the progress text of its upload "f".
QList<PendingTurn> turnsOf(const QStringList &codes)
{
    QList<PendingTurn> out;
    for (const QString &code : codes) {
        const QStringList f = code.split(u':');
        PendingTurn turn;
        turn.id = f.at(0);
        turn.text = f.value(1);
        if (f.size() > 2)
            turn.uploads.insert(u"f"_s, f.at(2));
        out.append(turn);
    }
    return out;
}

QStringList idsOf(const QAbstractItemModel &model, int role)
{
    QStringList out;
    for (int row = 0; row < model.rowCount(); ++row)
        out << model.index(row, 0).data(role).toString();
    return out;
}

} // namespace

class StoreModelsTest : public QObject
{
    Q_OBJECT

private slots:
    void pendingTurns_data()
    {
        QTest::addColumn<QStringList>("before");
        QTest::addColumn<QStringList>("after");
        QTest::addColumn<bool>("changed");
        QTest::addColumn<int>("resets");
        QTest::addColumn<QList<int>>("rowsChanged");

        QTest::newRow("the same list says nothing")
            << QStringList{"a:x"} << QStringList{"a:x"} << false << 0 << QList<int>{};
        QTest::newRow("progress changes its row in place")
            << QStringList{"a:x", "b:y"} << QStringList{"a:x", "b:y:42%"} << true << 0
            << QList<int>{1};
        QTest::newRow("a new turn starts the list anew")
            << QStringList{"a:x"} << QStringList{"a:x", "b:y"} << true << 1 << QList<int>{};
        QTest::newRow("a turn that leaves starts the list anew")
            << QStringList{"a:x", "b:y"} << QStringList{"b:y"} << true << 1 << QList<int>{};
        QTest::newRow("the same turns in another order start anew")
            << QStringList{"a:x", "b:y"} << QStringList{"b:y", "a:x"} << true << 1 << QList<int>{};
    }

    void pendingTurns()
    {
        QFETCH(QStringList, before);
        QFETCH(QStringList, after);

        PendingTurnsModel model;
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        model.set(turnsOf(before));
        QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
        QSignalSpy changes(&model, &QAbstractItemModel::dataChanged);
        QTEST(model.set(turnsOf(after)), "changed");
        QTEST(int(resets.size()), "resets");
        QList<int> rows;
        for (const QList<QVariant> &change : changes)
            rows << change.at(0).toModelIndex().row();
        QTEST(rows, "rowsChanged");

        QCOMPARE(model.turns(), turnsOf(after));
    }

    void attachments_data()
    {
        QTest::addColumn<QStringList>("steps"); // "+id" appends, "-row" removes, "=a,b" sets
        QTest::addColumn<QStringList>("ids");
        QTest::addColumn<int>("resets");

        QTest::newRow("appended in order") << QStringList{"+a", "+b"} << QStringList{"a", "b"} << 0;
        QTest::newRow("a removed row goes")
            << QStringList{"+a", "+b", "+c", "-1"} << QStringList{"a", "c"} << 0;
        QTest::newRow("a row that is not there is no crash")
            << QStringList{"+a", "-3", "--1"} << QStringList{"a"} << 0;
        QTest::newRow("set replaces the list") << QStringList{"+a", "=b,c"} << QStringList{"b", "c"}
                                               << 1;
        QTest::newRow("set of the same list is quiet")
            << QStringList{"+a", "+b", "=a,b"} << QStringList{"a", "b"} << 0;
    }

    void attachments()
    {
        QFETCH(QStringList, steps);

        ComposerAttachmentsModel model;
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
        auto item = [](const QString &id) { return ComposerAttachment{id, id + u".txt"_s, u"text/plain"_s, id}; };
        for (const QString &step : steps) {
            const QString arg = step.mid(1);
            if (step.startsWith(u'+')) {
                model.append(item(arg));
            } else if (step.startsWith(u'-')) {
                model.remove(arg.toInt());
            } else {
                QList<ComposerAttachment> items;
                for (const QString &id : arg.split(u','))
                    items << item(id);
                model.set(items);
            }
        }
        QTEST(idsOf(model, ComposerAttachmentsModel::IdRole), "ids");
        QTEST(int(resets.size()), "resets");
    }
};

QTEST_APPLESS_MAIN(StoreModelsTest)
#include "storemodelstest.moc"
