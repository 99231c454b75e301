#include "patterns.h"

#include "chars.h"

#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcMarkup, "halvenmark.chat.markup", QtWarningMsg)

namespace Markup::Patterns {

namespace {

using O = QRegularExpression;

QRegularExpression compiled(const QString &pattern, O::PatternOptions options = O::NoPatternOption)
{
    QRegularExpression re(pattern, options);
    re.optimize();
    // Only an engine without the Unicode properties used here (PCRE2 before 10.40) gets here;
    // messages then show as plain text.
    if (!re.isValid())
        qCCritical(lcMarkup) << "markup pattern rejected:" << re.errorString() << pattern;
    return re;
}

// Input is made valid UTF-16 before any pattern sees it, so the engine's own check (a scan
// of the whole subject on every call) is skipped.
constexpr auto unchecked = O::DontCheckSubjectStringMatchOption;
constexpr auto anchored = O::AnchorAtOffsetMatchOption | O::DontCheckSubjectStringMatchOption;

// Characters that continue a word after a tag name: a word character, or a mark or format
// character, before which no word boundary is ever found.
#define HM_WORD_CONTINUES                                                                          \
    "\\p{Alphabetic}\\p{M}\\p{Nd}\\p{Pc}\\x{200C}\\x{200D}\\p{Grapheme_Extend}\\p{Cf}"
#define HM_LATIN_LETTER "A-Za-z\\x{00C0}-\\x{024F}"
#define HM_HEBREW_LETTER "\\x{0590}-\\x{08FF}\\x{FB1D}-\\x{FDFF}\\x{FE70}-\\x{FEFF}"
#define HM_NUMBER "[0-9](?:[0-9.,:]*[0-9])?"
#define HM_CLOSER "(?=[\"'\\x{201D}\\x{2019})\\]])"
#define HM_LATIN_WORD                                                                              \
    "[/~@]?[" HM_LATIN_LETTER "](?:[" HM_LATIN_LETTER "0-9_./:@#%&=+~?\\-]*[" HM_LATIN_LETTER      \
    "0-9_/])?"
#define HM_HEBREW_WORD "[" HM_HEBREW_LETTER "](?:[^\\p{White_Space}]*[" HM_HEBREW_LETTER "])?"
#define HM_LATIN_REST                                                                              \
    "(?:[,;]?[ \\x{00A0}]+(?:" HM_LATIN_WORD "|" HM_NUMBER "))*(?:[?!]+" HM_CLOSER ")?"
#define HM_HEBREW_REST                                                                             \
    "(?:[,;]?[ \\x{00A0}]+(?:" HM_HEBREW_WORD "|" HM_NUMBER "))*(?:[.\\x{2026}?!]+" HM_CLOSER ")?"

bool isSpace(QChar c)
{
    return Chars::isWhiteSpace(c.unicode());
}

bool isRunSeparator(QChar c)
{
    return c == u' ' || c == QChar(0xA0);
}

QList<Span> spansOf(const QRegularExpression &re, QStringView text)
{
    QList<Span> out;
    qsizetype pos = 0;
    while (pos < text.size()) {
        const auto m = re.match(text, pos, O::NormalMatch, unchecked);
        if (!m.hasMatch())
            break;
        out.append({m.capturedStart(), m.capturedEnd()});
        // None of our patterns matches the empty string; guard anyway.
        pos = qMax(m.capturedEnd(), m.capturedStart() + 1);
    }
    return out;
}

// Where a window that starts reading at `from` may end: just after a white space that closes a
// non-space stretch, at least `window` characters on. Every word, and every look past a
// word's end, stops at such a white space, so nothing before it reads differently in the
// whole text. The last end found is kept: a long stretch without white space is crossed once,
// not once for every short run before it.
class Windows
{
public:
    Windows(QStringView text, qsizetype window)
        : m_text(text)
        , m_window(qMax<qsizetype>(window, 1))
    {}

