#pragma once

#include <QAbstractListModel>
#include <QVariant>
#include <QtQml/qqmlregistration.h>

#include <memory>
#include <vector>

// Any JSON page as a tree the user opens level by level: one row per shown node, with its
// depth, so that a plain ListView can draw it. Objects and arrays start closed below the
// first level.
class JsonTreeModel : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    // The JSON as variants (maps, lists, scalars).
    Q_PROPERTY(QVariant json READ json WRITE setJson NOTIFY jsonChanged)

public:
    enum Roles {
        KeyRole = Qt::UserRole + 1,
        ValueRole, // a scalar as text, or "{n}" / "[n]" for a container
        DepthRole,
        ExpandableRole,
        ExpandedRole,
    };

    explicit JsonTreeModel(QObject *parent = nullptr);
    ~JsonTreeModel() override;

    QVariant json() const { return m_json; }
    void setJson(const QVariant &json);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    // Opens a closed container row or closes an open one.
    Q_INVOKABLE void toggle(int row);

signals:
    void jsonChanged();

private:
    struct Node {
        QString key;
        QVariant value;
        int depth = 0;
        bool container = false;
        bool expanded = false;
    };
    static std::vector<Node> childrenOf(const QVariant &value, int depth);
    int subtreeEnd(int row) const;

    QVariant m_json;
    std::vector<Node> m_rows;
};
