#include "devicecommands.h"

#include "console.h"
#include "outcome.h"
#include "text/l.h"

#include <QCoreApplication>
#include <QFile>
#include <QMimeDatabase>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace DeviceCommands {

namespace {
const Table *current = nullptr;
}

void install(const Table *table)
{
    current = table;
}

const Table *installed()
{
    return current;
}

bool isVideo(const QString &path)
{
    return QMimeDatabase().mimeTypeForFile(path).name().startsWith(u"video/");
}

bool needed(const Invocation &in)
{
    if (in.command == u"call" || in.command == u"vault")
        return true;
    if (in.command != u"chat" || in.args.isEmpty())
        return false;
    const QString &sub = in.args.first();
    if (sub == u"play" || sub == u"record" || sub == u"transcribe")
        return true;
    return sub == u"send" && (!in.voice.isEmpty() || std::ranges::any_of(in.files, isVideo));
}

int handOver(char **argv)
{
    const QString path = QCoreApplication::applicationDirPath() + u"/halvenmark-cli-devices"_s;
    ::execv(QFile::encodeName(path).constData(), argv);
    const QString cause = QString::fromLocal8Bit(std::strerror(errno));
    Console::err(L::t(u"לא ניתן להפעיל את %1: %2"_s, u"Cannot start %1: %2"_s,
                      u"Не удаётся запустить %1: %2"_s)
                     .arg(path, cause));
    return Usage;
}

} // namespace DeviceCommands