    qsizetype endFrom(qsizetype from)
    {
        const qsizetype n = m_text.size();
        const qsizetype least = from + m_window;
        if (m_end > 0 && (m_end == n || m_end - 1 >= least))
            return m_end;
        m_end = n;
        for (qsizetype i = least; i < n; ++i) {
            if (isSpace(m_text[i]) && !isSpace(m_text[i - 1])) {
                m_end = i + 1;
                break;
            }
        }
        return m_end;
    }

private:
    QStringView m_text;
    qsizetype m_window;
    qsizetype m_end = -1;
};

// True when what follows a run's end up to the window's end is a cut separator (an optional
// "," or ";" and spaces) that the whole text might continue with a further word.
bool cutAfter(QStringView text, qsizetype end, qsizetype windowEnd)
{
    if (windowEnd >= text.size() || end >= windowEnd)
        return false;
    qsizetype i = end;
    if (text[i] == u',' || text[i] == u';')
        ++i;
    if (i >= windowEnd)
        return false;
    for (; i < windowEnd; ++i) {
        if (!isRunSeparator(text[i]))
            return false;
    }
    return true;
}

// Runs of words (`latin`, `hebrew`) read window by window. The expressions parse greedily and
// cannot fail once their first letter matched, so a run cut at a window's end resumes with
// the rest of the expression from where the cut run stopped.
QList<Span> findRuns(const QRegularExpression &first, const QRegularExpression &rest,
                     QStringView text, qsizetype window)
{
    QList<Span> out;
    const qsizetype n = text.size();
    Windows windows(text, window);
    qsizetype pos = 0;
    while (pos < n) {
        qsizetype end = windows.endFrom(pos);
        const auto m = first.match(text.first(end), pos, O::NormalMatch, unchecked);
        if (!m.hasMatch()) {
            pos = end;
            continue;
        }
        Span run{m.capturedStart(), m.capturedEnd()};
        while (cutAfter(text, run.end, end)) {
            end = windows.endFrom(end);
            const auto more = rest.match(text.first(end), run.end, O::NormalMatch, anchored);
            if (!more.hasMatch() || more.capturedEnd() == run.end)
                break;
            run.end = more.capturedEnd();
        }
        out.append(run);
        pos = run.end;
    }
    return out;
}

// Whether a tag match may start at p, before asking the engine. Each test is necessary for
// its alternative, so a candidate ruled out here cannot match; what each engine attempt scans
// is then bounded by the match it finds.
class TagCandidates
{
public:
    explicit TagCandidates(QStringView text)
        : m_text(text)
        , m_lastGt(text.lastIndexOf(u'>'))
    {}

    qsizetype lastGt() const { return m_lastGt; }

    bool possible(qsizetype p)
    {
        const qsizetype n = m_text.size();
        if (p + 2 >= n)
            return false;
        const QChar c1 = m_text[p + 1];
        if (c1 == u'/') {
            const QChar c2 = m_text[p + 2];
            if (c2 == u'a' || c2 == u'A')
                return p + 3 < n && m_text[p + 3] == u'>';
            return namesStartWith(c2);
        }
        if (namesStartWith(c1))
            return true;
        if ((c1 == u'a' || c1 == u'A') && isSpace(m_text[p + 2]))
            return anchorPossible(p);
        return false;
    }

private:
    static bool namesStartWith(QChar c)
    {
        const char16_t f = c.toCaseFolded().unicode();
        return f == u'b' || f == u's' || f == u'i' || f == u'e' || f == u'u' || f == u'c' ||
               f == u'p';
    }

    // "<a" needs an `href="` before the first ">" whose value has a closing quote that is
    // followed by some ">"; without this check the engine would scan to the next ">" and back
    // for every one of ten thousand unclosed "<a ".
    bool anchorPossible(qsizetype p)
    {
        if (p > m_gt) {
            m_gt = m_text.indexOf(u'>', p);
            if (m_gt < 0)
                m_gt = m_text.size();
        }
        while (m_goodHref >= 0 && m_goodHref < p + 3)
            m_goodHref = nextGoodHref(m_goodHref + 1);
        if (m_goodHref == -2)
            m_goodHref = nextGoodHref(p + 3);
        return m_goodHref >= 0 && m_goodHref + 6 <= m_gt;
    }

