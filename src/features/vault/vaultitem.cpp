#include "vaultitem.h"

#include "net/jsonrecord.h"

#include <QJsonArray>

using namespace Qt::StringLiterals;

namespace {

const QList<std::pair<VaultKind, QString>> &kindNames()
{
    static const QList<std::pair<VaultKind, QString>> names = {
        {VaultKind::ApiKey, u"api_key"_s}, {VaultKind::Passkey, u"passkey"_s},
        {VaultKind::Login, u"login"_s},    {VaultKind::Note, u"note"_s},
        {VaultKind::Card, u"card"_s},      {VaultKind::Signature, u"signature"_s},
    };
    return names;
}

// "updated_at" is a time; the server may send it as text or as seconds.
QString timeText(const JsonRecord &record, const QString &key)
{
    const QJsonValue value = record.object().value(key);
    if (value.isDouble())
        return QString::number(value.toDouble(), 'f', 0);
    return record.looseString(key);
}

} // namespace

namespace VaultKinds {

QString raw(VaultKind kind)
{
    for (const auto &[k, name] : kindNames()) {
        if (k == kind)
            return name;
    }
    return {};
}

std::optional<VaultKind> from(const QString &raw)
{
    for (const auto &[k, name] : kindNames()) {
        if (name == raw)
            return k;
    }
    return std::nullopt;
}

const QList<VaultKind> &all()
{
    static const QList<VaultKind> kinds = [] {
        QList<VaultKind> out;
        for (const auto &entry : kindNames())
            out << entry.first;
        return out;
    }();
    return kinds;
}

} // namespace VaultKinds

VaultItem VaultItem::fromJson(const QJsonValue &value, const QString &path)
{
    const JsonRecord r(value, path);
    VaultItem item;
    item.id = r.string(u"id"_s);
    item.kind = r.string(u"kind"_s);
    item.title = r.string(u"title"_s);
    item.username = r.string(u"username"_s);
    item.url = r.string(u"url"_s);
    item.client = r.string(u"client"_s);
    item.service = r.string(u"service"_s);
    item.site = r.string(u"site"_s);
    item.location = r.string(u"location"_s);
    item.cardholder = r.string(u"cardholder"_s);
    item.last4 = r.string(u"last4"_s);
    item.has = r.object().value(u"has"_s);
    item.updatedAt = timeText(r, u"updated_at"_s);
    item.primary = r.boolean(u"primary"_s);
    item.secrets = r.object().value(u"secrets"_s);
    return item;
}

QJsonObject VaultItem::toJson() const
{
    QJsonObject out{{u"id"_s, id}, {u"kind"_s, kind}, {u"primary"_s, primary}};
    const std::pair<const char16_t *, const QString *> texts[] = {
        {u"title", &title},          {u"username", &username},     {u"url", &url},
        {u"client", &client},        {u"service", &service},       {u"site", &site},
        {u"location", &location},    {u"cardholder", &cardholder}, {u"last4", &last4},
        {u"updated_at", &updatedAt},
    };
    for (const auto &[key, text] : texts) {
        if (!text->isEmpty())
            out.insert(QString::fromUtf16(key), *text);
    }
    if (!has.isUndefined() && !has.isNull())
        out.insert(u"has"_s, has);
    if (!secrets.isUndefined() && !secrets.isNull())
        out.insert(u"secrets"_s, secrets);
    return out;
}

QList<VaultItem> vaultListBody(const QJsonValue &body)
{
    const JsonRecord r(body);
    QList<VaultItem> items;
    const QJsonArray list = r.array(u"items"_s);
    for (qsizetype i = 0; i < list.size(); ++i)
        items << VaultItem::fromJson(list.at(i), u"items.%1"_s.arg(i));
    return items;
}

VaultOneBody VaultOneBody::from(const QJsonValue &body)
{
    const JsonRecord r(body);
    VaultOneBody one;
    if (r.has(u"item"_s))
        one.item = VaultItem::fromJson(r.object().value(u"item"_s), u"item"_s);
    one.value = r.string(u"value"_s);
    return one;
}
