#pragma once

#include "invocation.h"
#include "platform/ports.h"

#include <QCoroTask>
#include <QString>

#include <functional>
#include <optional>

// The commands that need the machine's media stack (FFmpeg, QtMultimedia), its clipboard or its
// owner check (QtGui, PAM). Only halvenmark-cli-devices links them: halvenmark-cli hands such a
// command over to that program, so that every other command starts without mapping the hundred
// libraries behind them.
namespace DeviceCommands {

using Command = std::function<QCoro::Task<int>(Invocation, const Ports &)>;

struct Table {
    Command call;
    Command vault;
    Command play, record, transcribe; // chat …
    Command sendVoice;                // chat send --voice
    // The copy of a video to attach in its place; nothing when it cannot be sent.
    std::function<QCoro::Task<std::optional<QString>>(QString path, QString folder)> shrinkVideo;
};

// Set once by the program that links them, before anything runs.
void install(const Table *table);
// Null in halvenmark-cli.
const Table *installed();

// This run needs the devices program: a call, the vault, a voice or a video.
bool needed(const Invocation &in);
bool isVideo(const QString &path);

// Replaces this process by halvenmark-cli-devices with the same arguments; returns only when it
// cannot be started, with the exit status after saying why.
int handOver(char **argv);

} // namespace DeviceCommands
