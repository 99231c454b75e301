#include "chat/store/transcript.h"

#include "chat/model/chatjson.h"
#include "net/jsonrecord.h"
#include "platform/appdata.h"

#include <QDateTime>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <vector>

using namespace Qt::StringLiterals;

namespace Transcript {

namespace {

// The transcript read in one pass over its bytes: each message is built straight from its
// keys by the message's own rules, with no document of the whole file in between. Anything
// that is not JSON fails the whole read, as a parser would.
class Reader
{
public:
    Reader(QByteArrayView bytes, double now)
        : m_at(bytes.data())
        , m_end(bytes.data() + bytes.size())
        , m_now(now)
    {
    }

    std::optional<Contents> contents()
    {
        Contents out;
        std::optional<int> fileVersion;
        if (!take('{'))
            return std::nullopt;
        if (!take('}')) {
            do {
                QByteArray name;
                if (!key(name) || !take(':'))
                    return std::nullopt;
                if (name == "messages") {
                    out.messages = MessageList();
                    if (!messages(out.messages))
                        return std::nullopt;
                    continue;
                }
                const std::optional<QJsonValue> v = value();
                if (!v)
                    return std::nullopt;
                if (name == "version")
                    fileVersion = v->toInt();
                else if (name == "cachedSeq")
                    out.cachedSeq = std::clamp<qint64>(
                        ChatJson::looseInteger(*v).value_or(0), 0, ChatJson::maxSeq);
            } while (take(','));
            if (!take('}'))
                return std::nullopt;
        }
        space();
        if (m_at != m_end || fileVersion != version)
            return std::nullopt;
        return out;
    }

private:
    struct Member
    {
        QByteArray key;
        ChatMessage::Field field;
        QByteArrayView raw; // a list's bytes, read only when asked for
    };

    void space()
    {
        while (m_at < m_end && (*m_at == ' ' || *m_at == '\n' || *m_at == '\r' || *m_at == '\t'))
            ++m_at;
    }
    bool take(char c)
    {
        space();
        if (m_at < m_end && *m_at == c) {
            ++m_at;
            return true;
        }
        return false;
    }
    char peek()
    {
        space();
        return m_at < m_end ? *m_at : '\0';
    }

    // A string's text, escapes resolved; m_at on its opening quote.
    bool string(QString &out)
    {
        if (!take('"'))
            return false;
        const char *from = m_at;
        while (m_at < m_end && *m_at != '"' && *m_at != '\\')
            ++m_at;
        if (m_at < m_end && *m_at == '"') {
            out = QString::fromUtf8(from, m_at - from);
            ++m_at;
            return true;
        }
        // The rare string with escapes.
        out = QString::fromUtf8(from, m_at - from);
        while (m_at < m_end) {
            const char c = *m_at++;
            if (c == '"')
                return true;
            if (c != '\\') {
                const char *run = m_at - 1;
                while (m_at < m_end && *m_at != '"' && *m_at != '\\')
                    ++m_at;
                out += QString::fromUtf8(run, m_at - run);
                continue;
            }
            if (m_at == m_end)
                return false;
            switch (const char e = *m_at++) {
            case '"': case '\\': case '/': out += QLatin1Char(e); break;
            case 'b': out += u'\b'; break;
            case 'f': out += u'\f'; break;
            case 'n': out += u'\n'; break;
            case 'r': out += u'\r'; break;
            case 't': out += u'\t'; break;
            case 'u': {
                if (m_end - m_at < 4)
                    return false;
                bool ok = false;
                const ushort unit = QByteArrayView(m_at, 4).toUShort(&ok, 16);
                if (!ok)
                    return false;
                out += QChar(unit);
                m_at += 4;
                break;
            }
            default:
                return false;
            }
        }
        return false;
    }

    // A key's bytes: a view into the file unless it has escapes.
    bool key(QByteArray &out)
    {
        if (peek() != '"')
            return false;
        const char *from = m_at + 1;
        const char *to = from;
        while (to < m_end && *to != '"' && *to != '\\')
            ++to;
        if (to < m_end && *to == '"') {
            out = QByteArray::fromRawData(from, to - from);
            m_at = to + 1;
            return true;
        }
        QString text;
        if (!string(text))
            return false;
        out = text.toUtf8();
        return true;
    }

    bool number(double &out)
    {
        space();
        const char *from = m_at;
        if (m_at < m_end && *m_at == '-')
            ++m_at;
        const auto digits = [this] {
            const char *start = m_at;
            while (m_at < m_end && *m_at >= '0' && *m_at <= '9')
                ++m_at;
            return m_at > start;
        };
        // No leading zeros, as the grammar has it.
        if (m_at < m_end && *m_at == '0')
            ++m_at;
        else if (!digits())
            return false;
        if (m_at < m_end && *m_at == '.') {
            ++m_at;
            if (!digits())
                return false;
        }
        if (m_at < m_end && (*m_at == 'e' || *m_at == 'E')) {
            ++m_at;
            if (m_at < m_end && (*m_at == '+' || *m_at == '-'))
                ++m_at;
            if (!digits())
                return false;
        }
        const auto [end, error] = std::from_chars(from, m_at, out);
        return error == std::errc() && end == m_at;
    }

    bool word(const char *text)
    {
        const qsizetype size = qsizetype(std::strlen(text));
        if (m_end - m_at < size || std::memcmp(m_at, text, size_t(size)) != 0)
            return false;
        m_at += size;
        return true;
    }

