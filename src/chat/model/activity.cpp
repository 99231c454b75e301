#include "chat/model/activity.h"

#include "net/jsonrecord.h"

using namespace Qt::StringLiterals;

namespace {

bool isWordChar(QChar c)
{
    return c.isLetterOrNumber();
}

// For comparing texts: collapsed, without decoration around the words, case-folded.
QString comparable(const QString &text)
{
    const QString s = text.simplified();
    qsizetype begin = 0;
    qsizetype end = s.size();
    while (begin < end && !isWordChar(s[begin]))
        ++begin;
    while (end > begin && !isWordChar(s[end - 1]))
        --end;
    return s.mid(begin, end - begin).toCaseFolded();
}

} // namespace

Activity Activity::fromJson(const QJsonValue &value)
{
    const JsonRecord r(value);
    return Activity{
        r.string(u"id"_s),
        r.string(u"title"_s),
        r.string(u"detail"_s),
        r.string(u"status"_s),
    };
}

QJsonObject Activity::toJson() const
{
    return QJsonObject{
        {u"id"_s, id},
        {u"title"_s, title},
        {u"detail"_s, detail},
        {u"status"_s, status},
    };
}

bool Activity::isOpen(const QString &status)
{
    return status.isEmpty() || status == u"started" || status == u"running"
           || status == u"in_progress";
}

QString Activity::usefulDetail() const
{
    const QString key = comparable(detail);
    if (key.isEmpty())
        return {};
    if (key == comparable(title) || key == comparable(status))
        return {};
    return detail.simplified();
}
