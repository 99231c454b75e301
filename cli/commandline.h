#pragma once

#include "invocation.h"

#include <QString>
#include <QStringList>

#include <optional>

// The client's command line, checked against the command table before anything runs.
namespace CommandLine {

struct Parsed {
    std::optional<Invocation> run; // a command to run; otherwise say out/err and end with status
    int status = 0;
    QString out;
    QString err;
};

// arguments as QCoreApplication gives them, the program first. Pins --lang and --bidi for the
// run, so that everything said afterwards (help included) follows them.
Parsed parse(const QStringList &arguments);

// "halvenmark-cli 0.1.0 (build N)".
QString version();

} // namespace CommandLine
