#include "messagerows.h"

#include "chat/store/chatrowsmodel.h"
#include "chat/markup/htmlwriter.h"
#include "voicesource.h"

#include <QDateTime>

using namespace Qt::StringLiterals;

QVariant MessageRows::data(const QModelIndex &index, int role) const
{
    if (role == HtmlRole) {
        const QString id = QIdentityProxyModel::data(index, ChatRowsModel::IdRole).toString();
        const QString text = QIdentityProxyModel::data(index, ChatRowsModel::TextRole).toString();
        auto found = m_html.find(id);
        if (found == m_html.end() || found->text != text)
            found = m_html.insert(id, Rendered{text, Markup::HtmlWriter::render(text)});
        return found->html;
    }
    if (role == TimeRole) {
        const double at = QIdentityProxyModel::data(index, ChatRowsModel::CreatedAtRole).toDouble();
        if (at <= 0)
            return QString();
        return QDateTime::fromMSecsSinceEpoch(qint64(at * 1000)).toString(u"HH:mm"_s);
    }
    if (role == ToolsTextRole) {
        QStringList lines;
        const QVariantList tools =
            QIdentityProxyModel::data(index, ChatRowsModel::ToolsRole).toList();
        for (const QVariant &tool : tools) {
            const QVariantMap step = tool.toMap();
            const QString detail = step.value(u"detail"_s).toString();
            lines.append(detail.isEmpty() ? step.value(u"title"_s).toString()
                                          : step.value(u"title"_s).toString() + u": "_s + detail);
        }
        return lines.join(u'\n');
    }
    if (role == ReplyTextRole) {
        const auto *rows = qobject_cast<const ChatRowsModel *>(sourceModel());
        const QModelIndex at = mapToSource(index);
        if (!rows || !at.isValid() || at.row() >= rows->rows().size())
            return QString();
        const ChatMessage *message = rows->rows().at(at.row()).message();
        return message ? message->replyToText.value_or(QString()) : QString();
    }
    if (role == VoicesRole) {
        const auto *rows = qobject_cast<const ChatRowsModel *>(sourceModel());
        const QModelIndex at = mapToSource(index);
        QVariantList out;
        if (!rows || !at.isValid() || at.row() >= rows->rows().size())
            return out;
        if (const ChatMessage *message = rows->rows().at(at.row()).message()) {
            for (const VoiceSource &source : VoiceSource::of(*message))
                out.append(source.toMap());
        }
        return out;
    }
    return QIdentityProxyModel::data(index, role);
}

QHash<int, QByteArray> MessageRows::roleNames() const
{
    QHash<int, QByteArray> names = QIdentityProxyModel::roleNames();
    names.insert(HtmlRole, "html");
    names.insert(TimeRole, "time");
    names.insert(ToolsTextRole, "toolsText");
    names.insert(ReplyTextRole, "replyText");
    names.insert(VoicesRole, "voices");
    return names;
}
