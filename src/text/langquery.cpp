#include "langquery.h"

#include "l.h"

namespace LangQuery {

QString path(Page page)
{
    return path(page, L::current());
}

QString path(Page page, const QString &code)
{
    QString base;
    switch (page) {
    case Page::Plugins:
        base = QStringLiteral("webapi/plugins");
        break;
    case Page::Benchmarks:
        base = QStringLiteral("webapi/plugins/benchmarks");
        break;
    case Page::LearningLoops:
        base = QStringLiteral("webapi/learning-loops");
        break;
    case Page::LoopStore:
        base = QStringLiteral("webapi/learning-loops/store");
        break;
    }
    return base + QStringLiteral("?lang=") + code;
}

} // namespace LangQuery
