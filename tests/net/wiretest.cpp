// The transport's pure pieces: addresses, queries, error bodies, multipart, cookies.

#include "support/testapi.h"
#include "net/api.h"
#include "net/wire.h"
#include "net/multipart.h"
#include "net/serveraddress.h"
#include "net/setcookie.h"

#include <QTest>

class WireTest : public QObject
{
    Q_OBJECT

    TestApi api;

private slots:
    void initTestCase()
    {
        qputenv("HALVENMARK_SERVER", "https://example.test/base");
        QCOMPARE(api.get().base().toString(), QStringLiteral("https://example.test/base/"));
    }

    void url_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("expected"); // after the base
        QTest::newRow("leading slash dropped") << "/webapi/x" << "webapi/x";
        QTest::newRow("raw query is encoded") << "webapi/search?q=a b" << "webapi/search?q=a%20b";
        QTest::newRow("encoded query kept") << "webapi/search?q=a%20b" << "webapi/search?q=a%20b";
        QTest::newRow("empty query dropped") << "webapi/x?" << "webapi/x";
        QTest::newRow("percent alone is text") << "webapi/s?q=100%" << "webapi/s?q=100%25";
        QTest::newRow("hebrew query") << "webapi/s?q=שלום" << "webapi/s?q=%D7%A9%D7%9C%D7%95%D7%9D";
        QTest::newRow("only the first ? splits") << "webapi/s?a=1?b=2" << "webapi/s?a=1?b=2";
        QTest::newRow("space in path") << "webapi/files/a b.txt" << "webapi/files/a%20b.txt";
        QTest::newRow("empty path is the base") << "" << "";
    }

    void url()
    {
        QFETCH(QString, path);
        QFETCH(QString, expected);
        QCOMPARE(Wire::url(api.get().base(), path).toString(QUrl::FullyEncoded),
                 u"https://example.test/base/"_qs + expected);
    }

    void isEncoded_data()
    {
        QTest::addColumn<QString>("query");
        QTest::addColumn<bool>("encoded");
        QTest::newRow("no percent") << "q=a" << false;
        QTest::newRow("escape") << "q=a%20b" << true;
        QTest::newRow("broken escape") << "q=100%" << false;
        QTest::newRow("bad hex") << "q=%zz" << false;
        QTest::newRow("sub-delims") << "a=%41&b=!$'()*+,;=:@/?" << true;
        QTest::newRow("non-ascii") << "q=%41ש" << false;
    }

    void isEncoded()
    {
        QFETCH(QString, query);
        QFETCH(bool, encoded);
        QCOMPARE(Wire::isEncoded(query), encoded);
    }

    void serverAddress_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("valid");
        QTest::newRow("https") << "https://app.example.com" << true;
        QTest::newRow("loopback http") << "http://127.0.0.1:8080" << true;
        QTest::newRow("ipv6 loopback") << "http://[::1]:9000" << true;
        QTest::newRow("remote http") << "http://app.example.com" << false;
        QTest::newRow("private network http") << "http://192.168.1.2" << false;
        QTest::newRow("other scheme") << "ftp://example.com" << false;
        QTest::newRow("no host") << "https://" << false;
        QTest::newRow("garbage") << "not an address" << false;
    }

    void serverAddress()
    {
        QFETCH(QString, text);
        QFETCH(bool, valid);
        const ServerAddress address = ServerAddress::parse(text);
        QCOMPARE(address.valid(), valid);
        QCOMPARE(address.error.isEmpty(), valid);
        if (valid)
            QVERIFY(address.url.path().endsWith(u'/'));
    }

    void failure_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("reason"); // empty: the description is "HTTP <status>"
        QTest::addColumn<QString>("code");
        QTest::addColumn<bool>("unreachable");
        auto row = [](const char *name, int status, const char *body, const char *reason,
                      const char *code, bool unreachable) {
            QTest::newRow(name) << status << QByteArray(body) << QString::fromUtf8(reason)
                                << QString::fromUtf8(code) << unreachable;
        };
        row("error only", 429, R"({"error":"quota"})", "quota", "quota", false);
        row("detail wins", 400, R"({"error":"e","detail":"d"})", "d", "e", false);
        row("html page", 503, "<html><body>down</body></html>", "", "", true);
        row("json array", 500, "[1]", "", "", false);
        row("non-text values", 502, R"({"error":5,"detail":null})", "", "", true);
        row("detail not text", 400, R"({"error":"e","detail":{"x":1}})", "", "", false);
        row("null detail", 400, R"({"error":"e","detail":null})", "e", "e", false);
        row("cloudflare 520", 520, "", "", "", true);
        row("525 is not down", 525, "", "", "", false);
        row("no reply", 0, "", "", "", false);
    }

    void failure()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, reason);
        const Api::Failed failed = ApiError::failure(status, body);
        QCOMPARE(failed.status, status);
        QCOMPARE(failed.reason, reason);
        QTEST(failed.code, "code");
        QCOMPARE(failed.description(), reason.isEmpty() ? u"HTTP %1"_qs.arg(status) : reason);
        QTEST(failed.unreachable(), "unreachable");
    }

    void multipart()
    {
        const QByteArray body = Multipart::body(
            QStringLiteral("rbp-B"), {{QStringLiteral("scope"), QStringLiteral("main")}},
            {QStringLiteral("file"), QStringLiteral("a.txt"), QStringLiteral("text/plain"),
             QByteArray("hi\r\n--rbp-")});
        QCOMPARE(body, QByteArray("--rbp-B\r\n"
                                  "Content-Disposition: form-data; name=\"scope\"\r\n\r\n"
                                  "main\r\n"
                                  "--rbp-B\r\n"
                                  "Content-Disposition: form-data; name=\"file\"; filename=\"a.txt\"\r\n"
                                  "Content-Type: text/plain\r\n\r\n"
                                  "hi\r\n--rbp-\r\n"
                                  "--rbp-B--\r\n"));
        const QString boundary = Multipart::newBoundary();
        QVERIFY(boundary.startsWith(u"rbp-"));
        QCOMPARE(boundary.size(), 4 + 36);
        QCOMPARE(boundary.mid(4), boundary.mid(4).toUpper());
        QVERIFY(boundary != Multipart::newBoundary());
    }

    void refreshSeconds_data()
    {
        QTest::addColumn<QByteArray>("header");
        QTest::addColumn<double>("seconds"); // NaN: not a number the rule accepts
        const double no = qQNaN();
        QTest::newRow("decimal") << QByteArray("2.5") << 2.5;
        QTest::newRow("plus sign") << QByteArray("+1") << 1.0;
        QTest::newRow("exponent") << QByteArray("1e2") << 100.0;
        QTest::newRow("leading blank") << QByteArray(" 1") << no;
        QTest::newRow("two signs") << QByteArray("+-1") << no;
        QTest::newRow("comma") << QByteArray("1,5") << no;
        QTest::newRow("infinite") << QByteArray("inf") << no;
        QTest::newRow("empty") << QByteArray() << no;
    }

    void refreshSeconds()
    {
        QFETCH(QByteArray, header);
        QFETCH(double, seconds);
        const auto parsed = Wire::refreshSeconds(header);
        QCOMPARE(parsed.has_value(), !qIsNaN(seconds));
        if (parsed)
            QCOMPARE(*parsed, seconds);
    }

    void sessionCookie_data()
    {
        QTest::addColumn<QList<QByteArray>>("headers");
        QTest::addColumn<QString>("cookie"); // empty: none found
        using Headers = QList<QByteArray>;
        QTest::newRow("attributes") << Headers{"rb_web_session=abc; Path=/; HttpOnly"} << "abc";
        QTest::newRow("among others, folded")
            << Headers{"theme=dark; Path=/\nrb_web_session=k1; HttpOnly"} << "k1";
        QTest::newRow("another cookie only") << Headers{"other=1"} << "";
        QTest::newRow("a name that ends the same") << Headers{"evil_rb_web_session=X"} << "";
        QTest::newRow("inside an attribute") << Headers{"theme=1; Path=/rb_web_session=X"} << "";
        QTest::newRow("deleted, then set")
            << Headers{"rb_web_session=; Max-Age=0\nrb_web_session=new; HttpOnly"} << "new";
        QTest::newRow("expired first")
            << Headers{"rb_web_session=old; Expires=Thu, 01 Jan 1970 00:00:00 GMT",
                       "rb_web_session=new"}
            << "new";
        QTest::newRow("expired only") << Headers{"rb_web_session=old; Max-Age=0"} << "";
        QTest::newRow("oversized") << Headers{"rb_web_session=" + QByteArray(100 * 1024, 'a')} << "";
        QTest::newRow("no header") << Headers{} << "";
    }

    void sessionCookie()
    {
        QFETCH(QList<QByteArray>, headers);
        QFETCH(QString, cookie);
        const auto value = SetCookie::sessionCookie(headers);
        QCOMPARE(value.has_value(), !cookie.isEmpty());
        QCOMPARE(value.value_or(QString()), cookie);
    }

    void filename_data()
    {
        QTest::addColumn<QByteArray>("header");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("name");
        auto row = [](const char *name, const char *given, const char *path, const char *file) {
            const QByteArray header = *given ? "attachment; " + QByteArray(given) : QByteArray();
            QTest::newRow(name) << header << QString::fromUtf8(path) << QString::fromUtf8(file);
        };
        row("utf-8 form", "filename*=UTF-8''%D7%93%D7%95%D7%97.pdf", "webapi/files/x", "דוח.pdf");
        row("both forms", "filename=\"r.pdf\"; filename*=UTF-8''r%20b.pdf", "webapi/files/x",
            "r b.pdf");
        row("no header", "", "webapi/files/notes%20v2.md?x=1", "notes v2.md");
        row("climbing out", "filename=\"../../x\"", "webapi/f", "x");
        row("dot dot", "filename=\"..\"", "webapi/files/r.txt", "r.txt");
        row("nul and newline", "filename*=UTF-8''a%00b%0Ac.txt", "webapi/f", "a_b_c.txt");
        row("nothing usable", "filename=\"..\"", "webapi/files/%2E%2E", "download");
    }

    void filename()
    {
        QFETCH(QByteArray, header);
        QFETCH(QString, path);
        QTEST(Wire::filenameFor(header, path), "name");
    }
};

QTEST_GUILESS_MAIN(WireTest)
#include "wiretest.moc"
