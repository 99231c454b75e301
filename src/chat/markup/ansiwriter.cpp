#include "ansiwriter.h"

#include "chars.h"
#include "markup.h"
#include "plainwriter.h"

#include <QUrl>

#include <algorithm>
#include <numeric>
#include <optional>

using namespace Qt::StringLiterals;

namespace Markup::AnsiWriter {

namespace {

constexpr QStringView reset = u"\x1b[0m";
constexpr QStringView linkEnd = u"\x1b]8;;\x1b\\";

int widthOf(char32_t u)
{
    if (u == 0)
        return 0;
    // Printable Latin before the combining marks: the common case, one column each.
    if (u >= 0x20 && u < 0x300)
        return 1;
    // Hebrew letters and punctuation, Cyrillic, general punctuation: one column, no category
    // lookup.
    if ((u >= 0x05D0 && u < 0x0600) || (u >= 0x0400 && u < 0x0483) || (u >= 0x048A && u < 0x0530)
        || (u >= 0x2010 && u < 0x202A))
        return 1;
    switch (QChar::category(u)) {
    case QChar::Mark_NonSpacing:
    case QChar::Mark_Enclosing:
    case QChar::Other_Format:
        return 0;
    default:
        break;
    }
    static constexpr std::pair<char32_t, char32_t> wide[] = {
        {0x1100, 0x115F},   {0x231A, 0x231B},   {0x2329, 0x232A},   {0x23E9, 0x23EC},
        {0x23F0, 0x23F0},   {0x23F3, 0x23F3},   {0x25FD, 0x25FE},   {0x2614, 0x2615},
        {0x2648, 0x2653},   {0x267F, 0x267F},   {0x2693, 0x2693},   {0x26A1, 0x26A1},
        {0x26AA, 0x26AB},   {0x26BD, 0x26BE},   {0x26C4, 0x26C5},   {0x26CE, 0x26CE},
        {0x26D4, 0x26D4},   {0x26EA, 0x26EA},   {0x26F2, 0x26F3},   {0x26F5, 0x26F5},
        {0x26FA, 0x26FA},   {0x26FD, 0x26FD},   {0x2705, 0x2705},   {0x270A, 0x270B},
        {0x2728, 0x2728},   {0x274C, 0x274C},   {0x274E, 0x274E},   {0x2753, 0x2755},
        {0x2757, 0x2757},   {0x2795, 0x2797},   {0x27B0, 0x27B0},   {0x27BF, 0x27BF},
        {0x2B1B, 0x2B1C},   {0x2B50, 0x2B50},   {0x2B55, 0x2B55},   {0x2E80, 0x303E},
        {0x3041, 0x33FF},   {0x3400, 0x4DBF},   {0x4E00, 0x9FFF},   {0xA000, 0xA4CF},
        {0xA960, 0xA97F},   {0xAC00, 0xD7A3},   {0xF900, 0xFAFF},   {0xFE10, 0xFE19},
        {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},   {0xFFE0, 0xFFE6},   {0x16FE0, 0x16FE4},
        {0x17000, 0x18AFF}, {0x1B000, 0x1B2FF}, {0x1F004, 0x1F004}, {0x1F0CF, 0x1F0CF},
        {0x1F18E, 0x1F18E}, {0x1F191, 0x1F19A}, {0x1F200, 0x1F251}, {0x1F300, 0x1F64F},
        {0x1F680, 0x1F6FF}, {0x1F7E0, 0x1F7EB}, {0x1F90C, 0x1F9FF}, {0x1FA70, 0x1FAFF},
        {0x20000, 0x3FFFD},
    };
    const auto it = std::upper_bound(std::begin(wide), std::end(wide), u,
                                     [](char32_t v, const auto &r) { return v < r.first; });
    if (it != std::begin(wide) && u <= std::prev(it)->second)
        return 2;
    return 1;
}

// One terminal cell's worth of text: a character with the zero-width ones that follow it.
struct Glyph {
    QString text;
    int width = 0;
    qsizetype style = 0; // index into the styles of its cell
    bool space = false;
    qsizetype at = 0; // where it starts in the cell's text
};

struct Cell {
    QList<Glyph> glyphs;
    QList<Style> styles;
    bool rtl = false;
};

QString linkTarget(const QString &link)
{
    if (link.isEmpty() || !openable(link))
        return {};
    const QUrl url(link);
    return url.isValid() ? QString::fromLatin1(url.toEncoded()) : QString();
}

// Where a link cannot be clicked its target is written after its label.
QList<Run> spelledOut(const QList<Run> &runs, bool hyperlinks)
{
    if (hyperlinks)
        return runs;
    QList<Run> out;
    for (const Run &run : runs) {
        out.append(run);
        const QString &link = run.style.link;
        if (!link.isEmpty() && link != run.text && link != QStringLiteral("mailto:") + run.text) {
            Style plain = run.style;
            plain.link.clear();
            out.append({u" ("_s + link + u')', plain});
        }
    }
    return out;
}

QString sgr(const Style &s)
{
    const bool on[] = {s.bold, s.code || s.pre, s.italic || s.quote, s.underline, s.strike};
    static constexpr char16_t codes[] = {u'1', u'2', u'3', u'4', u'9'};
    QString out;
    for (int i = 0; i < 5; ++i) {
        if (!on[i])
            continue;
        out += out.isEmpty() ? u"\x1b["_s : u";"_s;
        out += QChar(codes[i]);
    }
    if (!out.isEmpty())
        out += u'm';
    return out;
}

// Writes styled pieces, switching SGR and hyperlinks only where they change.
class Painter
{
public:
    explicit Painter(const Options &options)
        : m_colour(options.colour)
        , m_hyperlinks(options.hyperlinks)
        , m_marks(options.marks)
    {}

