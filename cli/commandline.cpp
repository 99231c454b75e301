#include "commandline.h"

#include "commandtable.h"
#include "outcome.h"
#include "render.h"

#include "buildinfo.h"
#include "text/l.h"

#include <QCommandLineParser>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace CommandLine {

namespace {

Parsed usageError(const QString &text)
{
    return {std::nullopt, Usage, {}, text};
}

QString seeHelp(const QString &command = {})
{
    const QString line =
        u"halvenmark-cli help"_s + (command.isEmpty() ? QString() : u" "_s + command);
    return L::t(u"עזרה: %1"_s, u"Help: %1"_s, u"Справка: %1"_s).arg(line);
}

QString didYouMean(const QString &what)
{
    return L::t(u" האם התכוונתם ל־%1?"_s, u" Did you mean %1?"_s,
                u" Возможно, имелось в виду %1?"_s)
        .arg(what);
}

// The words of a command line the parser refused, for naming the command in the error: values
// of options that take one are skipped.
QStringList roughWords(const QStringList &arguments)
{
    QStringList words;
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const QString &a = arguments[i];
        if (a == u"--") {
            words += arguments.mid(i + 1);
            break;
        }
        if (a.startsWith(u'-') && a.size() > 1) {
            const CommandTable::Option *o =
                CommandTable::option(a.mid(a.startsWith(u"--") ? 2 : 1));
            if (o && !o->valueName.isEmpty() && !a.contains(u'='))
                ++i;
            continue;
        }
        words << a;
    }
    return words;
}

// The text of a turn that starts with "-" reads as an option: say how to send it.
QString dashHint(const QStringList &words)
{
    if (words.size() < 2 || words[0] != u"chat" || words[1] != u"send")
        return {};
    return u"\n"_s +
           L::t(
               u"טקסט שמתחיל ב־‎-‎ בא אחרי ‎--‎: halvenmark-cli chat send -- \"-5 מעלות?\""_s,
               u"Text that starts with - goes after --: halvenmark-cli chat send -- \"-5 degrees?\""_s,
               u"Текст, начинающийся с -, пишется после --: halvenmark-cli chat send -- \"-5 градусов?\""_s);
}

QString unknownOption(const QString &name, const QStringList &words)
{
    QStringList candidates;
    const CommandTable::Form *form =
        words.isEmpty() ? nullptr : CommandTable::resolve(words.first(), words.mid(1));
    if (form)
        candidates = form->options + CommandTable::globalOptions();
    std::optional<QString> near = CommandTable::closest(name, candidates);
    if (!near) {
        for (const CommandTable::Option &o : CommandTable::options())
            candidates << o.name;
        near = CommandTable::closest(name, candidates);
    }
    const QString shown = (name.size() == 1 ? u"-"_s : u"--"_s) + name;
    QString text =
        L::t(u"אפשרות לא מוכרת: %1."_s, u"Unknown option: %1."_s, u"Неизвестный параметр: %1."_s)
            .arg(shown);
    if (near)
        text += didYouMean(u"--"_s + *near);
    return text + dashHint(words);
}

// A positive whole number, or nothing.
std::optional<qint64> positive(const QString &text)
{
    bool number = false;
    const qint64 n = text.toLongLong(&number);
    return number && n > 0 ? std::optional(n) : std::nullopt;
}

std::optional<double> positiveSeconds(const QString &text)
{
    bool number = false;
    const double n = text.toDouble(&number);
    return number && n > 0 ? std::optional(n) : std::nullopt;
}

QString needs(const QString &option, const QString &he, const QString &en, const QString &ru)
{
    return L::t(u"‎--%1‎ צריך %2."_s, u"--%1 needs %2."_s, u"Для --%1 нужно %2."_s)
        .arg(option, L::t(he, en, ru));
}