    qsizetype nextGoodHref(qsizetype from) const
    {
        const qsizetype h = m_text.indexOf(u"href=\"", from, Qt::CaseInsensitive);
        if (h < 0)
            return -1;
        // Without a quote followed by a ">", this one is no use, nor is any later one: their
        // first quote is this one's or a later one.
        const qsizetype quote = m_text.indexOf(u'"', h + 6);
        return quote >= 0 && quote < m_lastGt ? h : -1;
    }

    QStringView m_text;
    qsizetype m_lastGt;
    qsizetype m_gt = -1;
    qsizetype m_goodHref = -2; // -2: not looked for yet; -1: none left
};

} // namespace

const QRegularExpression &tags()
{
    static const QRegularExpression re =
        compiled(QStringLiteral("<(/?)(b|strong|i|em|u|s|code|pre|blockquote)(?![" HM_WORD_CONTINUES
                                "])[^>]*>|<a\\p{White_Space}[^>]*href=\"([^\"]*)\"[^>]*>|</a>"),
                 O::CaseInsensitiveOption | O::DotMatchesEverythingOption);
    return re;
}

const QRegularExpression &bold()
{
    static const QRegularExpression re =
        compiled(QStringLiteral("\\*\\*(.+?)\\*\\*"), O::DotMatchesEverythingOption);
    return re;
}

const QRegularExpression &mdLink()
{
    static const QRegularExpression re =
        compiled(QStringLiteral("\\[([^\\]\\n]*)\\]\\((https?://[^\\p{White_Space})]+"
                                "|mailto:[^\\p{White_Space})]+)\\)"));
    return re;
}

const QRegularExpression &bareLink()
{
    static const QRegularExpression re =
        compiled(QStringLiteral("https?://[^\\p{White_Space}<>\"')\\]]+"));
    return re;
}

const QRegularExpression &escapes()
{
    static const QRegularExpression re = compiled(QStringLiteral("\\\\([\\\\`_\\[\\]()])"));
    return re;
}

const QRegularExpression &latin()
{
    static const QRegularExpression re = compiled(QStringLiteral(HM_LATIN_WORD HM_LATIN_REST));
    return re;
}

const QRegularExpression &hebrew()
{
    static const QRegularExpression re = compiled(QStringLiteral(HM_HEBREW_WORD HM_HEBREW_REST));
    return re;
}

const QRegularExpression &latinRest()
{
    static const QRegularExpression re = compiled(QStringLiteral(HM_LATIN_REST));
    return re;
}

const QRegularExpression &hebrewRest()
{
    static const QRegularExpression re = compiled(QStringLiteral(HM_HEBREW_REST));
    return re;
}

QList<Tag> findTags(QStringView input)
{
    QString fixed;
    const QStringView text = Chars::valid(input, fixed);
    QList<Tag> out;
    TagCandidates candidates(text);
    // Every alternative ends in ">": nothing can start at or after the last one.
    const qsizetype last = candidates.lastGt();
    qsizetype pos = 0;
    while (pos < last) {
        const qsizetype p = text.indexOf(u'<', pos);
        if (p < 0 || p >= last)
            break;
        if (!candidates.possible(p)) {
            pos = p + 1;
            continue;
        }
        const auto m = tags().match(text, p, O::NormalMatch, anchored);
        if (!m.hasMatch()) {
            pos = p + 1;
            continue;
        }
        Tag tag{m.capturedStart(), m.capturedEnd()};
        if (m.capturedLength(2) > 0) {
            tag.closing = m.capturedLength(1) > 0;
            tag.name = m.captured(2).toCaseFolded();
        } else {
            tag.name = QStringLiteral("a");
            tag.closing = m.capturedStart(3) < 0;
            if (!tag.closing)
                tag.href = m.captured(3);
        }
        out.append(tag);
        pos = tag.end;
    }
    return out;
}

QList<Span> findBold(QStringView input)
{
    // A lazy scan to the next "**": an attempt fails only when no "**" follows it at all,
    // which can happen for the last couple of candidates only.
    if (!Chars::contains(input, u"**"))
        return {};
    QString fixed;
    return spansOf(bold(), Chars::valid(input, fixed));
}

QList<Link> findMdLinks(QStringView input)
{
    QString fixed;
    const QStringView text = Chars::valid(input, fixed);
    QList<Link> out;
    const qsizetype n = text.size();
    qsizetype deadTarget = -1; // a target run known to end without ")" here
    qsizetype pos = 0;
    while (pos < n) {
        const qsizetype p = text.indexOf(u'[', pos);
        if (p < 0)
            break;
        // A label runs to the first "]" or line break, the same one for every "[" before it:
        // when the first of them fails, they all do.
        qsizetype stop = p + 1;
        while (stop < n && text[stop] != u']' && text[stop] != u'\n')
            ++stop;
        if (stop >= n)
            break;
        const QStringView after = text.sliced(stop);
        const qsizetype scheme = after.startsWith(u"](http://")    ? 9
                                 : after.startsWith(u"](https://") ? 10
                                 : after.startsWith(u"](mailto:")  ? 9
                                                                   : 0;
        if (scheme == 0) {
            pos = stop + 1;
            continue;
        }
        // The target runs to the first white space or ")", and must end at a ")". A run that
        // does not is the tail of every later run that starts inside it: they fail alike.
        const qsizetype from = stop + scheme;
        if (from < deadTarget) {
            pos = stop + 1;
            continue;
        }
        qsizetype end = from;
        while (end < n && text[end] != u')' && !Chars::isWhiteSpace(text[end].unicode()))
            ++end;
        if (end == n || text[end] != u')' || end == from) {
            deadTarget = end;
            pos = stop + 1;
            continue;
        }
        const auto m = mdLink().match(text, p, O::NormalMatch, anchored);
        if (!m.hasMatch()) {
            pos = stop + 1;
            continue;
        }
        out.append({m.capturedStart(), m.capturedEnd(), m.capturedStart(1), m.capturedEnd(1),
                    m.captured(2)});
        pos = m.capturedEnd();
    }
    return out;
}

QList<Span> findBareLinks(QStringView input)
{
    // The scan after "http(s)://" never backtracks, so the engine is linear as it is.
    if (!Chars::contains(input, u"http"))
        return {};
    QString fixed;
    return spansOf(bareLink(), Chars::valid(input, fixed));
}

QList<Span> findLatin(QStringView input, qsizetype window)
{
    QString fixed;
    return findRuns(latin(), latinRest(), Chars::valid(input, fixed), window);
}

QList<Span> findHebrew(QStringView input, qsizetype window)
{
    QString fixed;
    return findRuns(hebrew(), hebrewRest(), Chars::valid(input, fixed), window);
}

QString unescaped(QStringView input)
{
    if (!input.contains(u'\\'))
        return input.toString();
    QString fixed;
    const QStringView text = Chars::valid(input, fixed);
    QString out;
    out.reserve(text.size());
    qsizetype pos = 0;
    for (const Span &s : spansOf(escapes(), text)) {
        out.append(text.sliced(pos, s.start - pos));
        out.append(text[s.start + 1]);
        pos = s.end;
    }
    out.append(text.sliced(pos));
    return out;
}

QList<Span> globalSpans(const QRegularExpression &re, QStringView input)
{
    QString fixed;
    const QStringView text = Chars::valid(input, fixed);
    QList<Span> out;
    auto it = re.globalMatch(text);
    while (it.hasNext()) {
        const auto m = it.next();
        out.append({m.capturedStart(), m.capturedEnd()});
    }
    return out;
}

} // namespace Markup::Patterns
