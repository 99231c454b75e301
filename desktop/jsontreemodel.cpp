#include "jsontreemodel.h"

using namespace Qt::StringLiterals;

namespace {

bool isContainer(const QVariant &value)
{
    const int type = value.typeId();
    return type == QMetaType::QVariantMap || type == QMetaType::QVariantList ||
           type == QMetaType::QVariantHash || type == QMetaType::QStringList;
}

QString scalarText(const QVariant &value)
{
    if (!value.isValid() || value.isNull())
        return u"null"_s;
    if (value.typeId() == QMetaType::Bool)
        return value.toBool() ? u"true"_s : u"false"_s;
    if (value.typeId() == QMetaType::QString)
        return u"\""_s + value.toString() + u"\""_s;
    return value.toString();
}

} // namespace

JsonTreeModel::JsonTreeModel(QObject *parent)
    : QAbstractListModel(parent)
{}

JsonTreeModel::~JsonTreeModel() = default;

void JsonTreeModel::setJson(const QVariant &json)
{
    if (json == m_json)
        return;
    beginResetModel();
    m_json = json;
    m_rows = isContainer(json) ? childrenOf(json, 0) : std::vector<Node>{};
    if (json.isValid() && !json.isNull() && !isContainer(json))
        m_rows.push_back(Node{QString(), json, 0, false, false});
    endResetModel();
    emit jsonChanged();
}

std::vector<JsonTreeModel::Node> JsonTreeModel::childrenOf(const QVariant &value, int depth)
{
    std::vector<Node> out;
    auto add = [&](const QString &key, const QVariant &child) {
        out.push_back(Node{key, child, depth, isContainer(child), false});
    };
    if (value.typeId() == QMetaType::QVariantMap) {
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            add(it.key(), it.value());
    } else if (value.typeId() == QMetaType::QVariantHash) {
        const QVariantMap map = QVariantMap(value.toMap());
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            add(it.key(), it.value());
    } else {
        const QVariantList list = value.toList();
        for (qsizetype i = 0; i < list.size(); ++i)
            add(QString::number(i), list.at(i));
    }
    return out;
}

int JsonTreeModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

QVariant JsonTreeModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Node &node = m_rows[size_t(index.row())];
    switch (role) {
    case KeyRole:
        return node.key;
    case Qt::DisplayRole:
    case ValueRole:
        if (!node.container)
            return scalarText(node.value);
        if (node.value.typeId() == QMetaType::QVariantList ||
            node.value.typeId() == QMetaType::QStringList)
            return u"[%1]"_s.arg(node.value.toList().size());
        return u"{%1}"_s.arg(node.value.toMap().size());
    case DepthRole:
        return node.depth;
    case ExpandableRole:
        return node.container && !childrenOf(node.value, 0).empty();
    case ExpandedRole:
        return node.expanded;
    default:
        return {};
    }
}

QHash<int, QByteArray> JsonTreeModel::roleNames() const
{
    return {{KeyRole, "key"},
            {ValueRole, "value"},
            {DepthRole, "depth"},
            {ExpandableRole, "expandable"},
            {ExpandedRole, "expanded"}};
}

int JsonTreeModel::subtreeEnd(int row) const
{
    const int depth = m_rows[size_t(row)].depth;
    int end = row + 1;
    while (end < int(m_rows.size()) && m_rows[size_t(end)].depth > depth)
        ++end;
    return end;
}

void JsonTreeModel::toggle(int row)
{
    if (row < 0 || row >= int(m_rows.size()) || !m_rows[size_t(row)].container)
        return;
    Node &node = m_rows[size_t(row)];
    if (node.expanded) {
        const int end = subtreeEnd(row);
        node.expanded = false;
        if (end > row + 1) {
            beginRemoveRows({}, row + 1, end - 1);
            m_rows.erase(m_rows.begin() + row + 1, m_rows.begin() + end);
            endRemoveRows();
        }
    } else {
        std::vector<Node> children = childrenOf(node.value, node.depth + 1);
        node.expanded = true;
        if (!children.empty()) {
            beginInsertRows({}, row + 1, row + int(children.size()));
            m_rows.insert(m_rows.begin() + row + 1, children.begin(), children.end());
            endInsertRows();
        }
    }
    const QModelIndex changed = index(row);
    emit dataChanged(changed, changed, {ExpandedRole});
}
