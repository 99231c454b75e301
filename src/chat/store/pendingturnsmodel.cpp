#include "chat/store/pendingturnsmodel.h"

#include <QVariantMap>

int PendingTurnsModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_turns.size());
}

QVariant PendingTurnsModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_turns.size())
        return {};
    const PendingTurn &p = m_turns.at(index.row());
    switch (role) {
    case IdRole:
        return p.id;
    case Qt::DisplayRole:
    case TextRole:
        return p.text;
    case FilesRole:
        return p.files;
    case ErrorRole:
        return p.error;
    case ReasonRole:
        return p.reason;
    case RefusedRole:
        return p.refused;
    case OnlineRole:
        return p.online;
    case ProcessingRole:
        return p.processing;
    case UploadsRole: {
        QVariantMap uploads;
        for (auto it = p.uploads.begin(); it != p.uploads.end(); ++it)
            uploads.insert(it.key(), it.value());
        return uploads;
    }
    default:
        return {};
    }
}

QHash<int, QByteArray> PendingTurnsModel::roleNames() const
{
    return {{IdRole, "id"},           {TextRole, "text"},       {FilesRole, "files"},
            {ErrorRole, "error"},     {ReasonRole, "reason"},   {RefusedRole, "refused"},
            {OnlineRole, "online"},   {ProcessingRole, "processing"},
            {UploadsRole, "uploads"}};
}

bool PendingTurnsModel::set(QList<PendingTurn> turns)
{
    if (turns == m_turns)
        return false;
    // Same turns in the same order change in place; anything else starts the list anew.
    const bool sameTurns = turns.size() == m_turns.size()
                           && std::equal(turns.begin(), turns.end(), m_turns.begin(),
                                         [](const PendingTurn &a, const PendingTurn &b) {
                                             return a.id == b.id;
                                         });
    if (!sameTurns) {
        beginResetModel();
        m_turns = std::move(turns);
        endResetModel();
        return true;
    }
    for (qsizetype i = 0; i < turns.size(); ++i) {
        if (turns.at(i) == m_turns.at(i))
            continue;
        m_turns[i] = turns.at(i);
        emit dataChanged(index(int(i)), index(int(i)));
    }
    return true;
}
