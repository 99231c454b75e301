#include "textcalls.h"

#include <QTest>

// Some rows use ordinary literals: moc misreads escapes and delimiters inside raw strings.

// Each row: a piece of source and what the scanner must see in it, one entry per call in
// order: the English of a two-text call, "<3>" for a three-text call, "<expr>" for a two-text
// call whose English is not a plain literal.
class TextCallsTest : public QObject
{
    Q_OBJECT

private slots:
    void calls_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("plain") << R"(x = L::t("א", "Hello");)" << QStringList{"Hello"};
        QTest::newRow("three texts") << R"(L::t("א", "Hello", "Привет"))" << QStringList{"<3>"};
        QTest::newRow("QStringLiteral")
            << R"(L::t(QStringLiteral("א"), QStringLiteral("Signed out.")))"
            << QStringList{"Signed out."};
        QTest::newRow("u prefix and suffix") << R"(L::t(u"א"_s, u"Done"_s))" << QStringList{"Done"};
        QTest::newRow("comma and parens inside")
            << R"s(L::t("א, (ב)", "Wait, (really)?", "Да, (правда)?"); L::t("א", "a, b (c)"))s"
            << QStringList{"<3>", "a, b (c)"};
        QTest::newRow("escaped quote") << "L::t(\"א\", \"Say \\\"hi\\\", then go\")"
                                       << QStringList{"Say \"hi\", then go"};
        QTest::newRow("escapes") << "L::t(\"א\", \"Line\\nnext\\u2026\\\\\")"
                                 << QStringList{"Line\nnext…\\"};
        QTest::newRow("spans lines") << "L::t(\n    QStringLiteral(\"א\"),\n"
                                        "    QStringLiteral(\"Across lines\"));"
                                     << QStringList{"Across lines"};
        QTest::newRow("adjacent literals") << R"(L::t("א", "Cannot reach "
                                                         "the server."))"
                                           << QStringList{"Cannot reach the server."};
        QTest::newRow("raw string") << R"-(L::t("א", R"(a "quoted", (x))"))-"
                                    << QStringList{R"(a "quoted", (x))"};
        QTest::newRow("raw string with delimiter")
            << "L::t(\"א\", R\"x(a )\" b)x\", \"ру\")" << QStringList{"<3>"};
        QTest::newRow("fromUtf8") << R"(L::t(QString::fromUtf8("א"), QString::fromUtf8("Hi")))"
                                  << QStringList{"Hi"};
        QTest::newRow("variable English") << "L::t(he, en);" << QStringList{"<expr>"};
        QTest::newRow("built English") << R"(L::t("א", QStringLiteral("HTTP ") + code))"
                                       << QStringList{"<expr>"};
        QTest::newRow("nested call as argument")
            << R"(L::t("א", "Out", f(a, b)); g(L::t("ב", "In")))"
            << QStringList{"<3>", "In"};
        QTest::newRow("call inside a call") << R"(L::t(L::t("א", "Inner"), "Outer"))"
                                            << QStringList{"Outer", "Inner"};
        QTest::newRow("braces in argument") << R"(L::t(pick({1, 2}), "Braced"))"
                                            << QStringList{"Braced"};
        QTest::newRow("spaces around ::") << R"(L :: t ( "א" , "Spaced" ))"
                                          << QStringList{"Spaced"};
        QTest::newRow("line comment") << "// L::t(\"א\", \"Commented\")\nL::t(\"א\", \"Real\");"
                                      << QStringList{"Real"};
        QTest::newRow("block comment") << "/* L::t(\"א\", \"No\") */ L::t(\"א\", /* , */ \"Yes\")"
                                       << QStringList{"Yes"};
        QTest::newRow("inside a string")
            << "log(\"L::t(\\\"א\\\", \\\"No\\\")\"); L::t(\"א\", \"Yes\")"
            << QStringList{"Yes"};
        QTest::newRow("char literals")
            << "c == '\"' ? L::t(\"א\", \"Quote\") : L::t(\"ב\", \",\", \"x\")"
            << QStringList{"Quote", "<3>"};
        QTest::newRow("digit separator") << R"(n = 1'000'000; L::t("א", "Million"))"
                                         << QStringList{"Million"};
        QTest::newRow("wide literal prefix") << R"(L"x"; L::t("א", "After wide"))"
                                             << QStringList{"After wide"};
        QTest::newRow("other scope's L") << R"(Foo::L::t("א", "Not ours"))" << QStringList{};
        QTest::newRow("a definition") << "QString L::t(const QString &he, const QString &en)"
                                      << QStringList{};
        QTest::newRow("after return") << R"(return L::t("א", "Returned");)"
                                      << QStringList{"Returned"};
        QTest::newRow("address only") << "auto f = &L::t;" << QStringList{};
        QTest::newRow("another function") << R"(L::tx("א", "No"); LL::t("א", "No"))"
                                          << QStringList{};
        QTest::newRow("cut short") << R"(L::t("א", "Unfinished")" << QStringList{};
    }
    void calls()
    {
        QFETCH(QString, source);
        QFETCH(QStringList, expected);
        QStringList seen;
        for (const TextCall &call : textCalls(source)) {
            if (call.arguments == 3)
                seen << "<3>";
            else if (call.arguments == 2)
                seen << (call.literal ? call.english : "<expr>");
        }
        QCOMPARE(seen, expected);
    }

    void lines()
    {
        const QString source = "a();\n/* two\nlines */ x = R\"(raw\n)\";\n\nL::t(\"א\",\n\"B\");";
        const QList<TextCall> calls = textCalls(source);
        QCOMPARE(calls.size(), 1);
        QCOMPARE(calls.first().line, 6);
    }
};

QTEST_GUILESS_MAIN(TextCallsTest)
#include "textcallstest.moc"
