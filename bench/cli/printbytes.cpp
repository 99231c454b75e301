// The floor for `chat log` end to end: a Qt program that starts as the client does and prints
// a file's bytes.

#include <QCoreApplication>
#include <QFile>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QFile file(QCoreApplication::arguments().value(1));
    if (!file.open(QIODevice::ReadOnly))
        return 1;
    const QByteArray bytes = file.readAll();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    return 0;
}
