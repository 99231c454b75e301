#include "textcalls.h"

#include <QSet>

#include <cctype>

namespace {

enum class Kind { Identifier, Literal, Punct, Other };

struct Token
{
    Kind kind;
    QString text; // identifier, punctuation, or the decoded value of a string literal
    int line;
};

bool identStart(QChar c)
{
    return c.isLetter() || c == u'_';
}

bool identPart(QChar c)
{
    return c.isLetterOrNumber() || c == u'_';
}

class Lexer
{
public:
    explicit Lexer(const QString &s)
        : m_s(s)
    {
    }

    QList<Token> tokens()
    {
        QList<Token> out;
        while (m_i < m_s.size()) {
            const QChar c = m_s[m_i];
            if (c == u'\n') {
                ++m_line;
                ++m_i;
            } else if (c.isSpace()) {
                ++m_i;
            } else if (at("//")) {
                while (m_i < m_s.size() && m_s[m_i] != u'\n')
                    ++m_i;
            } else if (at("/*")) {
                m_i += 2;
                while (m_i < m_s.size() && !at("*/"))
                    step();
                m_i += 2;
            } else if (c.isDigit() || (c == u'.' && peek(1).isDigit())) {
                number();
                out.append({Kind::Other, {}, m_line});
            } else if (identStart(c)) {
                const int line = m_line;
                const qsizetype start = m_i;
                while (m_i < m_s.size() && identPart(m_s[m_i]))
                    ++m_i;
                const QString word = m_s.mid(start, m_i - start);
                if (m_i < m_s.size() && m_s[m_i] == u'"' && isPrefix(word)) {
                    out.append({Kind::Literal, string(word.endsWith(u'R')), line});
                } else if (m_i < m_s.size() && m_s[m_i] == u'\'' && isPrefix(word)) {
                    character();
                    out.append({Kind::Other, {}, line});
                } else {
                    out.append({Kind::Identifier, word, line});
                }
            } else if (c == u'"') {
                const int line = m_line;
                out.append({Kind::Literal, string(false), line});
            } else if (c == u'\'') {
                character();
                out.append({Kind::Other, {}, m_line});
            } else if (at("::")) {
                out.append({Kind::Punct, QStringLiteral("::"), m_line});
                m_i += 2;
            } else if (at("->")) {
                out.append({Kind::Punct, QStringLiteral("->"), m_line});
                m_i += 2;
            } else {
                out.append({Kind::Punct, QString(c), m_line});
                ++m_i;
            }
        }
        return out;
    }

private:
    static bool isPrefix(const QString &w)
    {
        static const QSet<QString> prefixes = {
            QStringLiteral("u8"), QStringLiteral("u"),   QStringLiteral("U"),
            QStringLiteral("L"),  QStringLiteral("R"),   QStringLiteral("u8R"),
            QStringLiteral("uR"), QStringLiteral("UR"),  QStringLiteral("LR")};
        return prefixes.contains(w);
    }

    bool at(const char *s) const
    {
        return QStringView(m_s).sliced(m_i).startsWith(QLatin1String(s));
    }
    QChar peek(int n) const { return m_i + n < m_s.size() ? m_s[m_i + n] : QChar(); }

    void step()
    {
        if (m_s[m_i] == u'\n')
            ++m_line;
        ++m_i;
    }

    // A pp-number, with digit separators (1'000) and exponent signs.
    void number()
    {
        while (m_i < m_s.size()) {
            const QChar c = m_s[m_i];
            const bool exponentSign = (c == u'+' || c == u'-') && m_i > 0
                                      && QStringLiteral("eEpP").contains(m_s[m_i - 1]);
            if (exponentSign)
                ++m_i;
            else if (identPart(c) || c == u'.' || (c == u'\'' && identPart(peek(1))))
                ++m_i;
            else
                break;
        }
    }

    void character()
    {
        ++m_i; // opening quote
        while (m_i < m_s.size() && m_s[m_i] != u'\'' && m_s[m_i] != u'\n')
            m_i += m_s[m_i] == u'\\' ? 2 : 1;
        ++m_i;
    }

    // At the opening quote; returns the decoded text and skips any user-defined suffix.
    QString string(bool raw)
    {
        QString value;
        ++m_i;
        if (raw) {
            const int open = m_s.indexOf(u'(', m_i);
            if (open < 0) {
                m_i = m_s.size();
                return value;
            }
            const QString close = u')' + m_s.mid(m_i, open - m_i) + u'"';
            const int end = m_s.indexOf(close, open + 1);
            const int stop = end < 0 ? m_s.size() : end;
            value = m_s.mid(open + 1, stop - open - 1);
            m_line += value.count(u'\n');
            m_i = end < 0 ? m_s.size() : end + close.size();
        } else {
            while (m_i < m_s.size() && m_s[m_i] != u'"' && m_s[m_i] != u'\n') {
                if (m_s[m_i] == u'\\')
                    value += escape();
                else
                    value += m_s[m_i++];
            }
            ++m_i;
        }
        while (m_i < m_s.size() && identPart(m_s[m_i]))
            ++m_i;
        return value;
    }