    void text(const QString &text, const Style &style)
    {
        if (text.isEmpty())
            return;
        switchTo(style);
        m_out += m_marks ? text : unmarked(text);
    }

    QString finish()
    {
        switchTo(Style());
        return std::move(m_out);
    }

private:
    void switchTo(const Style &style)
    {
        // Most pieces keep the style of the one before.
        if (m_switched && style == m_style)
            return;
        m_style = style;
        m_switched = true;
        const QString target = m_hyperlinks ? linkTarget(style.link) : QString();
        if (target != m_link) {
            if (!m_link.isEmpty())
                m_out += linkEnd;
            if (!target.isEmpty()) {
                m_out += u"\x1b]8;;";
                m_out += target;
                m_out += u"\x1b\\";
            }
            m_link = target;
        }
        const QString code = m_colour ? sgr(style) : QString();
        if (code != m_sgr) {
            if (!m_sgr.isEmpty())
                m_out += reset;
            m_out += code;
            m_sgr = code;
        }
    }

    bool m_colour;
    bool m_hyperlinks;
    bool m_marks;
    QString m_out;
    QString m_link;
    QString m_sgr;
    Style m_style;
    bool m_switched = false;
};

Cell cellOf(const Line &line, bool hyperlinks)
{
    Cell cell;
    cell.rtl = line.rtl;
    qsizetype offset = 0;
    for (const Run &run : spelledOut(line.runs, hyperlinks)) {
        cell.styles.append(run.style);
        const QString text = PlainWriter::printable(run.text);
        for (qsizetype i = 0; i < text.size();) {
            const char32_t u = text.at(i).isHighSurrogate() && i + 1 < text.size()
                                   ? QChar::surrogateToUcs4(text[i], text[i + 1])
                                   : text[i].unicode();
            const qsizetype len = u > 0xFFFF ? 2 : 1;
            const int w = widthOf(u);
            if (w == 0 && !cell.glyphs.isEmpty()) {
                cell.glyphs.last().text += text.sliced(i, len);
            } else {
                const bool space = u == u' ' || u == u'\t';
                cell.glyphs.append({space ? u" "_s : text.sliced(i, len), qMax(w, 0),
                                    cell.styles.size() - 1, space, offset + i});
            }
            i += len;
        }
        offset += text.size();
    }
    return cell;
}

int naturalWidth(const Cell &cell)
{
    return std::accumulate(cell.glyphs.begin(), cell.glyphs.end(), 0,
                           [](int sum, const Glyph &g) { return sum + g.width; });
}

// Word wrap to width columns; a word longer than a line is broken.
QList<QList<Glyph>> wrapped(const QList<Glyph> &glyphs, int width)
{
    QList<QList<Glyph>> lines(1);
    int used = 0;
    for (const Glyph &g : glyphs) {
        QList<Glyph> &line = lines.last();
        if (g.space && line.isEmpty() && lines.size() > 1)
            continue;
        if (used + g.width > width && !line.isEmpty()) {
            if (g.space) {
                while (!line.isEmpty() && line.last().space)
                    line.removeLast();
                lines.append(QList<Glyph>());
                used = 0;
                continue;
            }
            qsizetype cut = line.size();
            while (cut > 0 && !line[cut - 1].space)
                --cut;
            QList<Glyph> carried;
            if (cut > 0) {
                carried = line.mid(cut);
                line.resize(cut);
                while (!line.isEmpty() && line.last().space)
                    line.removeLast();
            }
            lines.append(carried);
            used = 0;
            for (const Glyph &c : carried)
                used += c.width;
        }
        lines.last().append(g);
        used += g.width;
    }
    return lines;
}

// Column widths that fit the room: columns narrower than a fair share keep their width, the
// others share what is left.
QList<int> fitted(const QList<int> &natural, int room)
{
    const int total = std::accumulate(natural.begin(), natural.end(), 0);
    if (total <= room)
        return natural;
    QList<qsizetype> order(natural.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](qsizetype a, qsizetype b) { return natural[a] < natural[b]; });
    QList<int> out(natural.size(), 1);
    int left = qMax(room, int(natural.size()));
    qsizetype k = 0;
    for (; k < order.size(); ++k) {
        const int share = left / int(order.size() - k);
        if (natural[order[k]] > share)
            break;
        out[order[k]] = natural[order[k]];
        left -= natural[order[k]];
    }
    for (qsizetype rest = k; rest < order.size(); ++rest) {
        const int share = left / int(order.size() - rest);
        out[order[rest]] = qMax(1, share);
        left -= share;
    }
    return out;
}

QString rule(const QList<int> &widths, QStringView left, QStringView middle, QStringView right)
{
    QString out = left.toString();
    for (qsizetype c = 0; c < widths.size(); ++c) {
        out += QString(widths[c] + 2, QChar(0x2500));
        out += c + 1 < widths.size() ? middle : right;
    }
    return out;
}

QChar markOf(bool rtl)
{
    return rtl ? rightToLeftMark : leftToRightMark;
}

QStringList tableLines(const Table &table, const Options &options)
{
    const int width = options.width;
    QList<QList<Cell>> rows;
    auto cellsOf = [&](const QList<Line> &lines, bool head) {
        QList<Cell> out;
        for (const Line &l : lines) {
            Cell c = cellOf(l, options.hyperlinks);
            if (head) {
                for (Style &s : c.styles)
                    s.bold = true;
            }
            out.append(c);
        }
        // A right-to-left table reads from the right: its first column is drawn last.
        if (table.rtl)
            std::reverse(out.begin(), out.end());
        return out;
    };
    rows.append(cellsOf(table.head, true));
    for (const QList<Line> &r : table.rows)
        rows.append(cellsOf(r, false));

    const qsizetype columns = table.head.size();
    QList<int> natural(columns, 1);
    for (const QList<Cell> &row : rows) {
        for (qsizetype c = 0; c < columns && c < row.size(); ++c)
            natural[c] = qMax(natural[c], naturalWidth(row[c]));
    }
    // Each column takes "│ " before and " " after its text; one "│" closes the row.
    const QList<int> widths = fitted(natural, width - 3 * int(columns) - 1);

    QStringList out;
    out.append(rule(widths, u"\u250C", u"\u252C", u"\u2510"));
    for (qsizetype r = 0; r < rows.size(); ++r) {
        QList<QList<QList<Glyph>>> wraps;
        qsizetype height = 1;
        for (qsizetype c = 0; c < columns; ++c) {
            wraps.append(wrapped(rows[r][c].glyphs, widths[c]));
            height = qMax(height, wraps.last().size());
        }
        for (qsizetype h = 0; h < height; ++h) {
            Painter painter(options);
            for (qsizetype c = 0; c < columns; ++c) {
                painter.text(u"\u2502 "_s, Style());
                painter.text(QString(markOf(rows[r][c].rtl)), Style());
                int used = 0;
                if (h < wraps[c].size()) {
                    for (const Glyph &g : wraps[c][h]) {
                        painter.text(g.text, rows[r][c].styles[g.style]);
                        used += g.width;
                    }
                }
                painter.text(QString(qMax(0, widths[c] - used) + 1, u' '), Style());
            }
            painter.text(u"\u2502"_s, Style());
            out.append(painter.finish());
        }
        if (r == 0 && rows.size() > 1)
            out.append(rule(widths, u"\u251C", u"\u253C", u"\u2524"));
    }
    out.append(rule(widths, u"\u2514", u"\u2534", u"\u2518"));
    return out;
}

// One text line, wrapped to the width at word boundaries; preformatted lines are left whole.
QStringList textLines(const Line &line, const Options &options)
{
    const bool quoted =
        std::any_of(line.runs.begin(), line.runs.end(), [](const Run &r) { return r.style.quote; });
    const bool pre = !line.runs.isEmpty()
                     && std::all_of(line.runs.begin(), line.runs.end(), [](const Run &r) { return r.style.pre; });
    Style dim;
    dim.code = options.colour;
    auto head = [&](Painter &painter) {
        painter.text(QString(markOf(line.rtl)), Style());
        if (quoted)
            painter.text(u"\u2502 "_s, dim);
    };
    if (pre) {
        Painter painter(options);
        head(painter);
        for (const Run &run : spelledOut(line.runs, options.hyperlinks))
            painter.text(PlainWriter::printable(run.text), run.style);
        return {painter.finish()};
    }
    // Most lines fit: painted as they are, without building glyphs.
    const QList<Run> runs = spelledOut(line.runs, options.hyperlinks);
    int natural = quoted ? 2 : 0;
    for (const Run &run : runs)
        natural += displayWidth(run.text);
    if (natural <= options.width) {
        Painter painter(options);
        head(painter);
        for (const Run &run : runs)
            painter.text(PlainWriter::printable(run.text), run.style);
        return {painter.finish()};
    }
    const Cell cell = cellOf(line, options.hyperlinks);
    QStringList out;
    for (const QList<Glyph> &part : wrapped(cell.glyphs, qMax(1, options.width - (quoted ? 2 : 0)))) {
        Painter painter(options);
        head(painter);
        for (const Glyph &g : part)
            painter.text(g.text, cell.styles[g.style]);
        out.append(painter.finish());
    }
    return out;
}

// Whether the markup would read anything in text: a table, a tag, bold, a link, an escape or
// an entity. The tests are the ones the parser itself starts from.
bool marked(QStringView text)
{
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u == u'|' || u == u'<' || u == u'\\' || u == u'&')
            return true;
    }
    return Chars::contains(text, u"**") || Chars::contains(text, u"](")
           || Chars::contains(text, u"http");
}

