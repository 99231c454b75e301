#include "chat/store/composerattachmentsmodel.h"

int ComposerAttachmentsModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_items.size());
}

QVariant ComposerAttachmentsModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_items.size())
        return {};
    const ComposerAttachment &a = m_items.at(index.row());
    switch (role) {
    case IdRole:
        return a.id;
    case Qt::DisplayRole:
    case NameRole:
        return a.name;
    case MimeRole:
        return a.mime;
    case FailedRole:
        return a.failed;
    default:
        return {};
    }
}

QHash<int, QByteArray> ComposerAttachmentsModel::roleNames() const
{
    return {{IdRole, "id"}, {NameRole, "name"}, {MimeRole, "mime"}, {FailedRole, "failed"}};
}

void ComposerAttachmentsModel::append(const ComposerAttachment &item)
{
    beginInsertRows({}, int(m_items.size()), int(m_items.size()));
    m_items.append(item);
    endInsertRows();
}

void ComposerAttachmentsModel::remove(int row)
{
    if (row < 0 || row >= m_items.size())
        return;
    beginRemoveRows({}, row, row);
    m_items.removeAt(row);
    endRemoveRows();
}

void ComposerAttachmentsModel::set(const QList<ComposerAttachment> &items)
{
    if (items == m_items)
        return;
    beginResetModel();
    m_items = items;
    endResetModel();
}
