// The controller's handling of template content: the table's context menu, files dropped on the
// table, and the user's Templates folder.
#include "app/AppDelegate.h"

#include "app/Symbols.h"
#include "platform/Platform.h"
#include "templates/TemplateTableModel.h"

#include <QContextMenuEvent>
#include <QCursor>
#include <QDirIterator>
#include <QFileDialog>
#include <QFileInfo>
#include <QItemSelectionModel>
#include <QMenu>
#include <QShortcut>
#include <QTableView>

#include <sys/stat.h>

namespace brindlemark {

namespace {

// An import takes at most this many files: a Templates folder holding a whole document archive
// would otherwise fill the menus with thousands of entries.
constexpr int ImportedFilesLimit = 500;

QString quoted(const QString& text) {
    return u'"' + text + u'"';
}

QString titleOf(const Template& record) {
    return normalizedTemplate(record).value(TemplateKey::title).toString();
}

QString countedTemplates(qsizetype count) {
    return count == 1 ? QStringLiteral("1 template") : QStringLiteral("%1 templates").arg(count);
}

// The name an edited copy of the content gets: the name of the template's first file, so that
// the desktop opens it with the application for its suffix.
QString fileNameOf(const Template& record) {
    const Template normalized = normalizedTemplate(record);
    const QString suffix = withoutLeadingDot(normalized.value(TemplateKey::suffix).toString());
    QString name = normalized.value(TemplateKey::prefix).toString();
    if (!suffix.isEmpty())
        name += u'.' + suffix;
    name.replace(u'/', u'_').replace(QChar(0), u'_');
    // Never hidden: an editor's own files beside it are, and those are not the edit.
    while (name.startsWith(u'.'))
        name.remove(0, 1);
    return name.isEmpty() ? QStringLiteral("content") : name;
}

bool isExecutableFile(const QString& path) {
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 && (info.st_mode & S_IXUSR);
}

} // namespace

TemplateContent AppDelegate::templateContent() const {
    return TemplateContent(m_platform.templateContentFolder());
}

std::optional<QByteArray> AppDelegate::contentForNewFile(const Template& record) {
    const ContentRead content = templateContent().read(contentIdentifier(record));
    if (content.status == ContentRead::Unusable) {
        showError(QStringLiteral("The content of %1 %2: %3")
                      .arg(quoted(titleOf(record)), content.reason,
                           templateContent().pathFor(contentIdentifier(record))));
        return std::nullopt;
    }
    return content.bytes;
}

bool AppDelegate::hasContent(const Template& record) const {
    return templateContent().has(contentIdentifier(record));
}

// ---- the context menu --------------------------------------------------------------------

int AppDelegate::selectedTemplateRow() const {
    if (!m_templatesTableView || !m_templatesTableView->selectionModel())
        return -1;
    const QModelIndexList selected = m_templatesTableView->selectionModel()->selectedRows();
    const int row = selected.isEmpty() ? -1 : selected.first().row();
    return row >= 0 && row < m_templates.size() ? row : -1;
}

std::unique_ptr<QMenu> AppDelegate::templateContextMenu(int row) {
    auto menu = std::make_unique<QMenu>();
    const bool isRow = row >= 0 && row < m_templates.size();
    const bool withContent = isRow && hasContent(m_templates.at(row));
    const auto add = [&](const QString& title, bool enabled, auto action) {
        QAction* item = menu->addAction(title);
        item->setEnabled(enabled);
        connect(item, &QAction::triggered, this, action);
    };
    add(QStringLiteral("Choose Content File…"), isRow, [this, row] { chooseContentFile(row); });
    add(QStringLiteral("Edit Content"), isRow, [this, row] { editContent(row); });
    add(QStringLiteral("Remove Content"), withContent, [this, row] { removeContent(row); });
    menu->addSeparator();
    add(QStringLiteral("Add Templates Folder"), true, [this] { importTemplatesFolder(); });
    return menu;
}

void AppDelegate::showTemplateContextMenu(int row, const QPoint& globalPosition) {
    const std::unique_ptr<QMenu> menu = templateContextMenu(row);
    menu->exec(globalPosition);
}

void AppDelegate::watchTableForContextMenus() {
    m_templatesTableView->installEventFilter(this);
    m_templatesTableView->viewport()->installEventFilter(this);
    // The keyboard's menu key sends a context-menu event; Shift+F10 is its other key.
    auto* shiftF10 = new QShortcut(QKeySequence(QStringLiteral("Shift+F10")), m_templatesTableView,
                                   nullptr, nullptr, Qt::WidgetWithChildrenShortcut);
    connect(shiftF10, &QShortcut::activated, this, [this] {
        QContextMenuEvent event(QContextMenuEvent::Keyboard, QPoint(), QCursor::pos());
        eventFilter(m_templatesTableView, &event);
    });
    m_templateTableModel->setTitleDecoration([this](const Template& record, int role) {
        if (!hasContent(record))
            return QVariant();
        return role == Qt::DecorationRole ? QVariant(symbolImage(QStringLiteral("paperclip")))
                                          : QVariant(QStringLiteral("New files start with the "
                                                                    "content of this template."));
    });
    m_templateTableModel->setFileDropHandler(
        [this](const QStringList& paths) { addTemplatesFromFiles(paths); });
    // Files from the file manager are copied in, whatever it proposes; they join the end of the
    // list, so no place between rows is marked.
    m_templatesTableView->setDragDropMode(QAbstractItemView::DropOnly);
    m_templatesTableView->setDefaultDropAction(Qt::CopyAction);
    m_templatesTableView->setDropIndicatorShown(false);
}

bool AppDelegate::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::ContextMenu || !m_templatesTableView ||
        (watched != m_templatesTableView && watched != m_templatesTableView->viewport()))
        return QObject::eventFilter(watched, event);
    const auto* request = static_cast<QContextMenuEvent*>(event);
    QWidget* viewport = m_templatesTableView->viewport();
    int row = selectedTemplateRow();
    QPoint at = viewport->mapToGlobal(QPoint(0, 0));
    if (request->reason() == QContextMenuEvent::Mouse) {
        // The row under the pointer is the one the menu acts on, and shown selected.
        row = m_templatesTableView->rowAt(viewport->mapFromGlobal(request->globalPos()).y());
        if (row >= 0)
            m_templatesTableView->selectRow(row);
        at = request->globalPos();
    } else if (row >= 0) {
        at = viewport->mapToGlobal(
            m_templatesTableView->visualRect(m_templateTableModel->index(row, 1)).bottomLeft());
    }
    showTemplateContextMenu(row, at);
    return true;
}

