#include "turninput.h"

#include "console.h"
#include "text/l.h"

#include <QCoroTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace TurnInput {

bool fromStdin(const QStringList &words)
{
    return words.isEmpty() || (words.size() == 1 && words.first() == u"-");
}

std::optional<QString> readStdin()
{
    if (Console::stdinIsTerminal())
        Console::err(
            L::t(u"כתבו את ההודעה; Ctrl-D בשורה חדשה שולח, Ctrl-C מבטל."_s,
                 u"Type the message; Ctrl-D on a new line sends it, Ctrl-C gives up."_s,
                 u"Введите сообщение; Ctrl-D в новой строке отправляет, Ctrl-C отменяет."_s));
    QByteArray bytes;
    char chunk[65536];
    while (true) {
        const size_t got = std::fread(chunk, 1, sizeof chunk, stdin);
        bytes.append(chunk, qsizetype(got));
        if (got < sizeof chunk)
            break;
    }
    if (std::ferror(stdin))
        return std::nullopt;
    QString text = QString::fromUtf8(bytes);
    // A pipe's last line break is the end of the input, not part of the message.
    if (text.endsWith(u'\n'))
        text.chop(1);
    return text;
}

QString editor()
{
    for (const char *name : {"VISUAL", "EDITOR"}) {
        const QString value = qEnvironmentVariable(name).trimmed();
        if (!value.isEmpty())
            return value;
    }
    return u"sensible-editor"_s;
}

QString withoutComments(const QString &written)
{
    QStringList kept;
    for (const QString &line : written.split(u'\n')) {
        if (!line.startsWith(u'#'))
            kept << line;
    }
    return kept.join(u'\n').trimmed();
}

QCoro::Task<std::optional<QString>> fromEditor()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(u"message.md"_s);
    {
        QFile file(path);
        if (!dir.isValid() || !file.open(QIODevice::WriteOnly)) {
            Console::err(L::t(u"לא ניתן ליצור קובץ זמני לעורך."_s,
                              u"Could not make a file for the editor."_s,
                              u"Не удалось создать файл для редактора."_s));
            co_return std::nullopt;
        }
        file.write(
            L::t(
                u"\n# כתבו את ההודעה מעל. שורות שמתחילות ב־# לא נשלחות; קובץ ריק מבטל.\n"_s,
                u"\n# Write the message above. Lines starting with # are not sent; an empty file gives up.\n"_s,
                u"\n# Напишите сообщение выше. Строки с # не отправляются; пустой файл отменяет.\n"_s)
                .toUtf8());
    }
    // Through the shell, so that EDITOR may carry arguments ("code --wait").
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.setInputChannelMode(QProcess::ForwardedInputChannel);
    process.start(u"/bin/sh"_s, {u"-c"_s, editor() + u" \"$1\""_s, u"sh"_s, path});
    // Waited for in small sleeps: the event loop keeps running (and the hang watch quiet).
    while (process.state() != QProcess::NotRunning)
        co_await QCoro::sleepFor(std::chrono::milliseconds(50));
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        Console::err(L::t(u"העורך (%1) נכשל; לא נשלח דבר."_s,
                          u"The editor (%1) failed; nothing was sent."_s,
                          u"Редактор (%1) завершился с ошибкой; ничего не отправлено."_s)
                         .arg(editor()));
        co_return std::nullopt;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        co_return std::nullopt;
    co_return withoutComments(QString::fromUtf8(file.readAll()));
}

} // namespace TurnInput
