#include "console.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>

#include <cstdio>
#include <termios.h>
#include <unistd.h>

namespace Console {

void out(const QString &line)
{
    const QByteArray bytes = line.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

void write(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

void err(const QString &line)
{
    const QByteArray bytes = line.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
}

void json(const QJsonValue &value)
{
    QByteArray bytes;
    if (value.isObject())
        bytes = QJsonDocument(value.toObject()).toJson(QJsonDocument::Indented);
    else if (value.isArray())
        bytes = QJsonDocument(value.toArray()).toJson(QJsonDocument::Indented);
    else // a bare scalar: let the array writer spell it, then unwrap it
        bytes = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact).mid(1).chopped(1)
                + '\n';
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

bool stdinIsTerminal()
{
    return isatty(STDIN_FILENO) == 1;
}

QString readSecret(const QString &prompt)
{
    const bool terminal = stdinIsTerminal();
    termios saved{};
    if (terminal) {
        const QByteArray shown = prompt.toUtf8();
        std::fwrite(shown.constData(), 1, size_t(shown.size()), stderr);
        std::fflush(stderr);
        tcgetattr(STDIN_FILENO, &saved);
        termios quiet = saved;
        quiet.c_lflag &= ~tcflag_t(ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
    }
    QTextStream in(stdin);
    const QString line = in.readLine();
    if (terminal) {
        tcsetattr(STDIN_FILENO, TCSANOW, &saved);
        std::fputc('\n', stderr);
    }
    return line;
}

} // namespace Console

namespace Console {

bool isYes(const QString &answer)
{
    static const QStringList yes = {QStringLiteral("y"), QStringLiteral("yes"), QStringLiteral("כ"),
                                    QStringLiteral("כן"), QStringLiteral("д"), QStringLiteral("да")};
    return yes.contains(answer.trimmed().toLower());
}

bool confirm(const QString &question)
{
    if (!stdinIsTerminal())
        return false;
    const QByteArray shown = (question + QStringLiteral(" [y/N] ")).toUtf8();
    std::fwrite(shown.constData(), 1, size_t(shown.size()), stderr);
    std::fflush(stderr);
    QTextStream in(stdin);
    return isYes(in.readLine());
}

} // namespace Console
