#include "chat/store/chatrowsmodel.h"

#include <QSet>

using namespace Qt::StringLiterals;

namespace {

// Row ids name stored messages by seq; messages made here (seq 0) share that id, so the
// model tells them apart by their local id. Stored messages are keyed by the number alone.
struct Key
{
    qint64 seq = 0;
    QString name; // "local:<id>" or "lane:<run id>" when seq is 0

    bool operator==(const Key &) const = default;
};

size_t qHash(const Key &key, size_t seed = 0)
{
    return key.seq ? ::qHash(key.seq, seed) : ::qHash(key.name, seed);
}

Key keyOf(const Row &row)
{
    if (const ChatMessage *m = row.message()) {
        if (m->seq >= 1)
            return {m->seq, {}};
        return {0, u"local:"_s + m->localID};
    }
    return {0, u"lane:"_s + row.lane()->id};
}

} // namespace

int ChatRowsModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

QHash<int, QByteArray> ChatRowsModel::roleNames() const
{
    return {
        {IdRole, "rowId"},         {IsLaneRole, "isLane"},     {SeqRole, "seq"},
        {RoleRole, "role"},        {TextRole, "text"},         {CreatedAtRole, "createdAt"},
        {RunIdRole, "runId"},      {LabelRole, "label"},       {ToolsRole, "tools"},
        {FinishedRole, "finished"}, {OutcomeRole, "outcome"},  {SourceRole, "source"},
        {TaskNumberRole, "taskNumber"},
    };
}

QVariant ChatRowsModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid))
        return {};
    const Row &row = m_rows.at(index.row());
    if (role == IdRole)
        return row.id();
    if (role == IsLaneRole)
        return !row.isMessage();
    if (const ChatMessage *m = row.message()) {
        switch (role) {
        case Qt::DisplayRole:
        case TextRole: return m->text;
        case SeqRole: return m->seq;
        case RoleRole: return m->role;
        case CreatedAtRole: return m->createdAt;
        case RunIdRole: return m->runID.value_or(QString());
        case SourceRole: return m->source.value_or(QString());
        case TaskNumberRole: {
            const auto n = m->taskNumber();
            return n ? QVariant(*n) : QVariant();
        }
        default: return {};
        }
    }
    const Lane *lane = row.lane();
    switch (role) {
    case Qt::DisplayRole:
    case TextRole: return lane->text;
    case LabelRole: return lane->heading();
    case RunIdRole: return lane->id;
    case SeqRole: return lane->after;
    case FinishedRole: return lane->finished;
    case OutcomeRole: return lane->outcome.value_or(QString());
    case ToolsRole: {
        QVariantList tools;
        for (const Activity &a : lane->tools)
            tools.append(QVariantMap{{u"title"_s, a.title},
                                     {u"detail"_s, a.usefulDetail()},
                                     {u"status"_s, a.status}});
        return tools;
    }
    default: return {};
    }
}

void ChatRowsModel::update(const QList<Row> &next)
{
    if (m_rows.isEmpty()) {
        // The first fill (opening a stored conversation): no diff to make.
        append(next);
        return;
    }
    QSet<Key> wanted;
    wanted.reserve(next.size());
    for (const Row &r : next)
        wanted.insert(keyOf(r));
    QSet<Key> present;
    present.reserve(m_rows.size());
    for (const Row &r : m_rows)
        present.insert(keyOf(r));

    qsizetype i = 0;
    while (i < next.size()) {
        const Row &want = next.at(i);
        if (i < m_rows.size() && keyOf(m_rows.at(i)) == keyOf(want)) {
            if (!(m_rows.at(i) == want)) {
                m_rows[i] = want;
                emit dataChanged(index(int(i)), index(int(i)));
            }
            ++i;
            continue;
        }
        if (i < m_rows.size() && !wanted.contains(keyOf(m_rows.at(i)))) {
            beginRemoveRows({}, int(i), int(i));
            present.remove(keyOf(m_rows.at(i)));
            m_rows.removeAt(i);
            endRemoveRows();
            continue;
        }
        if (!present.contains(keyOf(want))) {
            // New rows come in runs (a first load, a page of history): one insertion per run.
            qsizetype end = i + 1;
            while (end < next.size() && !present.contains(keyOf(next.at(end)))
                   && (i >= m_rows.size() || keyOf(m_rows.at(i)) != keyOf(next.at(end))))
                ++end;
            beginInsertRows({}, int(i), int(end - 1));
            m_rows.insert(i, end - i, want);
            for (qsizetype k = i; k < end; ++k) {
                m_rows[k] = next.at(k);
                present.insert(keyOf(next.at(k)));
            }
            endInsertRows();
            i = end;
            continue;
        }
        // The row exists further down: move it up here (rare: a reordered message).
        qsizetype from = i + 1;
        while (keyOf(m_rows.at(from)) != keyOf(want))
            ++from;
        beginMoveRows({}, int(from), int(from), {}, int(i));
        m_rows.move(from, i);
        endMoveRows();
    }
    if (m_rows.size() > next.size()) {
        beginRemoveRows({}, int(next.size()), int(m_rows.size() - 1));
        m_rows.remove(next.size(), m_rows.size() - next.size());
        endRemoveRows();
    }
}

void ChatRowsModel::append(const QList<Row> &rows)
{
    if (rows.isEmpty())
        return;
    beginInsertRows({}, int(m_rows.size()), int(m_rows.size() + rows.size() - 1));
    m_rows.append(rows);
    endInsertRows();
}

void ChatRowsModel::insert(int row, const Row &value)
{
    beginInsertRows({}, row, row);
    m_rows.insert(row, value);
    endInsertRows();
}

void ChatRowsModel::remove(int row)
{
    beginRemoveRows({}, row, row);
    m_rows.removeAt(row);
    endRemoveRows();
}

void ChatRowsModel::replace(int row, const Row &value)
{
    if (row < 0 || row >= m_rows.size())
        return;
    m_rows[row] = value;
    emit dataChanged(index(row), index(row));
}
