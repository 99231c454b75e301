#pragma once

#include "features/vault/vaultitem.h"

#include <QList>
#include <QString>
#include <QVariantList>

// What the vault screen asks for per kind, and which items a search shows.
namespace VaultFields {

enum class Input { Line, Secret, Text, Signature };

struct Field {
    QString key; // the save body's key; the server keeps the ones it does not list as secrets
    Input input = Input::Line;
};

// The fields of a kind's form, title first; an unknown kind gets a title and a secret.
QList<Field> forKind(const QString &kind);
// The same as maps for the form: {"key", "input": "line" | "secret" | "text" | "signature"}.
QVariantList forKindAsMaps(const QString &kind);
// The label of a field, in the current language.
QString label(const QString &key);

// An item shows when its kind is `kind` ("" for all) and every word of `query` is in its
// title, user name, site, address, service, client or kind's name, ignoring case.
bool matches(const VaultItem &item, const QString &query, const QString &kind);

} // namespace VaultFields