// Text without markup: its lines, directed and isolated as blocks() would, painted without
// building runs. Only lines too wide for the terminal go through the general layout.
std::optional<QString> renderPlain(const QString &input, const Options &options)
{
    if (marked(input))
        return std::nullopt;
    const QString text = Chars::valid(input);
    QList<QStringView> lines;
    for (qsizetype pos = 0;;) {
        const qsizetype nl = text.indexOf(u'\n', pos);
        QStringView line = QStringView(text).sliced(pos, (nl < 0 ? text.size() : nl) - pos);
        // A "\r\n" line end leaves its "\r" behind.
        if (line.endsWith(u'\r'))
            line.chop(1);
        lines.append(line);
        if (nl < 0)
            break;
        pos = nl + 1;
    }
    while (!lines.isEmpty() && lines.last().trimmed().isEmpty())
        lines.removeLast();
    std::optional<bool> whole;
    for (const QStringView line : lines) {
        if ((whole = lean(line)))
            break;
    }
    QString out;
    out.reserve(text.size() + 2 * lines.size() + 8);
    for (qsizetype i = 0; i < lines.size(); ++i) {
        if (i > 0)
            out += u'\n';
        const bool rtl = rightToLeft(lines[i], whole);
        const QString settled = isolate(lines[i], rtl);
        if (displayWidth(settled) > options.width) {
            Line line;
            line.rtl = rtl;
            if (!settled.isEmpty())
                line.runs.append({settled, Style()});
            out += textLines(line, options).join(u'\n');
            continue;
        }
        if (options.marks) {
            out += markOf(rtl);
            out += PlainWriter::printable(settled);
        } else {
            out += unmarked(PlainWriter::printable(settled));
        }
    }
    return out;
}

} // namespace

