#include "templates/TemplateTableModel.h"

#include <QMimeData>
#include <QUrl>

namespace brindlemark {

TemplateTableModel::TemplateTableModel(TemplateList& templates, std::function<void()> save,
                                       QObject* parent)
    : QAbstractTableModel(parent), m_templates(templates), m_save(std::move(save)) {}

void TemplateTableModel::appendColumn(const Column& column) {
    beginInsertColumns({}, int(m_columns.size()), int(m_columns.size()));
    m_columns.append(column);
    endInsertColumns();
}

void TemplateTableModel::reload() {
    beginResetModel();
    endResetModel();
}

void TemplateTableModel::refresh() {
    if (!m_templates.isEmpty() && !m_columns.isEmpty())
        emit dataChanged(index(0, 0),
                         index(int(m_templates.size()) - 1, int(m_columns.size()) - 1));
}

int TemplateTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_templates.size());
}

int TemplateTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_columns.size());
}

QVariant TemplateTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= m_templates.size() || index.column() >= m_columns.size())
        return {};
    const Column& column = m_columns[index.column()];
    const QJsonValue stored = m_templates.at(index.row()).value(column.identifier);
    if (column.checkbox)
        return role == Qt::CheckStateRole
                   ? QVariant(boolFromValue(stored, false) ? Qt::Checked : Qt::Unchecked)
                   : QVariant();
    if ((role == Qt::DecorationRole || role == Qt::ToolTipRole) && m_titleDecoration &&
        column.identifier == TemplateKey::title)
        return m_titleDecoration(m_templates.at(index.row()), role);
    if (role != Qt::DisplayRole && role != Qt::EditRole)
        return {};
    return stored.isString()      ? stored.toString()
           : stored.isUndefined() ? QString("")
                                  : cleanedString(stored);
}

bool TemplateTableModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (!index.isValid() || index.column() >= m_columns.size())
        return false;
    const Column& column = m_columns[index.column()];
    if (column.checkbox ? role != Qt::CheckStateRole : role != Qt::EditRole)
        return false;
    // A check state arrives as a number: 2 (checked) is true, 0 false.
    const QVariant delivered = column.checkbox ? QVariant(value.toInt() == Qt::Checked) : value;
    setObjectValue(delivered, column.identifier, index.row());
    emit dataChanged(index, index);
    return true;
}

void TemplateTableModel::setObjectValue(const QVariant& value, const QString& columnIdentifier,
                                        int row) {
    if (row < 0 || row >= m_templates.size())
        return;
    Template& record = m_templates[row];
    const QJsonValue json = QJsonValue::fromVariant(value);
    if (columnIdentifier == TemplateKey::enabled || columnIdentifier == TemplateKey::executable)
        record.insert(columnIdentifier, boolFromValue(json, false));
    else if (columnIdentifier == TemplateKey::title || columnIdentifier == TemplateKey::prefix ||
             columnIdentifier == TemplateKey::suffix)
        record.insert(columnIdentifier, cleanedString(json));
    m_save();
}

Qt::ItemFlags TemplateTableModel::flags(const QModelIndex& index) const {
    // Files are dropped anywhere on the table: on a row or on the space below the rows.
    const Qt::ItemFlags drop = m_fileDrop ? Qt::ItemIsDropEnabled : Qt::NoItemFlags;
    if (!index.isValid())
        return drop;
    if (index.column() >= m_columns.size())
        return Qt::NoItemFlags;
    const Qt::ItemFlags base = Qt::ItemIsEnabled | Qt::ItemIsSelectable | drop;
    return m_columns[index.column()].checkbox ? base | Qt::ItemIsUserCheckable
                                              : base | Qt::ItemIsEditable;
}

QStringList TemplateTableModel::mimeTypes() const {
    return {QStringLiteral("text/uri-list")};
}

Qt::DropActions TemplateTableModel::supportedDropActions() const {
    // Only a copy: a drop taken as a move would have the file manager delete its file.
    return Qt::CopyAction;
}

namespace {

QStringList localFiles(const QMimeData* data) {
    QStringList paths;
    if (data)
        for (const QUrl& url : data->urls())
            if (url.isLocalFile())
                paths.append(url.toLocalFile());
    return paths;
}

} // namespace

bool TemplateTableModel::canDropMimeData(const QMimeData* data, Qt::DropAction, int, int,
                                         const QModelIndex&) const {
    return m_fileDrop && !localFiles(data).isEmpty();
}

bool TemplateTableModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row,
                                      int column, const QModelIndex& parent) {
    if (action != Qt::CopyAction || !canDropMimeData(data, action, row, column, parent))
        return false;
    m_fileDrop(localFiles(data));
    return true;
}

QVariant TemplateTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole && section >= 0 &&
        section < m_columns.size())
        return m_columns[section].title;
    return {};
}

} // namespace brindlemark
