#pragma once

#include <QString>

// The vault screen's texts, in the current language.
namespace VaultText {
QString locked();
QString lockedLine();
QString unlock();
// Shown by the system's prompt when the owner is asked to prove who they are.
QString reason();
QString all();
QString search();
QString empty();
QString emptyLine();
QString noMatch();
QString copied();
QString encrypted();
QString primary();
QString makePrimary();
QString primaryLine();
QString signHere();
QString redraw();
QString clear();
// The name of a kind ("api_key" → "API key"); an unknown kind as it was sent.
QString kind(const QString &raw);
} // namespace VaultText