// ---- content of one template -------------------------------------------------------------

void AppDelegate::chooseContentFile(int row) {
    if (row < 0 || row >= m_templates.size())
        return;
    // It opens in the Templates folder, where the user keeps such files, else at home.
    const QString chosen = QFileDialog::getOpenFileName(
        window(), QStringLiteral("Content for %1").arg(quoted(titleOf(m_templates.at(row)))),
        m_platform.userTemplatesFolder().value_or(QDir::homePath()));
    if (!chosen.isEmpty())
        setContentFromFile(row, chosen);
}

bool AppDelegate::setContentFromFile(int row, const QString& path) {
    if (row < 0 || row >= m_templates.size())
        return false;
    const QString title = titleOf(m_templates.at(row));
    const QString name = QFileInfo(path).fileName();
    ContentRead chosen = readContentFile(path);
    if (chosen.status == ContentRead::Absent)
        chosen.reason = QStringLiteral("is gone");
    if (chosen.status != ContentRead::Loaded) {
        setStatusText(QStringLiteral("Not used: %1 %2.").arg(quoted(name), chosen.reason));
        return false;
    }
    if (!templateContent().write(contentIdentifier(m_templates.at(row)), chosen.bytes)) {
        setStatusText(QStringLiteral("Could not keep the content of %1 in %2.")
                          .arg(quoted(title), m_platform.templateContentFolder()));
        return false;
    }
    m_templateTableModel->refresh();
    setStatusText(QStringLiteral("New %1 files start with %2.").arg(quoted(title), quoted(name)));
    return true;
}

void AppDelegate::editContent(int row) {
    if (row < 0 || row >= m_templates.size())
        return;
    const Template& record = m_templates.at(row);
    const QString copy =
        templateContent().editableCopy(contentIdentifier(record), fileNameOf(record));
    if (copy.isEmpty()) {
        setStatusText(QStringLiteral("The content of %1 cannot be edited: %2")
                          .arg(quoted(titleOf(record)),
                               templateContent().pathFor(contentIdentifier(record))));
        return;
    }
    m_platform.openInDefaultApplication(copy);
    m_templateTableModel->refresh();
    setStatusText(QStringLiteral("Editing the content of %1 in %2: save it there.")
                      .arg(quoted(titleOf(record)), copy));
}