// Typed fields from the options given; an error text when a value does not read.
QString fill(Invocation &in)
{
    auto one = [&](const char16_t *name) { return in.value(QString::fromUtf16(name)); };
    in.json = in.isSet(u"json"_s);
    in.user = one(u"user");
    in.token = one(u"token");
    in.files = in.given.value(u"file"_s);
    in.title = one(u"title");
    in.fields = in.given.value(u"field"_s);
    in.primary = in.isSet(u"primary"_s);
    in.forget = in.isSet(u"forget"_s);
    in.force = in.isSet(u"yes"_s) || in.isSet(u"force"_s);
    in.edit = in.isSet(u"edit"_s);
    in.output = one(u"output");
    in.input = one(u"input");
    in.voice = one(u"voice");
    in.language = one(u"language");
    in.provider = one(u"provider");
    if (in.isSet(u"project"_s)) {
        const auto n = positive(one(u"project"));
        if (!n || *n > std::numeric_limits<int>::max())
            return needs(u"project"_s, u"מספר פרויקט"_s, u"a project number"_s, u"номер проекта"_s);
        in.project = int(*n);
    }
    if (in.isSet(u"reply-to"_s)) {
        in.replyTo = positive(one(u"reply-to"));
        if (!in.replyTo)
            return needs(u"reply-to"_s, u"מספר הודעה"_s, u"a message number"_s,
                         u"номер сообщения"_s);
    }
    if (in.isSet(u"limit"_s)) {
        const auto n = positive(one(u"limit"));
        if (!n || *n > std::numeric_limits<int>::max())
            return needs(u"limit"_s, u"מספר חיובי"_s, u"a positive number"_s,
                         u"положительное число"_s);
        in.limit = int(*n);
    }
    if (in.isSet(u"since"_s)) {
        bool number = false;
        const qint64 seq = one(u"since").toLongLong(&number);
        if (!number || seq < 0)
            return needs(u"since"_s, u"מספר הודעה"_s, u"a message number"_s, u"номер сообщения"_s);
        in.since = seq;
    }
    const auto seconds = [&](const char16_t *name, double &into) -> bool {
        if (!in.isSet(QString::fromUtf16(name)))
            return true;
        const auto s = positiveSeconds(one(name));
        into = s.value_or(0);
        return s.has_value();
    };
    if (!seconds(u"wait", in.wait))
        return needs(u"wait"_s, u"מספר שניות חיובי"_s, u"a positive number of seconds"_s,
                     u"положительное число секунд"_s);
    if (!seconds(u"every", in.every))
        return needs(u"every"_s, u"מספר שניות חיובי"_s, u"a positive number of seconds"_s,
                     u"положительное число секунд"_s);
    if (!seconds(u"seconds", in.seconds))
        return needs(u"seconds"_s, u"מספר שניות חיובי"_s, u"a positive number of seconds"_s,
                     u"положительное число секунд"_s);
    if (!seconds(u"rate", in.rate))
        return needs(u"rate"_s, u"1, 1.5 או 2"_s, u"1, 1.5 or 2"_s, u"1, 1.5 или 2"_s);
    return {};
}

Parsed helpFor(const QStringList &words)
{
    if (words.isEmpty())
        return {std::nullopt, Done, CommandTable::summary(), {}};
    const QString &command = words.first();
    if (!CommandTable::isCommand(command)) {
        QString text =
            L::t(u"פקודה לא מוכרת: %1."_s, u"Unknown command: %1."_s, u"Неизвестная команда: %1."_s)
                .arg(command);
        if (const auto near = CommandTable::closest(command, CommandTable::commandNames()))
            text += didYouMean(*near);
        return usageError(text + u"\n"_s + seeHelp());
    }
    if (words.size() > 1) {
        const CommandTable::Form *form = CommandTable::resolve(command, words.mid(1));
        if (form && !form->sub.isEmpty())
            return {std::nullopt, Done, CommandTable::help(*form), {}};
    }
    return {std::nullopt, Done, CommandTable::help(command), {}};
}

} // namespace

QString version()
{
    return u"halvenmark-cli %1 (build %2)"_s.arg(QString::fromUtf8(BuildInfo::version),
                                                 QString::fromUtf8(BuildInfo::build));
}

