#pragma once

#include <QString>

// Paths of the pages whose answers hold texts the server writes in the user's language.
namespace LangQuery {

enum class Page { Plugins, Benchmarks, LearningLoops, LoopStore };

// The page's path with "?lang=" and the current language.
QString path(Page page);
// The same for a given code, appended as it stands.
QString path(Page page, const QString &code);

} // namespace LangQuery
