// What shared items are called, typed and taken from the clipboard.

#include "chat/media/shareditems.h"

#include <QBuffer>
#include <QFileInfo>
#include <QImage>
#include <QImageReader>
#include <QMimeData>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using Held = SharedItems::Held;

class SharedItemsTest : public QObject
{
    Q_OBJECT

private slots:
    void names_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("named");
        QTest::addColumn<QString>("mime");
        QTest::newRow("png") << u"image/png"_s << u"photo.png"_s << u"image/png"_s;
        QTest::newRow("alias of jpeg") << u"image/pjpeg"_s << u"photo.jpg"_s << u"image/jpeg"_s;
        QTest::newRow("pdf") << u"application/pdf"_s << u"file.pdf"_s << u"application/pdf"_s;
        QTest::newRow("unknown image")
            << u"image/x-nothing-known"_s << u"photo"_s << u"application/octet-stream"_s;
        QTest::newRow("empty") << QString() << u"file"_s << u"application/octet-stream"_s;
    }

    void names()
    {
        QFETCH(QString, type);
        QTEST(SharedItems::named(type), "named");
        QTEST(SharedItems::mime(type), "mime");
    }

    void held_data()
    {
        QTest::addColumn<QStringList>("formats");
        QTest::addColumn<QList<QUrl>>("urls");
        QTest::addColumn<Held>("held");
        const QList<QUrl> none;
        QTest::newRow("text") << QStringList{u"text/plain"_s, u"text/html"_s} << none
                              << Held::Nothing;
        QTest::newRow("private types only")
            << QStringList{u"application/x-qt-windows-mime;value=\"x\""_s,
                           u"x-special/gnome-copied-files"_s, u"chromium/x-source-url"_s,
                           u"TARGETS"_s}
            << none << Held::Nothing;
        QTest::newRow("web link") << QStringList{u"text/uri-list"_s}
                                  << QList<QUrl>{QUrl(u"https://example.com/a.png"_s)}
                                  << Held::Nothing;
        QTest::newRow("local files")
            << QStringList{u"text/uri-list"_s, u"x-special/gnome-copied-files"_s}
            << QList<QUrl>{QUrl(u"https://example.com"_s), QUrl::fromLocalFile(u"/tmp/a.pdf"_s)}
            << Held::Files;
        QTest::newRow("image") << QStringList{u"text/html"_s, u"image/png"_s} << none
                               << Held::Image;
        QTest::newRow("qt image") << QStringList{u"application/x-qt-image"_s} << none
                                  << Held::Image;
        QTest::newRow("pdf bytes")
            << QStringList{u"application/pdf"_s, u"text/plain"_s} << none << Held::Data;
        QTest::newRow("unknown type")
            << QStringList{u"application/x-made-up-thing"_s} << none << Held::Nothing;
    }

    void held()
    {
        QFETCH(QStringList, formats);
        QFETCH(QList<QUrl>, urls);
        QTEST(SharedItems::held(formats, urls), "held");
    }

    void pastedImageIsAWhiteBackedJpeg()
    {
        QImage image(32, 32, QImage::Format_ARGB32);
        image.fill(Qt::transparent);
        for (int y = 0; y < 16; ++y)
            for (int x = 0; x < 16; ++x)
                image.setPixelColor(x, y, Qt::red);
        QMimeData data;
        data.setImageData(image);
        data.setText(u"ignored"_s);
        const QList<SharedItem> items = SharedItems::fromMime(&data);
        QCOMPARE(items.size(), 1);
        QCOMPARE(items[0].name, u"photo.jpg"_s);
        QCOMPARE(items[0].mime, u"image/jpeg"_s);
        QVERIFY(!items[0].isFile());
        QBuffer buffer(const_cast<QByteArray *>(&items[0].data));
        QImageReader reader(&buffer);
        QCOMPARE(reader.format(), "jpeg");
        const QImage back = reader.read();
        QVERIFY(qGray(back.pixel(28, 28)) > 240); // transparent went white, not black
        QVERIFY(qRed(back.pixel(4, 4)) > 200);
    }

    void pastedItems_data()
    {
        QTest::addColumn<QString>("format");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("name");
        QTest::newRow("pdf") << u"application/pdf"_s << "%PDF-1.4"_ba << u"file.pdf"_s;
        QTest::newRow("text stays text") << u"text/plain"_s << "hello"_ba << QString();
        QTest::newRow("empty pdf") << u"application/pdf"_s << QByteArray() << QString();
    }

    void pastedItems()
    {
        QFETCH(QString, format);
        QFETCH(QByteArray, bytes);
        QFETCH(QString, name);
        QMimeData data;
        data.setData(format, bytes);
        const QList<SharedItem> items = SharedItems::fromMime(&data);
        QCOMPARE(items.size(), name.isEmpty() ? 0 : 1);
        if (!name.isEmpty()) {
            QCOMPARE(items[0].name, name);
            QCOMPARE(items[0].data, bytes);
        }
    }

    void pastedFilesKeepTheirNames()
    {
        QTemporaryDir dir;
        const QString pdf = dir.filePath(u"report.pdf"_s);
        QFile file(pdf);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("%PDF-1.4\n");
        file.close();
        QMimeData data;
        data.setUrls({QUrl::fromLocalFile(pdf), QUrl::fromLocalFile(dir.filePath(u"gone.txt"_s)),
                      QUrl(u"https://example.com/a.png"_s)});
        const QList<SharedItem> items = SharedItems::fromMime(&data);
        QCOMPARE(items.size(), 1); // neither a file that is not there nor a remote one
        QCOMPARE(items[0].path, pdf);
        QCOMPARE(items[0].name, u"report.pdf"_s);
        QCOMPARE(items[0].mime, u"application/pdf"_s);
    }
};

QTEST_MAIN(SharedItemsTest)
#include "shareditemstest.moc"
