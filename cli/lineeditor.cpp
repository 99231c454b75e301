#include "lineeditor.h"

#include "chat/markup/ansiwriter.h"
#include "chat/markup/plainwriter.h"

using namespace Qt::StringLiterals;

LineEditor::Outcome LineEditor::apply(const Key &key)
{
    using K = Key::Kind;
    switch (key.kind) {
    case K::Text:
    case K::Paste:
        insert(key.text);
        break;
    case K::NewLine:
        insert(u"\n"_s);
        break;
    case K::Enter:
        return Outcome::Submit;
    case K::Backspace:
        if (m_cursor > 0) {
            const qsizetype from = previousStop(m_cursor);
            m_text.remove(from, m_cursor - from);
            m_cursor = from;
        }
        break;
    case K::Delete:
        if (m_cursor < m_text.size())
            m_text.remove(m_cursor, nextStop(m_cursor) - m_cursor);
        break;
    case K::Left:
        m_cursor = previousStop(m_cursor);
        break;
    case K::Right:
        m_cursor = nextStop(m_cursor);
        break;
    case K::WordLeft:
        m_cursor = wordStart(m_cursor);
        break;
    case K::WordRight:
        m_cursor = wordEnd(m_cursor);
        break;
    case K::Home:
        m_cursor = 0;
        break;
    case K::End:
        m_cursor = m_text.size();
        break;
    case K::Up:
        recall(-1);
        break;
    case K::Down:
        recall(1);
        break;
    case K::KillToEnd:
        m_text.truncate(m_cursor);
        break;
    case K::KillToStart:
        m_text.remove(0, m_cursor);
        m_cursor = 0;
        break;
    case K::KillWord: {
        const qsizetype from = wordStart(m_cursor);
        m_text.remove(from, m_cursor - from);
        m_cursor = from;
        break;
    }
    case K::Interrupt:
        return Outcome::Interrupt;
    case K::EndOfInput:
        // Ctrl-D on an empty line ends the chat; inside text it deletes, as in a shell.
        if (m_text.isEmpty())
            return Outcome::EndOfInput;
        if (m_cursor < m_text.size())
            m_text.remove(m_cursor, nextStop(m_cursor) - m_cursor);
        break;
    case K::Redraw:
        return Outcome::Redraw;
    case K::Suspend:
        return Outcome::Suspend;
    }
    return Outcome::Editing;
}

void LineEditor::setText(const QString &text)
{
    m_text = text;
    m_cursor = text.size();
    m_recalled = -1;
}

QString LineEditor::take()
{
    const QString sent = m_text;
    remember(sent);
    m_text.clear();
    m_cursor = 0;
    m_recalled = -1;
    m_draft.clear();
    return sent;
}

void LineEditor::remember(const QString &sent)
{
    if (sent.trimmed().isEmpty() || (!m_history.isEmpty() && m_history.last() == sent))
        return;
    m_history.append(sent);
    if (m_history.size() > maxHistory)
        m_history.removeFirst();
}

void LineEditor::insert(const QString &text)
{
    m_text.insert(m_cursor, text);
    m_cursor += text.size();
}

void LineEditor::recall(int step)
{
    if (m_history.isEmpty())
        return;
    qsizetype next;
    if (m_recalled < 0) {
        if (step > 0)
            return;
        m_draft = m_text;
        next = m_history.size() - 1;
    } else {
        next = m_recalled + step;
    }
    if (next < 0)
        return;
    if (next >= m_history.size()) {
        m_recalled = -1;
        m_text = m_draft;
    } else {
        m_recalled = next;
        m_text = m_history.at(next);
    }
    m_cursor = m_text.size();
}

qsizetype LineEditor::previousStop(qsizetype from) const
{
    if (from <= 0)
        return 0;
    --from;
    if (from > 0 && m_text.at(from).isLowSurrogate() && m_text.at(from - 1).isHighSurrogate())
        --from;
    return from;
}

qsizetype LineEditor::nextStop(qsizetype from) const
{
    if (from >= m_text.size())
        return m_text.size();
    ++from;
    if (from < m_text.size() && m_text.at(from).isLowSurrogate())
        ++from;
    return from;
}

qsizetype LineEditor::wordStart(qsizetype from) const
{
    while (from > 0 && m_text.at(from - 1).isSpace())
        --from;
    while (from > 0 && !m_text.at(from - 1).isSpace())
        --from;
    return from;
}

qsizetype LineEditor::wordEnd(qsizetype from) const
{
    while (from < m_text.size() && m_text.at(from).isSpace())
        ++from;
    while (from < m_text.size() && !m_text.at(from).isSpace())
        ++from;
    return from;
}

LineEditor::View LineEditor::view(int width, int maxRows) const
{
    width = std::max(width, 4);
    maxRows = std::max(maxRows, 1);
    QStringList all{QString()};
    int used = 0;
    int cursorRow = 0;
    int cursorColumn = 0;
    for (qsizetype i = 0;;) {
        if (i == m_cursor) {
            // A cursor after a full row stands at the start of the next one.
            if (used >= width) {
                all.append(QString());
                used = 0;
            }
            cursorRow = int(all.size()) - 1;
            cursorColumn = used;
        }
        if (i >= m_text.size())
            break;
        const qsizetype next = nextStop(i);
        const QStringView one = QStringView(m_text).mid(i, next - i);
        i = next;
        if (one == u"\n") {
            all.append(QString());
            used = 0;
            continue;
        }
        // Pasted text may hold escape sequences: shown, never obeyed.
        const QString shown = Markup::PlainWriter::printable(one);
        const int columns = Markup::AnsiWriter::displayWidth(shown);
        if (used + columns > width) {
            all.append(QString());
            used = 0;
        }
        all.last() += shown;
        used += columns;
    }
    // The rows in sight end at the cursor's once it is past the first maxRows.
    const int first =
        std::clamp(cursorRow - maxRows + 1, 0, std::max(0, int(all.size()) - maxRows));
    View out;
    out.rows = all.mid(first, maxRows);
    out.cursorRow = cursorRow - first;
    out.cursorColumn = cursorColumn;
    out.hiddenAbove = first;
    return out;
}
