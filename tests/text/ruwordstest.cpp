#include "text/ru.h"

#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

#include <optional>

// Ru::words must hold the Russian of every English text the code base passes to the two-text
// L::t; otherwise a Russian user silently reads English. The calls are found by tokens, not by
// one pattern over the text: texts hold commas, parentheses and quotes, and calls span lines.
namespace {

struct Token
{
    enum Kind { Name, Text, Punct } kind;
    QString text; // a name, punctuation, or the decoded value of a string literal
    int line;
};

QString unescape(const QString &body)
{
    static const QRegularExpression escape(
        R"(\\(?:u([[:xdigit:]]{4})|U([[:xdigit:]]{8})|x([[:xdigit:]]+)|([0-7]{1,3})|(.)))",
        QRegularExpression::DotMatchesEverythingOption);
    // \" \' \\ \? stand for themselves; an escaped line end joins lines.
    static const QHash<QString, QString> simple = {{"n", "\n"}, {"t", "\t"}, {"r", "\r"}, {"\n", ""}};
    QString out;
    qsizetype from = 0;
    for (const QRegularExpressionMatch &m : escape.globalMatch(body)) {
        out += QStringView(body).sliced(from, m.capturedStart() - from);
        from = m.capturedEnd();
        const QString digits = m.captured(1) + m.captured(2) + m.captured(3) + m.captured(4);
        const char32_t code = digits.toUInt(nullptr, m.hasCaptured(4) ? 8 : 16);
        out += m.hasCaptured(5) ? simple.value(m.captured(5), m.captured(5))
                                : QString::fromUcs4(&code, 1);
    }
    return out + body.mid(from);
}

QList<Token> tokens(const QString &source)
{
    static const QRegularExpression token(
        R"re(//[^\n]*|/\*.*?\*/)re"                       // comments
        R"re(|(?:u8|[uUL])?R"([^(\s]*)\((.*?)\)\1"\w*)re" // raw string: 2 its text
        R"re(|(?:u8|[uUL])?"((?:\\.|[^"\\\n])*)"\w*)re"   // string: 3 its text
        R"re(|(?:u8|[uUL])?'(?:\\.|[^'\\\n])*')re"        // character
        R"re(|\.?\d(?:[eEpP][+-]|'?[\w.])*)re"            // number, with 1'000 separators
        R"re(|(\w+)|::|->|\S)re",                         // 4 name, or punctuation
        QRegularExpression::DotMatchesEverythingOption);
    QList<Token> out;
    qsizetype counted = 0;
    int line = 1;
    for (const QRegularExpressionMatch &m : token.globalMatch(source)) {
        line += QStringView(source).sliced(counted, m.capturedStart() - counted).count(u'\n');
        counted = m.capturedStart();
        const QString all = m.captured();
        if (m.hasCaptured(2) || m.hasCaptured(3)) {
            const QString text = m.hasCaptured(2) ? m.captured(2) : unescape(m.captured(3));
            out.append({Token::Text, text, line});
        } else if (m.hasCaptured(4)) {
            out.append({Token::Name, all, line});
        } else if (!all.startsWith(u"//") && !all.startsWith(u"/*")) {
            out.append({Token::Punct, all, line});
        }
    }
    return out;
}

struct TextCall
{
    int line;
    int arguments;
    std::optional<QString> english; // the second argument, when it is only literals
};

QList<TextCall> textCalls(const QString &source)
{
    const QList<Token> t = tokens(source);
    const auto is = [&](qsizetype k, const char *text) {
        return k < t.size() && t[k].kind != Token::Text && t[k].text == QLatin1String(text);
    };
    // Names that may stand before a call; any other makes it a declaration ("QString L::t(").
    static const QStringList before = {"return", "co_return", "co_yield", "co_await",
                                       "case",   "else",      "throw"};
    // What may surround a literal and leave it a literal.
    static const QStringList wrappers = {"QStringLiteral", "QLatin1String", "QLatin1StringView",
                                         "QStringView", "QString", "fromUtf8", "fromLatin1",
                                         "QT_TR_NOOP", "::", "(", ")"};
    QList<TextCall> calls;
    for (qsizetype i = 0; i + 3 < t.size(); ++i) {
        if (!is(i, "L") || !is(i + 1, "::") || !is(i + 2, "t") || !is(i + 3, "("))
            continue;
        // Another scope's L (X::L::t), a member, or a definition of L::t itself.
        if (i > 0 && (is(i - 1, "::") || is(i - 1, ".") || is(i - 1, "->")
                      || (t[i - 1].kind == Token::Name && !before.contains(t[i - 1].text))))
            continue;
        int depth = 0, arguments = 1;
        bool empty = true, plain = true, any = false;
        QString english;
        qsizetype j = i + 4;
        for (; j < t.size(); ++j) {
            const bool close = is(j, ")") || is(j, "]") || is(j, "}");
            if (close && depth == 0)
                break;
            depth += int(is(j, "(") || is(j, "[") || is(j, "{")) - int(close);
            empty = false;
            if (depth == 0 && is(j, ","))
                ++arguments;
            else if (arguments == 2 && t[j].kind == Token::Text)
                english += t[j].text, any = true;
            else if (arguments == 2)
                plain = plain && wrappers.contains(t[j].text);
        }
        if (j == t.size())
            break; // unterminated call: the source is cut short
        calls.append({t[i].line, empty ? 0 : arguments, plain && any ? std::optional(english) : std::nullopt});
        // Go on from the name, not past the call: an argument may hold a call of its own.
    }
    return calls;
}

} // namespace

class RuWordsTest : public QObject
{
    Q_OBJECT

private slots:
    // Each row: a piece of source and one entry per call in order: the English of a two-text
    // call, "<3>" for a three-text call, "<expr>" when the English is not plain literals.
    void calls_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("commas, parens, prefix and suffix")
            << R"s(L::t("א, (ב)", "Wait, (really)?", "Да"); L::t(u"א"_s, u"a, b (c)"_s))s"
            << QStringList{"<3>", "a, b (c)"};
        QTest::newRow("escapes") << "L::t(\"א\", \"Say \\\"hi\\\"\\nnext\\u2026\\\\\\101\\x42\")"
                                 << QStringList{"Say \"hi\"\nnext…\\AB"};
        QTest::newRow("wrappers across lines, raw strings")
            << "return L::t(\n QStringLiteral(\"א\"),\n QString::fromUtf8(\"Across \"\n \"lines\"));"
               "L::t(\"א\", R\"(a \"q\", (x))\"); L::t(\"א\", R\"x(a )\" b)x\", \"ру\")"
            << QStringList{"Across lines", "a \"q\", (x)", "<3>"};
        QTest::newRow("not plain English")
            << R"(L::t(he, en); L::t("א", QStringLiteral("HTTP ") + code))"
            << QStringList{"<expr>", "<expr>"};
        QTest::newRow("nested calls and braces")
            << R"(L::t(L::t("א", "Inner"), "Outer", f(a, b)); L :: t(pick({1, 2}), "Braced"))"
            << QStringList{"<3>", "Inner", "Braced"};
        QTest::newRow("comments and strings")
            << "// L::t(\"א\", \"No\")\n/* L::t(\"א\", \"No\") */ log(\"L::t(\\\"א\\\", \\\"No\\\")\");"
               " L::t(\"א\", /* , */ \"Yes\")"
            << QStringList{"Yes"};
        QTest::newRow("char literals, digit separator, wide literal")
            << "c == '\"' ? L::t(\"א\", \"Quote\") : n = 1'000'000; L\"x\"; L::t(\"ב\", \",\", \"x\")"
            << QStringList{"Quote", "<3>"};
        QTest::newRow("not our L::t, a definition")
            << R"(Foo::L::t("א", "No"); L::tx("א", "No"); LL::t("א", "No"); f = &L::t;)"
               "QString L::t(const QString &he, const QString &en)"
            << QStringList{};
    }
    void calls()
    {
        QFETCH(QString, source);
        QFETCH(QStringList, expected);
        QStringList seen;
        for (const TextCall &call : textCalls(source)) {
            if (call.arguments >= 2)
                seen << (call.arguments == 3 ? "<3>" : call.english.value_or("<expr>"));
        }
        QCOMPARE(seen, expected);
    }

    void everyTwoTextCallHasRussian()
    {
        const QDir root(QStringLiteral(HALVENMARK_SOURCE_DIR));
        int files = 0;
        QStringList missing;
        for (const char *area : {"src", "cli", "desktop"}) {
            QDirIterator it(root.filePath(area), {"*.h", "*.hpp", "*.cpp", "*.cc", "*.cxx"},
                            QDir::Files, QDirIterator::Subdirectories);
            while (it.hasNext()) {
                QFile file(it.next());
                QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.fileName()));
                ++files;
                for (const TextCall &call : textCalls(QString::fromUtf8(file.readAll()))) {
                    const QString at = root.relativeFilePath(file.fileName()) + ':'
                                       + QString::number(call.line) + ": ";
                    if (call.arguments == 2 && !call.english)
                        missing << at + "the English is not a plain string literal, so its "
                                        "Russian cannot be checked; write all three texts";
                    else if (call.arguments == 2 && !Ru::words().contains(*call.english))
                        missing << at + '"' + *call.english + "\" has no entry in Ru::words";
                }
            }
        }
        // Guards against a wrong source path turning this test into one that cannot fail.
        QVERIFY2(files > 0, "no sources found under HALVENMARK_SOURCE_DIR");
        QVERIFY2(missing.isEmpty(), qPrintable("\n" + missing.join('\n')));
    }
};

QTEST_GUILESS_MAIN(RuWordsTest)
#include "ruwordstest.moc"
