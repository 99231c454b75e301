#include "slashcommand.h"

#include <QRegularExpression>

#include <algorithm>
#include <limits>

using namespace Qt::StringLiterals;

SlashCommand SlashCommand::parse(const QString &line)
{
    const QString trimmed = line.trimmed();
    if (!trimmed.startsWith(u'/') || trimmed.startsWith(u"//"))
        return {Kind::Message, trimmed.startsWith(u"//") ? line.trimmed().mid(1) : line, 0};
    // A message that merely starts with a path ("/usr/bin is full") is not a command: commands
    // are one word of letters.
    const qsizetype space = trimmed.indexOf(QRegularExpression(u"\\s"_s));
    const QString name = trimmed.mid(1, space < 0 ? -1 : space - 1).toLower();
    const QString rest = space < 0 ? QString() : trimmed.mid(space + 1).trimmed();
    const bool word = !name.isEmpty() &&
                      std::all_of(name.begin(), name.end(), [](QChar c) { return c.isLetter(); });
    if (!word)
        return {Kind::Message, line, 0};

    const auto malformed = SlashCommand{Kind::Malformed, name, 0};
    if (name == u"help" || name == u"quit" || name == u"exit") {
        if (!rest.isEmpty())
            return malformed;
        return {name == u"help" ? Kind::Help : Kind::Quit, {}, 0};
    }
    if (name == u"retry" || name == u"discard") {
        if (rest.isEmpty() || rest.contains(u' '))
            return malformed;
        return {name == u"retry" ? Kind::Retry : Kind::Discard, rest, 0};
    }
    if (name == u"stop" || name == u"reply") {
        QString digits = rest;
        if (digits.startsWith(u'#'))
            digits.remove(0, 1);
        bool ok = false;
        const qint64 n = digits.toLongLong(&ok);
        const bool plain =
            std::all_of(digits.begin(), digits.end(), [](QChar c) { return c.isDigit(); });
        if (!ok || !plain || n < 1 || (name == u"stop" && n > std::numeric_limits<int>::max()))
            return malformed;
        return {name == u"stop" ? Kind::Stop : Kind::Reply, {}, n};
    }
    if (name == u"file") {
        if (rest.isEmpty())
            return malformed;
        QString path = rest;
        // A path dragged into a terminal often comes quoted.
        if (path.size() >= 2 && (path.front() == u'\'' || path.front() == u'"') &&
            path.back() == path.front())
            path = path.mid(1, path.size() - 2);
        return {Kind::File, path, 0};
    }
    return {Kind::Unknown, name, 0};
}

std::optional<QString> SlashCommand::matchID(const QStringList &ids, const QString &given)
{
    if (given.isEmpty())
        return std::nullopt;
    if (ids.contains(given))
        return given;
    std::optional<QString> found;
    for (const QString &id : ids) {
        if (!id.startsWith(given))
            continue;
        if (found)
            return std::nullopt;
        found = id;
    }
    return found;
}
