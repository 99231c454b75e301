#pragma once

#include <QCoroTask>
#include <QString>

#include <optional>

// `chat send --file` with a video: the video is shrunk before it goes into the outbox, with
// its progress on stderr. The shrunk copy lives in `folder` until the command ends.
namespace VideoPrep {

// The file to attach in its place; nothing when the video cannot be sent (said on stderr).
QCoro::Task<std::optional<QString>> shrink(QString path, QString folder);

} // namespace VideoPrep
