// The render command on its own, as the terminal client runs it.

#include "cli/render.h"

#include <QCoreApplication>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Halvenmark"));
    QCoreApplication::setApplicationName(QStringLiteral("halvenmark"));
    return RenderCommand::run(argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString());
}
