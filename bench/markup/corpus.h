#pragma once

#include <QByteArray>
#include <QList>

// Agent-style replies for the benchmark, made up from a fixed seed: Hebrew, Russian and English
// mixed in lines and messages, bold, tags, code and <pre> blocks, paths, links, entities,
// escapes and tables. About totalBytes of UTF-8 in all.
namespace Corpus {

QList<QByteArray> replies(qsizetype totalBytes, unsigned seed = 7);

} // namespace Corpus