    // Steps over any value; returns its type. Nesting is followed without recursion.
    std::optional<QJsonValue::Type> skip()
    {
        switch (peek()) {
        case '"': {
            QString ignored;
            return string(ignored) ? std::optional(QJsonValue::String) : std::nullopt;
        }
        case 't': return word("true") ? std::optional(QJsonValue::Bool) : std::nullopt;
        case 'f': return word("false") ? std::optional(QJsonValue::Bool) : std::nullopt;
        case 'n': return word("null") ? std::optional(QJsonValue::Null) : std::nullopt;
        case '{':
        case '[': {
            const QJsonValue::Type type = *m_at == '{' ? QJsonValue::Object : QJsonValue::Array;
            const char *from = m_at;
            qsizetype depth = 0;
            while (m_at < m_end) {
                const char c = *m_at;
                if (c == '"') {
                    QString ignored;
                    if (!string(ignored))
                        return std::nullopt;
                    continue;
                }
                ++m_at;
                if (c == '{' || c == '[')
                    ++depth;
                else if ((c == '}' || c == ']') && --depth == 0)
                    break;
            }
            // Checked by a parser: the skipped part is judged as a whole.
            if (depth != 0 || QJsonDocument::fromJson(QByteArray::fromRawData(from, m_at - from)).isNull())
                return std::nullopt;
            return type;
        }
        default: {
            double ignored = 0;
            return number(ignored) ? std::optional(QJsonValue::Double) : std::nullopt;
        }
        }
    }

    // A top-level value other than the messages.
    std::optional<QJsonValue> value()
    {
        switch (peek()) {
        case '"': {
            QString text;
            return string(text) ? std::optional(QJsonValue(text)) : std::nullopt;
        }
        case '-': case '0': case '1': case '2': case '3': case '4':
        case '5': case '6': case '7': case '8': case '9': {
            double d = 0;
            return number(d) ? std::optional(QJsonValue(d)) : std::nullopt;
        }
        default: {
            const auto type = skip();
            return type ? std::optional(QJsonValue(*type)) : std::nullopt;
        }
        }
    }

    bool messages(MessageList &out)
    {
        if (peek() != '[')
            return skip().has_value();
        ++m_at;
        if (take(']'))
            return true;
        do {
            if (peek() != '{') {
                // Not a message: left out, as a record that does not decode.
                if (!skip())
                    return false;
                continue;
            }
            if (!members())
                return false;
            out.append(std::make_shared<const ChatMessage>(
                ChatMessage::fromFields(m_lookup, m_now)));
        } while (take(','));
        return take(']');
    }

    // One message's keys into m_members.
    bool members()
    {
        m_members.clear();
        if (!take('{'))
            return false;
        if (take('}'))
            return true;
        do {
            Member member;
            if (!key(member.key) || !take(':'))
                return false;
            switch (peek()) {
            case '"':
                member.field.type = QJsonValue::String;
                if (!string(member.field.text))
                    return false;
                break;
            case '-': case '0': case '1': case '2': case '3': case '4':
            case '5': case '6': case '7': case '8': case '9':
                member.field.type = QJsonValue::Double;
                if (!number(member.field.number))
                    return false;
                break;
            default: {
                const char *from = m_at;
                const auto type = skip();
                if (!type)
                    return false;
                member.field.type = *type == QJsonValue::Null ? QJsonValue::Undefined : *type;
                if (*type == QJsonValue::Array)
                    member.raw = QByteArrayView(from, m_at - from);
            }
            }
            m_members.push_back(std::move(member));
        } while (take(','));
        return take('}');
    }

    ChatMessage::Field field(QLatin1StringView key) const
    {
        // The last of repeated keys wins, as in a parsed object.
        for (auto it = m_members.rbegin(); it != m_members.rend(); ++it) {
            if (QLatin1StringView(it->key) != key)
                continue;
            ChatMessage::Field out = it->field;
            if (out.type == QJsonValue::Array)
                out.list = QJsonDocument::fromJson(it->raw.toByteArray()).array();
            return out;
        }
        return {};
    }

    const char *m_at;
    const char *m_end;
    double m_now;
    std::vector<Member> m_members;
    const ChatMessage::Fields m_lookup = [this](QLatin1StringView key) { return field(key); };
};

} // namespace

QString folder()
{
    const QString dir = AppData::path(u"transcript"_s);
    if (!dir.isEmpty())
        QDir().mkpath(dir);
    return dir;
}

QString fileName(const QString &storageKey, bool owner)
{
    return u"chat-"_s + storageKey + (owner ? u"-voice-separated-v1"_s : QString()) + u"-feed-v"_s
           + QString::number(version) + u".json"_s;
}

QString activityFileName(const QString &storageKey)
{
    return u"activity-"_s + storageKey + u"-v"_s + QString::number(version) + u".json"_s;
}

QByteArray encode(const Contents &contents)
{
    QByteArray out = "{\"version\":" + QByteArray::number(version) + ",\"cachedSeq\":"
                     + QByteArray::number(contents.cachedSeq) + ",\"messages\":[";
    bool first = true;
    for (const ChatMessage &m : contents.messages) {
        if (!std::exchange(first, false))
            out += ',';
        out += QJsonDocument(m.toJson()).toJson(QJsonDocument::Compact);
    }
    out += "]}";
    return out;
}

std::optional<Contents> decode(const QByteArray &bytes, double now)
{
    if (!QByteArrayView(bytes).isValidUtf8())
        return std::nullopt;
    return Reader(bytes, now).contents();
}

QByteArray encodeLanes(const QList<Lane> &lanes)
{
    QJsonArray out;
    for (const Lane &lane : lanes)
        out.append(lane.toJson());
    return QJsonDocument(out).toJson(QJsonDocument::Compact);
}

QList<Lane> decodeLanes(const QByteArray &bytes)
{
    QList<Lane> out;
    for (const QJsonValue &v : QJsonDocument::fromJson(bytes).array()) {
        try {
            out.append(Lane::fromJson(v));
        } catch (const DecodeError &) {
        }
    }
    return out;
}

} // namespace Transcript
