#pragma once

#include <QHash>
#include <QIdentityProxyModel>
#include <QtQml/qqmlregistration.h>

// The chat rows as the screen draws them: the store's rows plus the rendered HTML of each
// text, made once per text and kept while the row keeps that text.
class MessageRows : public QIdentityProxyModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("made by the chat controller")

public:
    enum Roles {
        HtmlRole = Qt::UserRole + 100,
        TimeRole,
        ToolsTextRole,
        ReplyTextRole, // the text of the message this one answers; "" when none
        VoicesRole,    // what can be listened to: VoiceSource maps
    };

    using QIdentityProxyModel::QIdentityProxyModel;

    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    // Rendered texts kept (one per row id).
    int cached() const { return int(m_html.size()); }

private:
    struct Rendered {
        QString text;
        QString html;
    };
    mutable QHash<QString, Rendered> m_html;
};
