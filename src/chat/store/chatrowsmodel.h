#pragma once

#include "chat/model/row.h"

#include <QAbstractListModel>

// The chat's rows (messages and the lanes under them) for the screen. Updates are applied
// as the smallest edits that turn the old rows into the new ones, so a streamed lane
// changes one row instead of resetting the list.
class ChatRowsModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Roles {
        IdRole = Qt::UserRole + 1,
        IsLaneRole,
        SeqRole,
        RoleRole, // "user" / "assistant"
        TextRole,
        CreatedAtRole,
        RunIdRole,
        LabelRole,
        ToolsRole,
        FinishedRole,
        OutcomeRole,
        SourceRole,
        TaskNumberRole,
    };
    Q_ENUM(Roles)

    using QAbstractListModel::QAbstractListModel;

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    const QList<Row> &rows() const { return m_rows; }
    void update(const QList<Row> &rows);
    // One row changed in place (a streamed lane): no diff over the whole list.
    void replace(int row, const Row &value);
    // One row in or out (a new lane under its turn).
    void insert(int row, const Row &value);
    void remove(int row);
    // New rows after the last one (a page of newer messages): no diff over the whole list.
    void append(const QList<Row> &rows);

private:
    QList<Row> m_rows;
};
