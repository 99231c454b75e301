#pragma once

#include "chat/store/composerattachment.h"

#include <QAbstractListModel>

// The composer's attachments for the screen: one row a file.
class ComposerAttachmentsModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Roles {
        IdRole = Qt::UserRole + 1,
        NameRole,
        MimeRole,
        FailedRole,
    };
    Q_ENUM(Roles)

    using QAbstractListModel::QAbstractListModel;

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    const QList<ComposerAttachment> &items() const { return m_items; }
    void append(const ComposerAttachment &item);
    void remove(int row);
    void set(const QList<ComposerAttachment> &items);

private:
    QList<ComposerAttachment> m_items;
};
