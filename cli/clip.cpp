// halvenmark-clip: holds one secret, read from stdin, on the desktop clipboard for a minute
// (the terminal client has no clipboard of its own), then clears it if it is still there.

#include "features/vault/vaultclipboard.h"
#include "features/vault/vaulttext.h"
#include "platform/guiclipboard.h"
#include "platform/sleeper.h"
#include "text/l.h"

#include <QGuiApplication>
#include <QTextStream>

#include <cstdio>

using namespace Qt::StringLiterals;

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const qsizetype lang = arguments.indexOf(u"--lang"_s);
    if (lang > 0 && lang + 1 < arguments.size())
        L::pin(arguments.at(lang + 1));

    QString secret = QTextStream(stdin).readLine();
    if (secret.isEmpty())
        return 1; // nothing to hold
    GuiClipboard clipboard;
    VaultClipboard copier(clipboard, Sleeper::real());
    QObject::connect(&copier, &VaultClipboard::expired, &app, [] { QCoreApplication::exit(0); });
    const bool copied = copier.copy(secret);
    secret.fill(u'\0');
    if (!copied) {
        std::fputs(qPrintable(L::t(u"אין לוח העתקה."_s, u"There is no clipboard."_s,
                                   u"Нет буфера обмена."_s) +
                              u'\n'),
                   stderr);
        return 1;
    }
    std::fputs(qPrintable(VaultText::copied() + u'\n'), stderr);
    return app.exec();
}
