#include "voice/calltypes.h"

#include <QVariantList>

namespace CallTypes {

QVariantMap Line::toMap() const
{
    return {
        {QStringLiteral("id"), id}, {QStringLiteral("role"), role}, {QStringLiteral("text"), text}};
}

QVariantMap Step::toMap() const
{
    return {{QStringLiteral("id"), id},
            {QStringLiteral("title"), title},
            {QStringLiteral("detail"), detail},
            {QStringLiteral("jobID"), jobID},
            {QStringLiteral("taskID"), taskID},
            {QStringLiteral("state"), state},
            {QStringLiteral("changedAt"), changedAt}};
}

QVariantMap FastAnswer::toMap() const
{
    QVariantList list;
    for (const Source &s : sources) {
        list.append(
            QVariantMap{{QStringLiteral("title"), s.title}, {QStringLiteral("url"), s.url}});
    }
    return {{QStringLiteral("id"), id},
            {QStringLiteral("query"), query},
            {QStringLiteral("model"), model},
            {QStringLiteral("effort"), effort},
            {QStringLiteral("latencyMS"), latencyMS},
            {QStringLiteral("state"), state},
            {QStringLiteral("error"), error},
            {QStringLiteral("stage"), stage},
            {QStringLiteral("queries"), queries},
            {QStringLiteral("backup"), backup},
            {QStringLiteral("answer"), answer},
            {QStringLiteral("handedToAgent"), handedToAgent},
            {QStringLiteral("sources"), list}};
}

QVariantMap Event::toMap() const
{
    return {{QStringLiteral("id"), id},
            {QStringLiteral("time"), time},
            {QStringLiteral("tag"), tag},
            {QStringLiteral("text"), text}};
}

} // namespace CallTypes