    // At a backslash inside a literal.
    QString escape()
    {
        ++m_i;
        if (m_i >= m_s.size())
            return {};
        const QChar c = m_s[m_i++];
        switch (c.unicode()) {
        case 'n':
            return QStringLiteral("\n");
        case 't':
            return QStringLiteral("\t");
        case 'r':
            return QStringLiteral("\r");
        case '0':
        case '1':
        case '2':
        case '3':
        case '4':
        case '5':
        case '6':
        case '7': {
            const qsizetype start = m_i - 1;
            while (m_i < m_s.size() && m_i - start < 3 && m_s[m_i] >= u'0' && m_s[m_i] <= u'7')
                ++m_i;
            return QString(QChar(m_s.mid(start, m_i - start).toUInt(nullptr, 8)));
        }
        case 'u':
        case 'U': {
            const int digits = c == u'u' ? 4 : 8;
            bool ok = false;
            const char32_t code = m_s.mid(m_i, digits).toUInt(&ok, 16);
            m_i += digits;
            return ok ? QString::fromUcs4(&code, 1) : QString();
        }
        case 'x': {
            const qsizetype start = m_i;
            while (m_i < m_s.size() && isxdigit(m_s[m_i].toLatin1()))
                ++m_i;
            return QString(QChar(m_s.mid(start, m_i - start).toUInt(nullptr, 16)));
        }
        case '\n':
            ++m_line;
            return {};
        default:
            return QString(c); // \" \' \\ \?
        }
    }

    const QString &m_s;
    qsizetype m_i = 0;
    int m_line = 1;
};

bool isPunct(const Token &t, const char *p)
{
    return t.kind == Kind::Punct && t.text == QLatin1String(p);
}

// Words that may stand before a call; any other identifier there makes it a declaration
// ("QString L::t(...)").
bool mayPrecedeCall(const Token &t)
{
    static const QSet<QString> words = {QStringLiteral("return"), QStringLiteral("co_return"),
                                        QStringLiteral("co_yield"), QStringLiteral("case"),
                                        QStringLiteral("else"), QStringLiteral("throw"),
                                        QStringLiteral("co_await")};
    return t.kind != Kind::Identifier || words.contains(t.text);
}

// Wrappers that leave a literal a literal.
bool isWrapper(const Token &t)
{
    static const QSet<QString> words = {
        QStringLiteral("QStringLiteral"), QStringLiteral("QLatin1String"),
        QStringLiteral("QLatin1StringView"), QStringLiteral("QStringView"),
        QStringLiteral("QString"), QStringLiteral("fromUtf8"), QStringLiteral("fromLatin1"),
        QStringLiteral("QT_TR_NOOP")};
    return t.kind == Kind::Identifier && words.contains(t.text);
}

// The text of an argument made only of literals, wrappers and parentheses.
bool literalOf(const QList<Token> &arg, QString *text)
{
    bool any = false;
    for (const Token &t : arg) {
        if (t.kind == Kind::Literal) {
            *text += t.text;
            any = true;
        } else if (!(isWrapper(t) || isPunct(t, "(") || isPunct(t, ")") || isPunct(t, "::"))) {
            return false;
        }
    }
    return any;
}

} // namespace

QList<TextCall> textCalls(const QString &source)
{
    const QList<Token> tokens = Lexer(source).tokens();
    QList<TextCall> calls;
    for (qsizetype i = 0; i + 3 < tokens.size(); ++i) {
        const Token &name = tokens[i];
        if (name.kind != Kind::Identifier || name.text != u"L" || !isPunct(tokens[i + 1], "::")
            || tokens[i + 2].kind != Kind::Identifier || tokens[i + 2].text != u"t"
            || !isPunct(tokens[i + 3], "("))
            continue;
        if (i > 0) {
            const Token &before = tokens[i - 1];
            // Another scope's L (X::L::t), a member, or a definition of L::t itself.
            if (isPunct(before, "::") || isPunct(before, ".") || isPunct(before, "->")
                || !mayPrecedeCall(before))
                continue;
        }
        QList<QList<Token>> args(1);
        int depth = 0;
        qsizetype j = i + 4;
        for (; j < tokens.size(); ++j) {
            const Token &t = tokens[j];
            if (isPunct(t, "(") || isPunct(t, "[") || isPunct(t, "{")) {
                ++depth;
            } else if (isPunct(t, ")") || isPunct(t, "]") || isPunct(t, "}")) {
                if (depth == 0)
                    break;
                --depth;
            } else if (depth == 0 && isPunct(t, ",")) {
                args.append(QList<Token>());
                continue;
            }
            args.last().append(t);
        }
        if (j >= tokens.size())
            break; // unterminated call: the source is cut short
        TextCall call;
        call.line = name.line;
        call.arguments = args.size() == 1 && args.first().isEmpty() ? 0 : int(args.size());
        if (call.arguments >= 2)
            call.literal = literalOf(args[1], &call.english);
        calls.append(call);
        // Go on from the name, not past the call: an argument may hold a call of its own.
    }
    return calls;
}
