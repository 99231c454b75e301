#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace AtomicFile {

// Kept for callers that still say it: every file is written owner-only (0600) now.
enum class Access { Default, OwnerOnly };

// Replaces the file in one step: readers see the old bytes or the new, never a mix.
// Creates the parent folder (owner-only). Returns false (and leaves the old file) on any
// failure, a full disk included.
bool write(const QString &path, const QByteArray &bytes, Access access = Access::Default);

// The whole file, or nothing when it is missing or unreadable.
std::optional<QByteArray> read(const QString &path);

} // namespace AtomicFile