int displayWidth(QStringView text)
{
    int total = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        char32_t u = text[i].unicode();
        if (u >= 0x20 && u < 0x300) {
            ++total;
            continue;
        }
        if (text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            u = QChar::surrogateToUcs4(text[i], text[i + 1]);
            ++i;
        }
        total += widthOf(u);
    }
    return total;
}

QString write(const QList<Block> &blocks, const Options &options)
{
    QStringList lines;
    for (const Block &block : blocks) {
        if (block.kind == Block::Kind::Line)
            lines.append(textLines(block.line, options));
        else
            lines.append(tableLines(block.table, options));
    }
    return lines.join(u'\n');
}

QString render(const QString &text, const Options &options)
{
    if (const std::optional<QString> out = renderPlain(text, options))
        return *out;
    return write(blocks(text), options);
}

QString write(const QList<Block> &blocks, int width, bool colour)
{
    return write(blocks, Options{width, colour, colour, true});
}

QString render(const QString &text, int width, bool colour)
{
    return write(blocks(text), Options{width, colour, colour, true});
}

QList<std::pair<qsizetype, qsizetype>> wrap(QStringView text, int width)
{
    Line line;
    line.runs.append({text.toString(), Style()});
    QList<std::pair<qsizetype, qsizetype>> out;
    for (const QList<Glyph> &part : wrapped(cellOf(line, true).glyphs, qMax(1, width))) {
        if (part.isEmpty())
            out.append({text.size(), text.size()});
        else
            out.append({part.first().at, part.last().at + part.last().text.size()});
    }
    return out;
}

QString unmarked(QStringView text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        const bool mark = u == 0x200E || u == 0x200F || u == 0x061C || (u >= 0x202A && u <= 0x202E)
                          || (u >= 0x2066 && u <= 0x2069);
        if (!mark)
            out += c;
    }
    return out;
}

} // namespace Markup::AnsiWriter
