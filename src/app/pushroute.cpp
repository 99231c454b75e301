#include "pushroute.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

struct Prefix {
    PushRoute::Kind kind;
    QString text;
};

const Prefix prefixes[] = {
    {PushRoute::Kind::Message, u"message:"_s},
    {PushRoute::Kind::Task, u"task:"_s},
    {PushRoute::Kind::Project, u"project:"_s},
};

// Items are the server's numbers: a positive whole number, as text.
std::optional<QString> itemOf(const QVariant &value)
{
    static const QRegularExpression number(u"^[1-9][0-9]{0,17}$"_s);
    QString text;
    if (value.typeId() == QMetaType::Double) {
        const double d = value.toDouble();
        if (d != double(qint64(d)))
            return std::nullopt;
        text = QString::number(qint64(d));
    } else {
        text = value.toString().trimmed();
    }
    if (text.startsWith(u'#'))
        text.remove(0, 1);
    if (!number.match(text).hasMatch())
        return std::nullopt;
    return text;
}

} // namespace

QString PushRoute::id() const
{
    for (const Prefix &prefix : prefixes) {
        if (prefix.kind == kind)
            return prefix.text + item;
    }
    return {};
}

std::optional<PushRoute> PushRoute::parse(const QString &id)
{
    for (const Prefix &prefix : prefixes) {
        if (!id.startsWith(prefix.text))
            continue;
        const std::optional<QString> rest = itemOf(id.mid(prefix.text.size()));
        if (!rest)
            return std::nullopt;
        return PushRoute{prefix.kind, *rest};
    }
    return std::nullopt;
}

std::optional<PushRoute> PushRoute::from(const QVariantMap &userInfo)
{
    if (userInfo.contains(u"route"_s))
        return parse(userInfo.value(u"route"_s).toString().trimmed());
    const std::pair<QString, Kind> fields[] = {
        {u"task_no"_s, Kind::Task},
        {u"project_id"_s, Kind::Project},
        {u"seq"_s, Kind::Message},
    };
    for (const auto &[key, kind] : fields) {
        if (!userInfo.contains(key))
            continue;
        const std::optional<QString> found = itemOf(userInfo.value(key));
        if (found)
            return PushRoute{kind, *found};
    }
    return std::nullopt;
}
