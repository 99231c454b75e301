#pragma once

#include <QString>
#include <QStringList>

// Text choice: every user-visible text is written inline in its three languages
// (Hebrew first) and chosen at the moment of use by the stored language.
namespace L {

// "he", "en" or "ru", read afresh from the "rb.lang" setting; the device language when unset.
QString current();
// The code stored under "rb.lang", empty when none is.
QString stored();

// The device's language among ours, from the system's preferred UI languages.
QString deviceDefault();
// The same rule over a given list (first entry decides; "iw" is old Hebrew).
QString languageOf(const QStringList &preferred);

// For this process only, whatever is stored ("" lifts it): a terminal run in one language
// (--lang) must not be switched by the profile it loads. False for a code that is not ours.
bool pin(const QString &code);

// Stores code when it is one of ours; any other value stores the device language.
// Live Language objects hear of it.
void set(const QString &code);

QString t(const QString &he, const QString &en, const QString &ru);
// Russian comes from Ru::words, or the English when it has no entry.
QString t(const QString &he, const QString &en);

} // namespace L
