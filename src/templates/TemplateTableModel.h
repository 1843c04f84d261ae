#pragma once

#include "templates/Template.h"

#include <QAbstractTableModel>

#include <functional>

namespace brindlemark {

// The template table: one row per record of the controller's list, one column per member the
// columns name. Cells show the records as stored; every edit stores the trimmed text (not
// normalised) or the flag and saves at once through the callback.
class TemplateTableModel final : public QAbstractTableModel {
    Q_OBJECT
public:
    struct Column {
        QString identifier; // the record member it shows
        QString title;
        int minimumWidth = 0;
        bool checkbox = false;
    };

    TemplateTableModel(TemplateList& templates, std::function<void()> save,
                       QObject* parent = nullptr);

    void appendColumn(const Column& column);
    const QList<Column>& columns() const { return m_columns; }
    // Tells the views that rows were added or removed (the "reload" after + and -).
    void reload();
    // Tells the views that every cell may show something else, with the rows as they were.
    void refresh();

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

    // What a title cell shows beside its text, by role (an icon for Qt::DecorationRole, a text
    // for Qt::ToolTipRole): for the templates with content.
    void setTitleDecoration(std::function<QVariant(const Template&, int role)> decoration) {
        m_titleDecoration = std::move(decoration);
    }
    // Files dropped on the table (their paths) go here; without it, nothing can be dropped.
    void setFileDropHandler(std::function<void(const QStringList&)> handler) {
        m_fileDrop = std::move(handler);
    }
    QStringList mimeTypes() const override;
    Qt::DropActions supportedDropActions() const override;
    bool canDropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                         const QModelIndex& parent) const override;
    bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                      const QModelIndex& parent) override;

    // An edit of one cell: ignored for a row that is no longer in the list (a stale view);
    // otherwise a flag or the trimmed text is stored, and the list is saved.
    void setObjectValue(const QVariant& value, const QString& columnIdentifier, int row);

private:
    TemplateList& m_templates;
    std::function<void()> m_save;
    QList<Column> m_columns;
    std::function<QVariant(const Template&, int)> m_titleDecoration;
    std::function<void(const QStringList&)> m_fileDrop;
};

} // namespace brindlemark
