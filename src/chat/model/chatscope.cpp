#include "chat/model/chatscope.h"

using namespace Qt::StringLiterals;

ChatScope ChatScope::main()
{
    return ChatScope();
}

ChatScope ChatScope::project(int id)
{
    ChatScope scope;
    scope.m_project = id;
    return scope;
}

QString ChatScope::storageKey(const QString &base) const
{
    if (isMain())
        return base;
    return base + u"-project-"_s + QString::number(*m_project);
}

QString ChatScope::path(const QString &base) const
{
    if (isMain())
        return base;
    const QString n = QString::number(*m_project);
    return base + (base.contains(u'?') ? u'&' : u'?') + u"conversation_id=project:"_s + n
           + u"&project_id="_s + n;
}

QJsonObject ChatScope::fields() const
{
    if (isMain())
        return {};
    return QJsonObject{
        {u"conversation_id"_s, conversationID()},
        {u"project_id"_s, *m_project},
    };
}

QString ChatScope::conversationID() const
{
    if (isMain())
        return u"main"_s;
    return u"project:"_s + QString::number(*m_project);
}

std::optional<ChatScope> ChatScope::fromConversationID(const QString &id)
{
    if (id == u"main")
        return main();
    static constexpr QStringView prefix = u"project:";
    if (!id.startsWith(prefix))
        return std::nullopt;
    const QStringView digits = QStringView(id).mid(prefix.size());
    if (digits.isEmpty())
        return std::nullopt;
    for (QChar c : digits) {
        if (c < u'0' || c > u'9')
            return std::nullopt;
    }
    bool ok = false;
    const int n = digits.toInt(&ok);
    if (!ok)
        return std::nullopt;
    return project(n);
}
