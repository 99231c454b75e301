#include "clirun.h"

#include <QJsonDocument>
#include <QProcess>

QJsonObject CliRun::json() const
{
    return QJsonDocument::fromJson(out).object();
}

QProcessEnvironment cliEnvironment(const QString &home, const QUrl &server)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HALVENMARK_HOME"), home);
    env.insert(QStringLiteral("HALVENMARK_SECRETS"), QStringLiteral("file"));
    env.insert(QStringLiteral("HALVENMARK_SERVER"), server.toString());
    env.insert(QStringLiteral("LANG"), QStringLiteral("C.UTF-8"));
    return env;
}

CliRun runCli(const QString &program, const QStringList &args,
              const QProcessEnvironment &environment, const QByteArray &input, int timeoutMs)
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program, args);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(timeoutMs))
        process.kill();
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            process.readAllStandardOutput(), QString::fromUtf8(process.readAllStandardError())};
}
