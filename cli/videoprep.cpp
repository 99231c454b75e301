#include "videoprep.h"

#include "console.h"

#include "chat/media/videocompress.h"
#include "text/l.h"

#include <QDir>
#include <QFileInfo>

#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace VideoPrep {

QCoro::Task<std::optional<QString>> shrink(QString path, QString folder)
{
    const QString name = QFileInfo(path).completeBaseName();
    const QString target = QDir(folder).filePath(name + u".mp4"_s);
    const bool bar = isatty(STDERR_FILENO) == 1;
    const QString label = L::t(u"מקטין את %1"_s, u"Shrinking %1"_s, u"Сжатие %1"_s).arg(QFileInfo(path).fileName());
    VideoCompress::Progress progress = [bar, label](double fraction) {
        if (!bar)
            return;
        const int percent = int(fraction * 100);
        const int filled = percent * 30 / 100;
        std::fprintf(stderr, "\r%s [%s%s] %3d%%", qPrintable(label), qPrintable(QString(filled, u'#')),
                     qPrintable(QString(30 - filled, u' ')), percent);
        std::fflush(stderr);
    };
    const VideoLimits limits;
    const VideoCompress::Result result =
        co_await VideoCompress::shrinkAsync(path, target, progress, limits);
    if (bar)
        std::fputc('\n', stderr);
    if (!result.ok()) {
        Console::err(VideoCompress::text(result.failure) + u" ("_s + path + u")"_s);
        co_return std::nullopt;
    }
    co_return target;
}

} // namespace VideoPrep
