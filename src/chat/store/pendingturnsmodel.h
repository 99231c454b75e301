#pragma once

#include "chat/model/pendingturn.h"

#include <QAbstractListModel>

// The turns still in the outbox, as the screen draws them after the last row, each with the
// progress of its uploads.
class PendingTurnsModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Roles {
        IdRole = Qt::UserRole + 1,
        TextRole,
        FilesRole,
        ErrorRole,
        ReasonRole,
        RefusedRole,
        OnlineRole,
        ProcessingRole,
        UploadsRole, // file id → progress text of its running upload
    };
    Q_ENUM(Roles)

    using QAbstractListModel::QAbstractListModel;

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    const QList<PendingTurn> &turns() const { return m_turns; }
    // False when nothing changed.
    bool set(QList<PendingTurn> turns);

private:
    QList<PendingTurn> m_turns;
};
