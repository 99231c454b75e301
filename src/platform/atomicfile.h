#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace AtomicFile {

// Replaces the file in one step: readers see the old bytes or the new, never a mix. The file
// is owner-only (0600), and so is the parent folder it creates. Returns false (and leaves the
// old file) on any failure, a full disk included.
bool write(const QString &path, const QByteArray &bytes);

// The whole file, or nothing when it is missing or unreadable.
std::optional<QByteArray> read(const QString &path);

} // namespace AtomicFile
