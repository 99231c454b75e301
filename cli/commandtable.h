#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// Every command form the terminal client knows, with the options it takes, its usage and
// examples: help, suggestions and the refusal of options a command does not take all come
// from here, so a new command is one entry.
namespace CommandTable {

// A text in the three languages, Hebrew first; shown through L::t.
struct Said {
    const char16_t *he;
    const char16_t *en;
    const char16_t *ru;

    QString text() const;
};

struct Option {
    QString name;      // "project", without the dashes
    QString valueName; // "N"; empty for a flag
    Said about;
};

struct Form {
    QString command;     // "chat"
    QString sub;         // "send"; empty for the bare command
    QStringList options; // names from options(); the global ones are always taken
    QString usage;       // after "halvenmark-cli "
    Said about;
    QStringList examples;    // whole command lines
    bool takesWords = false; // the bare form reads positional words (get PATH)
};

const QList<Option> &options();
// Taken by every command: --lang, --help, --version, --bidi.
const QStringList &globalOptions();
const QList<Form> &forms();

const Option *option(const QString &name);

// The form a command line names: (command, first word) when that is a subcommand, else the bare
// command; nothing when the command is unknown or its first word is not one of its subcommands
// (and its bare form reads no words).
const Form *resolve(const QString &command, const QStringList &words);

bool isCommand(const QString &command);
QStringList commandNames();
QStringList subcommands(const QString &command);

// Options given that the form does not take, in the order given.
QStringList refused(const Form &form, const QStringList &given);

// The candidate closest to word by edit distance (a prefix counts as close), when it is close
// enough to be what was meant; ties go to the first candidate.
std::optional<QString> closest(const QString &word, const QStringList &candidates);
int distance(const QString &a, const QString &b);

// Usage, description, options and examples of one form.
QString help(const Form &form);
// Every form of a command.
QString help(const QString &command);
// The whole client: every form on a line, exit statuses, environment.
QString summary();

} // namespace CommandTable
