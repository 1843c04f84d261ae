#include "templates/TemplateTableModel.h"

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
    if (!index.isValid() || index.column() >= m_columns.size())
        return Qt::NoItemFlags;
    const Qt::ItemFlags base = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    return m_columns[index.column()].checkbox ? base | Qt::ItemIsUserCheckable
                                              : base | Qt::ItemIsEditable;
}

QVariant TemplateTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole && section >= 0 &&
        section < m_columns.size())
        return m_columns[section].title;
    return {};
}

} // namespace brindlemark
