#include "keydecoder.h"

#include <optional>

using namespace Qt::StringLiterals;

namespace {

const QByteArray pasteStart = "\x1b[200~";
const QByteArray pasteEnd = "\x1b[201~";

// Bytes a UTF-8 sequence starting with lead takes; 1 for a byte that cannot lead one.
int utf8Length(unsigned char lead)
{
    if (lead >= 0xF0 && lead <= 0xF4)
        return 4;
    if (lead >= 0xE0)
        return lead <= 0xEF ? 3 : 1;
    if (lead >= 0xC2)
        return 2;
    return 1;
}

void addText(QList<Key> &keys, const QString &text)
{
    if (!keys.isEmpty() && keys.last().kind == Key::Kind::Text)
        keys.last().text += text;
    else
        keys.append({Key::Kind::Text, text});
}

std::optional<Key::Kind> csiKey(const QByteArray &body)
{
    // body: the parameters and the final byte of "ESC [ ... F".
    static const QHash<QByteArray, Key::Kind> keys = {
        {"A", Key::Kind::Up},          {"B", Key::Kind::Down},
        {"C", Key::Kind::Right},       {"D", Key::Kind::Left},
        {"H", Key::Kind::Home},        {"F", Key::Kind::End},
        {"1~", Key::Kind::Home},       {"7~", Key::Kind::Home},
        {"4~", Key::Kind::End},        {"8~", Key::Kind::End},
        {"3~", Key::Kind::Delete},     {"1;5C", Key::Kind::WordRight},
        {"1;5D", Key::Kind::WordLeft}, {"1;3C", Key::Kind::WordRight},
        {"1;3D", Key::Kind::WordLeft}, {"13;3u", Key::Kind::NewLine},
        {"13;2u", Key::Kind::NewLine},
    };
    const auto found = keys.constFind(body);
    if (found == keys.constEnd())
        return std::nullopt;
    return *found;
}

} // namespace

QList<Key> KeyDecoder::feed(const QByteArray &bytes)
{
    QList<Key> keys;
    m_pending += bytes;
    while (!m_pending.isEmpty()) {
        if (m_pasting) {
            const qsizetype end = m_pending.indexOf(pasteEnd);
            if (end < 0) {
                // Keep a tail that may be the start of the end marker.
                const qsizetype keep = std::min<qsizetype>(m_pending.size(), pasteEnd.size() - 1);
                m_paste += m_pending.left(m_pending.size() - keep);
                m_pending.remove(0, m_pending.size() - keep);
                break;
            }
            m_paste += m_pending.left(end);
            m_pending.remove(0, end + pasteEnd.size());
            m_pasting = false;
            // Terminals send a pasted line break as CR.
            QString text = QString::fromUtf8(m_paste).replace(u"\r\n"_s, u"\n"_s);
            text.replace(u'\r', u'\n');
            m_paste.clear();
            keys.append({Key::Kind::Paste, text});
            continue;
        }
        const qsizetype used = takeOne(keys);
        if (used == 0)
            break;
        m_pending.remove(0, used);
    }
    return keys;
}

void KeyDecoder::flushEscape()
{
    if (waitingOnEscape())
        m_pending.clear();
}

qsizetype KeyDecoder::takeOne(QList<Key> &keys)
{
    const auto c = static_cast<unsigned char>(m_pending.at(0));
    auto control = [&](Key::Kind kind) {
        keys.append({kind, {}});
        return qsizetype(1);
    };
    switch (c) {
    case '\r':
        return control(Key::Kind::Enter);
    case '\n':
        return control(Key::Kind::NewLine);
    case 0x7f:
    case 0x08:
        return control(Key::Kind::Backspace);
    case 0x01:
        return control(Key::Kind::Home);
    case 0x05:
        return control(Key::Kind::End);
    case 0x02:
        return control(Key::Kind::Left);
    case 0x06:
        return control(Key::Kind::Right);
    case 0x10:
        return control(Key::Kind::Up);
    case 0x0e:
        return control(Key::Kind::Down);
    case 0x0b:
        return control(Key::Kind::KillToEnd);
    case 0x15:
        return control(Key::Kind::KillToStart);
    case 0x17:
        return control(Key::Kind::KillWord);
    case 0x03:
        return control(Key::Kind::Interrupt);
    case 0x04:
        return control(Key::Kind::EndOfInput);
    case 0x0c:
        return control(Key::Kind::Redraw);
    case 0x1a:
        return control(Key::Kind::Suspend);
    case '\t':
        addText(keys, u"    "_s);
        return 1;
    case 0x1b:
        break;
    default:
        if (c < 0x20)
            return 1; // other control keys mean nothing here
        {
            const int length = utf8Length(c);
            if (m_pending.size() < length)
                return 0;
            const QString text = QString::fromUtf8(m_pending.left(length));
            addText(keys, text);
            return length;
        }
    }

    // ESC: a sequence, an Alt-key, or the Escape key alone.
    if (m_pending.size() < 2)
        return 0;
    const char second = m_pending.at(1);
    if (second == '\r' || second == '\n') {
        keys.append({Key::Kind::NewLine, {}});
        return 2;
    }
    if (second == 0x7f || second == 0x08) {
        keys.append({Key::Kind::KillWord, {}});
        return 2;
    }
    if (second == 'b' || second == 'f') {
        keys.append({second == 'b' ? Key::Kind::WordLeft : Key::Kind::WordRight, {}});
        return 2;
    }
    if (second == 'O') { // SS3: keypad arrows, Home, End
        if (m_pending.size() < 3)
            return 0;
        if (const auto kind = csiKey(m_pending.mid(2, 1)))
            keys.append({*kind, {}});
        return 3;
    }
    if (second != '[')
        return 1; // a lone Escape before another key: dropped, the key stays
    // CSI: parameters 0x30–0x3F, intermediates 0x20–0x2F, a final byte 0x40–0x7E.
    qsizetype i = 2;
    while (i < m_pending.size() && m_pending.at(i) >= 0x20 && m_pending.at(i) <= 0x3f)
        ++i;
    if (i >= m_pending.size())
        return m_pending.size() > 64 ? m_pending.size() : 0; // a runaway sequence is dropped
    const QByteArray body = m_pending.mid(2, i - 1);
    if (body == "200~") {
        m_pasting = true;
        m_paste.clear();
        return i + 1;
    }
    if (const auto kind = csiKey(body))
        keys.append({*kind, {}});
    return i + 1;
}