void AppDelegate::removeContent(int row) {
    if (row < 0 || row >= m_templates.size())
        return;
    const QString title = titleOf(m_templates.at(row));
    if (!templateContent().remove(contentIdentifier(m_templates.at(row)))) {
        setStatusText(QStringLiteral("Could not remove the content of %1.").arg(quoted(title)));
        return;
    }
    m_templateTableModel->refresh();
    setStatusText(QStringLiteral("New %1 files start empty.").arg(quoted(title)));
}

void AppDelegate::removeContentOfRemovedTemplate(const Template& removed) {
    const QString id = contentIdentifier(removed);
    // Templates with the same id share their content: it stays while one of them does.
    for (const Template& record : m_templates)
        if (contentIdentifier(record) == id)
            return;
    templateContent().remove(id);
}

// ---- templates made from files -----------------------------------------------------------

QStringList AppDelegate::addTemplatesMadeFromFiles(const QStringList& paths, bool skipKnown,
                                                   qsizetype& added) {
    QStringList refused;
    added = 0;
    const TemplateContent content = templateContent();
    for (const QString& path : paths) {
        const QString name = QFileInfo(path).fileName();
        ContentRead file = readContentFile(path);
        if (file.status == ContentRead::Absent)
            file.reason = QStringLiteral("is gone");
        if (file.status != ContentRead::Loaded) {
            refused.append(QStringLiteral("%1 %2").arg(quoted(name), file.reason));
            continue;
        }
        Template record = templateForFile(name, isExecutableFile(path));
        if (skipKnown && isKnownTemplateFile(record, file.bytes))
            continue;
        if (!content.write(contentIdentifier(record), file.bytes)) {
            refused.append(QStringLiteral("%1 could not be kept").arg(quoted(name)));
            continue;
        }
        m_templates.append(record);
        ++added;
    }
    if (added > 0) {
        m_templateTableModel->reload();
        // The first new row is shown, selected: it may be below the rows in view.
        if (m_templatesTableView) {
            const int first = int(m_templates.size() - added);
            m_templatesTableView->selectRow(first);
            m_templatesTableView->scrollTo(m_templateTableModel->index(first, 0));
        }
        saveTemplates();
    }
    return refused;
}

bool AppDelegate::isKnownTemplateFile(const Template& made, const QByteArray& bytes) const {
    const Template wanted = normalizedTemplate(made);
    for (const Template& record : m_templates) {
        const Template existing = normalizedTemplate(record);
        if (existing.value(TemplateKey::prefix) == wanted.value(TemplateKey::prefix) &&
            existing.value(TemplateKey::suffix) == wanted.value(TemplateKey::suffix)) {
            const ContentRead held = templateContent().read(contentIdentifier(record));
            if (held.status == ContentRead::Loaded && held.bytes == bytes)
                return true;
        }
    }
    return false;
}

void AppDelegate::addTemplatesFromFiles(const QStringList& paths) {
    qsizetype added = 0;
    const QStringList refused = addTemplatesMadeFromFiles(paths, false, added);
    QString text = QStringLiteral("Added %1.").arg(countedTemplates(added));
    if (!refused.isEmpty())
        text += QStringLiteral(" Not added: %1.").arg(refused.join(QStringLiteral("; ")));
    setStatusText(text);
}

void AppDelegate::importTemplatesFolder(QObject*) {
    const std::optional<QString> folder = m_platform.userTemplatesFolder();
    if (!folder) {
        setStatusText(QStringLiteral("No Templates folder: there is nothing to add."));
        return;
    }
    // Every file below it, hidden ones and those in hidden folders left out, in the order of
    // their paths.
    QStringList files;
    QDirIterator found(*folder, QDir::Files, QDirIterator::Subdirectories);
    while (found.hasNext()) {
        const QString path = found.next();
        if (!(u'/' + QDir(*folder).relativeFilePath(path)).contains(QStringLiteral("/.")))
            files.append(path);
    }
    files.sort();
    const bool cut = files.size() > ImportedFilesLimit;
    files = files.mid(0, ImportedFilesLimit);
    qsizetype added = 0;
    const QStringList refused = addTemplatesMadeFromFiles(files, true, added);
    QString text = added == 0
                       ? QStringLiteral("No new templates in %1.").arg(*folder)
                       : QStringLiteral("Added %1 from %2.").arg(countedTemplates(added), *folder);
    if (cut)
        text += QStringLiteral(" Only its first %1 files were read.").arg(ImportedFilesLimit);
    if (!refused.isEmpty())
        text += QStringLiteral(" Not added: %1.").arg(refused.join(QStringLiteral("; ")));
    setStatusText(text);
}

} // namespace brindlemark