Parsed parse(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsOptions);
    for (const CommandTable::Option &o : CommandTable::options()) {
        const QStringList names =
            o.name == u"help" ? QStringList{u"h"_s, u"help"_s} : QStringList{o.name};
        parser.addOption(QCommandLineOption(names, QString(), o.valueName));
    }
    // "call threshold -30": the decibels are a value, not a cluster of short options.
    QStringList line = arguments;
    static const QRegularExpression negative(u"^-[0-9]+(\\.[0-9]+)?$"_s);
    if (const qsizetype at = line.indexOf(negative); at > 0 && line.at(at - 1) == u"threshold")
        line.insert(at, u"--"_s);
    const bool read = parser.parse(line);
    // The language first: every text from here on is in it.
    if (parser.isSet(u"lang"_s) && !L::pin(parser.value(u"lang"_s)))
        return usageError(L::t(u"שפה לא מוכרת: %1 (he, en, ru)"_s,
                               u"Unknown language: %1 (he, en, ru)"_s,
                               u"Неизвестный язык: %1 (he, en, ru)"_s)
                              .arg(parser.value(u"lang"_s)));
    if (!read) {
        const QStringList unknown = parser.unknownOptionNames();
        if (unknown.isEmpty())
            return usageError(parser.errorText() + u"\n"_s + seeHelp());
        return usageError(unknownOption(unknown.first(), roughWords(arguments)));
    }
    RenderCommand::setBidi(parser.isSet(u"bidi"_s));
    if (parser.isSet(u"version"_s))
        return {std::nullopt, Done, version(), {}};

    QStringList words = parser.positionalArguments();
    if (words.isEmpty()) {
        if (parser.isSet(u"help"_s))
            return helpFor({});
        return usageError(CommandTable::summary());
    }
    const QString command = words.takeFirst();
    if (command == u"help")
        return helpFor(words);
    if (!CommandTable::isCommand(command)) {
        QString text =
            L::t(u"פקודה לא מוכרת: %1."_s, u"Unknown command: %1."_s, u"Неизвестная команда: %1."_s)
                .arg(command);
        if (const auto near = CommandTable::closest(command, CommandTable::commandNames()))
            text += didYouMean(*near);
        return usageError(text + u"\n"_s + seeHelp());
    }
    const CommandTable::Form *form = CommandTable::resolve(command, words);
    if (!form) {
        const QString sub = words.value(0);
        QString text = L::t(u"ל־%1 אין פקודה %2."_s, u"%1 has no subcommand %2."_s,
                            u"У %1 нет подкоманды %2."_s)
                           .arg(command, sub.isEmpty() ? u"\"\""_s : sub);
        if (const auto near = CommandTable::closest(sub, CommandTable::subcommands(command)))
            text += didYouMean(command + u" "_s + *near);
        return usageError(text + u"\n"_s + seeHelp(command));
    }
    if (parser.isSet(u"help"_s))
        return {std::nullopt,
                Done,
                form->sub.isEmpty() ? CommandTable::help(command) : CommandTable::help(*form),
                {}};

    QStringList given;
    for (const QString &name : parser.optionNames())
        given << (name == u"h" ? u"help"_s : name);
    const QStringList refused = CommandTable::refused(*form, given);
    if (!refused.isEmpty()) {
        const QString name = form->sub.isEmpty() ? command : command + u" "_s + form->sub;
        QString text = L::t(u"%1 לא מקבלת ‎--%2‎."_s, u"%1 does not take --%2."_s,
                            u"%1 не принимает --%2."_s)
                           .arg(name, refused.first());
        if (const auto near = CommandTable::closest(refused.first(), form->options))
            text += didYouMean(u"--"_s + *near);
        return usageError(text + u"\n"_s + L::t(u"שימוש: "_s, u"Usage: "_s, u"Использование: "_s) +
                          u"halvenmark-cli "_s + form->usage);
    }

    Invocation in;
    in.command = command;
    in.args = words;
    for (const QString &name : given)
        in.given.insert(name, parser.isSet(name) ? parser.values(name) : QStringList());
    if (const QString bad = fill(in); !bad.isEmpty())
        return usageError(bad);
    return {in, Done, {}, {}};
}

} // namespace CommandLine
