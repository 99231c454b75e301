#include "markup.h"

#include "chars.h"
#include "patterns.h"
#include "plainwriter.h"
#include "styler.h"

namespace Markup {

namespace {

std::optional<bool> leanOf(QChar c)
{
    const char16_t u = c.unicode();
    if (Chars::isRtlLetter(u))
        return true;
    if (Chars::isLtrLetter(u))
        return false;
    return std::nullopt;
}

bool tableLine(QStringView line)
{
    return line.trimmed().startsWith(u'|');
}

// Per line, whether it starts inside a <pre> block.
QList<bool> preformatted(QStringView text, const QList<qsizetype> &lineStarts)
{
    QList<bool> out(lineStarts.size(), false);
    if (!Chars::contains(text, u"<pre", Qt::CaseInsensitive) &&
        !Chars::contains(text, u"</pre", Qt::CaseInsensitive))
        return out;
    const QList<Patterns::Tag> tags = Patterns::findTags(text);
    qsizetype t = 0;
    int depth = 0;
    for (qsizetype i = 0; i < lineStarts.size(); ++i) {
        for (; t < tags.size() && tags[t].end <= lineStarts[i]; ++t) {
            if (tags[t].name == u"pre")
                depth = tags[t].closing ? qMax(0, depth - 1) : depth + 1;
        }
        out[i] = depth > 0;
    }
    return out;
}

QList<Line> linesOf(QList<Run> runs)
{
    QList<Line> out(1);
    for (Run &run : runs) {
        if (!run.text.contains(u'\n')) {
            out.last().runs.append(std::move(run));
            continue;
        }
        qsizetype pos = 0;
        while (true) {
            const qsizetype nl = run.text.indexOf(u'\n', pos);
            const QString part = run.text.mid(pos, nl < 0 ? -1 : nl - pos);
            if (!part.isEmpty())
                out.last().runs.append({part, run.style});
            if (nl < 0)
                break;
            out.append(Line());
            pos = nl + 1;
        }
    }
    for (Line &line : out) {
        // A "\r\n" line end leaves its "\r" behind.
        if (!line.runs.isEmpty() && line.runs.last().text.endsWith(u'\r')) {
            line.runs.last().text.chop(1);
            if (line.runs.last().text.isEmpty())
                line.runs.removeLast();
        }
    }
    return out;
}

Line cellLine(const QString &cell)
{
    Line line;
    line.runs = Styler::runs(cell);
    for (Run &run : line.runs)
        run.text.replace(u'\n', u' ');
    return line;
}

bool anyOther(QStringView text, bool rtl)
{
    return std::any_of(text.begin(), text.end(), [rtl](QChar c) {
        return rtl ? Chars::isLatinLetter(c.unicode()) : Chars::isRtlLetter(c.unicode());
    });
}

QList<Patterns::Span> isolatedSpans(QStringView line, bool rtl)
{
    if (!anyOther(line, rtl))
        return {};
    return rtl ? Patterns::findLatin(line) : Patterns::findHebrew(line);
}

// The line's direction, and its runs of the other script wrapped in isolates.
void settle(Line &line, std::optional<bool> whole)
{
    const QString text = line.runs.size() == 1 ? line.runs.first().text : line.text();
    line.rtl = rightToLeft(text, whole);
    const QList<Patterns::Span> spans = isolatedSpans(text, line.rtl);
    if (spans.isEmpty())
        return;
    const QChar open = line.rtl ? leftToRightIsolate : rightToLeftIsolate;
    qsizetype offset = 0;
    qsizetype si = 0;
    for (Run &run : line.runs) {
        const qsizetype end = offset + run.text.size();
        if (si >= spans.size() || spans[si].start >= end) {
            offset = end;
            continue;
        }
        QString out;
        out.reserve(run.text.size() + 8);
        qsizetype copied = offset;
        // Marks go inside the run that holds the character they precede or follow.
        while (si < spans.size() && spans[si].start < end) {
            const Patterns::Span &s = spans[si];
            if (s.start >= copied) {
                out += QStringView(run.text).sliced(copied - offset, s.start - copied);
                out += open;
                copied = s.start;
            }
            if (s.end > end)
                break;
            out += QStringView(run.text).sliced(copied - offset, s.end - copied);
            out += popDirectionalIsolate;
            copied = s.end;
            ++si;
        }
        out += QStringView(run.text).sliced(copied - offset);
        run.text = std::move(out);
        offset = end;
    }
}

} // namespace

QList<Piece> pieces(const QString &input)
{
    const QString text = Chars::valid(input);
    if (text.isEmpty())
        return {};
    if (!text.contains(u'|'))
        return {Piece{Piece::Kind::Text, text, {}, {}}};

    QList<QStringView> lines;
    QList<qsizetype> starts;
    for (qsizetype pos = 0;;) {
        const qsizetype nl = text.indexOf(u'\n', pos);
        starts.append(pos);
        lines.append(QStringView(text).sliced(pos, (nl < 0 ? text.size() : nl) - pos));
        if (nl < 0)
            break;
        pos = nl + 1;
    }
    const QList<bool> inPre = preformatted(text, starts);
    auto rowLine = [&](qsizetype i) {
        return i < lines.size() && !inPre[i] && tableLine(lines[i]);
    };

    QList<Piece> out;
    qsizetype textFrom = -1; // first line of the text piece being gathered
    auto flush = [&](qsizetype upTo) {
        if (textFrom < 0)
            return;
        const qsizetype end = starts[upTo - 1] + lines[upTo - 1].size();
        out.append({Piece::Kind::Text, text.mid(starts[textFrom], end - starts[textFrom]), {}, {}});
        textFrom = -1;
    };
    qsizetype i = 0;
    while (i < lines.size()) {
        const QStringList head = rowLine(i) ? cells(lines[i]) : QStringList();
        if (!head.isEmpty() && rowLine(i + 1) && delimiter(lines[i + 1], head.size())) {
            flush(i);
            Piece table{Piece::Kind::Table, {}, head, {}};
            for (i += 2; rowLine(i); ++i) {
                QStringList row = cells(lines[i]);
                row.resize(head.size());
                table.rows.append(row);
            }
            out.append(table);
            continue;
        }
        if (textFrom < 0)
            textFrom = i;
        ++i;
    }
    flush(lines.size());
    return out;
}

QStringList cells(QStringView line)
{
    QStringView s = line.trimmed();
    if (s.startsWith(u'|'))
        s = s.sliced(1);
    if (s.endsWith(u'|') && !s.endsWith(u"\\|"))
        s.chop(1);
    QStringList out;
    QString cell;
    for (qsizetype i = 0; i < s.size(); ++i) {
        if (s[i] == u'\\' && i + 1 < s.size() && s[i + 1] == u'|') {
            cell += u'|';
            ++i;
        } else if (s[i] == u'|') {
            out.append(cell.trimmed());
            cell.clear();
        } else {
            cell += s[i];
        }
    }
    out.append(cell.trimmed());
    return out;
}

bool delimiter(QStringView line, qsizetype count)
{
    const QStringList parts = cells(line);
    if (parts.size() != count)
        return false;
    return std::all_of(parts.begin(), parts.end(), [](const QString &cell) {
        QStringView dashes(cell);
        if (dashes.startsWith(u':'))
            dashes = dashes.sliced(1);
        if (dashes.endsWith(u':'))
            dashes.chop(1);
        return !dashes.isEmpty() &&
               std::all_of(dashes.begin(), dashes.end(), [](QChar c) { return c == u'-'; });
    });
}

std::optional<bool> lean(QStringView text)
{
    for (const QChar c : text) {
        if (const auto l = leanOf(c))
            return l;
    }
    return std::nullopt;
}

bool rightToLeft(QStringView line, std::optional<bool> whole)
{
    // Words are split at white space; a word leans the way of its first deciding letter, and
    // words without one (numbers, punctuation) are not counted.
    int rtl = 0;
    int ltr = 0;
    bool decided = false;
    for (const QChar c : line) {
        if (Chars::isWhiteSpace(c.unicode())) {
            decided = false;
            continue;
        }
        if (decided)
            continue;
        if (const auto l = leanOf(c)) {
            ++(*l ? rtl : ltr);
            decided = true;
        }
    }
    if (rtl != ltr)
        return rtl > ltr;
    return rtl > 0 && whole.value_or(false);
}

QString directed(const QString &text)
{
    const std::optional<bool> whole = lean(text);
    QString out;
    out.reserve(text.size() + text.count(u'\n') + 1);
    qsizetype pos = 0;
    while (true) {
        const qsizetype nl = text.indexOf(u'\n', pos);
        const QStringView line = QStringView(text).sliced(pos, (nl < 0 ? text.size() : nl) - pos);
        out += rightToLeft(line, whole) ? rightToLeftMark : leftToRightMark;
        out += line;
        if (nl < 0)
            break;
        out += u'\n';
        pos = nl + 1;
    }
    return out;
}

QString decoded(QStringView text)
{
    if (!text.contains(u'&'))
        return text.toString();
    // One pass is the same as replacing each entity in turn with "&amp;" last: no decoded
    // character can begin or complete another entity.
    static constexpr std::pair<QStringView, QChar> entities[] = {
        {u"&lt;", u'<'}, {u"&gt;", u'>'}, {u"&quot;", u'"'}, {u"&#39;", u'\''}, {u"&amp;", u'&'}};
    QString out;
    out.reserve(text.size());
    for (qsizetype i = 0; i < text.size();) {
        if (text[i] == u'&') {
            const QStringView rest = text.sliced(i);
            const auto hit =
                std::find_if(std::begin(entities), std::end(entities),
                             [rest](const auto &e) { return rest.startsWith(e.first); });
            if (hit != std::end(entities)) {
                out += hit->second;
                i += hit->first.size();
                continue;
            }
        }
        out += text[i];
        ++i;
    }
    return out;
}

QString isolate(QStringView input, bool rtl)
{
    QString fixed;
    const QStringView line = Chars::valid(input, fixed);
    const QList<Patterns::Span> spans = isolatedSpans(line, rtl);
    QString out;
    out.reserve(line.size() + 2 * spans.size());
    qsizetype pos = 0;
    for (const Patterns::Span &s : spans) {
        out += line.sliced(pos, s.start - pos);
        out += rtl ? leftToRightIsolate : rightToLeftIsolate;
        out += line.sliced(s.start, s.end - s.start);
        out += popDirectionalIsolate;
        pos = s.end;
    }
    out += line.sliced(pos);
    return out;
}

QList<Run> attributed(QStringView text)
{
    return Styler::runs(text);
}

QList<Block> blocks(const QString &text)
{
    QList<Block> out;
    for (const Piece &piece : pieces(text)) {
        if (piece.kind == Piece::Kind::Text) {
            for (Line &line : linesOf(Styler::runs(piece.text)))
                out.append({Block::Kind::Line, std::move(line), {}});
            continue;
        }
        Table table;
        for (const QString &cell : piece.head)
            table.head.append(cellLine(cell));
        for (const QStringList &row : piece.rows) {
            QList<Line> cellsOfRow;
            for (const QString &cell : row)
                cellsOfRow.append(cellLine(cell));
            table.rows.append(cellsOfRow);
        }
        out.append({Block::Kind::Table, {}, std::move(table)});
    }
    while (!out.isEmpty() && out.last().kind == Block::Kind::Line &&
           out.last().line.text().trimmed().isEmpty())
        out.removeLast();

    // Ties between the two directions go the way of the whole displayed message.
    std::optional<bool> whole;
    for (const Block &block : out) {
        if (block.kind == Block::Kind::Line) {
            whole = lean(block.line.text());
        } else {
            for (const Line &cell : block.table.head) {
                if ((whole = lean(cell.text())))
                    break;
            }
            for (qsizetype r = 0; !whole && r < block.table.rows.size(); ++r) {
                for (const Line &cell : block.table.rows[r]) {
                    if ((whole = lean(cell.text())))
                        break;
                }
            }
        }
        if (whole)
            break;
    }

    for (Block &block : out) {
        if (block.kind == Block::Kind::Line) {
            settle(block.line, whole);
            continue;
        }
        QString all;
        for (Line &cell : block.table.head) {
            all += cell.text() + u' ';
            settle(cell, whole);
        }
        for (QList<Line> &row : block.table.rows) {
            for (Line &cell : row) {
                all += cell.text() + u' ';
                settle(cell, whole);
            }
        }
        block.table.rtl = rightToLeft(all, whole);
    }
    return out;
}

QString shown(const QString &text)
{
    return PlainWriter::write(blocks(text));
}

bool openable(QStringView url)
{
    return url.startsWith(u"http://", Qt::CaseInsensitive) ||
           url.startsWith(u"https://", Qt::CaseInsensitive) ||
           url.startsWith(u"mailto:", Qt::CaseInsensitive);
}

} // namespace Markup
