// The template list on disk: loading it, saving each change on top of what is stored by then,
// following the saves of other instances of the same user, and writing again what a full disk or
// an unreadable place kept out.
#include "app/AppDelegate.h"

#include "platform/Platform.h"
#include "templates/TemplateStore.h"
#include "templates/TemplateSync.h"
#include "templates/TemplateTableModel.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QTimer>

namespace brindlemark {

namespace {

// A save that could not reach every place, or had to wait for other instances' saves, is tried
// again this often, by itself.
constexpr int SaveRetryMilliseconds = 3000;
// The files of one save change one after another: the list is read again once they settle.
constexpr int StoreSettleMilliseconds = 150;
// How long a save already kept waiting by other instances' saves waits for the lock again.
constexpr int PendingSaveLockPatienceMilliseconds = 100;

} // namespace

void AppDelegate::loadTemplates() {
    const StoreLock lock(m_platform.templateBackupFolder());
    // What killed saves left; a save of another instance that is writing right now holds its
    // temporary files locked, and they stay.
    m_platform.removeInterruptedSaves();
    const ChosenText stored = chosenStoredText(m_platform.storedTemplatesCopies(TemplatesJSONKey));
    LoadedTemplates loaded = loadedTemplates(stored.text);
    // The start-up save that follows replaces the stored text: keep what could not be read.
    if (loaded.storedTextUnreadable)
        keepUnreadableTemplatesText(stored.text, m_platform.templateBackupFolder());
    m_templates = std::move(loaded.templates);
    m_storedText = stored.text;
    watchTemplateStore();
}

void AppDelegate::saveTemplates() {
    // Failures to persist are not reported: every place that can be written is, and the rest
    // are written as soon as they can be.
    synchronizeTemplates(true);
    rebuildNewFileStatusMenu();
    setStatusText(QStringLiteral("Templates saved. Finder menu updates on the next right-click."));
}

void AppDelegate::synchronizeTemplates(bool changedHere) {
    // A save already kept waiting by another instance's saves does not keep the window waiting
    // again: it is tried again soon.
    const StoreLock lock(m_platform.templateBackupFolder(),
                         m_savePending ? PendingSaveLockPatienceMilliseconds
                                       : StoreLockPatienceMilliseconds);
    if (lock.isBusy()) {
        m_savePending = m_savePending || changedHere;
        retrySoonWhilePending();
        return;
    }
    const QString stored =
        chosenStoredText(m_platform.storedTemplatesCopies(TemplatesJSONKey)).text;
    bool write = changedHere || m_savePending;
    if (stored != m_storedText) {
        // Someone else saved since this instance last read or wrote the list.
        if (const std::optional<TemplateList> theirs = storedList(stored)) {
            showTemplates(mergedTemplates(storedList(m_storedText).value_or(TemplateList()),
                                          m_templates, *theirs));
        } else {
            // Gone, or text that is no list: kept aside when there is any, and this list put back.
            if (!stored.isEmpty())
                keepUnreadableTemplatesText(stored, m_platform.templateBackupFolder());
            write = true;
        }
        m_storedText = stored;
    }
    if (!write)
        return;
    const QString text = templatesJSONText(m_templates);
    const Platform::StoreOutcome outcome =
        m_platform.storeTemplatesJSONText(TemplatesJSONKey, text);
    if (outcome.written)
        m_platform.templatesChanged(extensionBundlePath());
    m_savePending = !outcome.complete;
    // Until every place holds the list, what is stored is whatever the places now add up to.
    m_storedText = outcome.complete
                       ? text
                       : chosenStoredText(m_platform.storedTemplatesCopies(TemplatesJSONKey)).text;
    retrySoonWhilePending();
}

void AppDelegate::retrySoonWhilePending() {
    if (!m_saveRetry) {
        m_saveRetry = std::make_unique<QTimer>();
        m_saveRetry->setInterval(SaveRetryMilliseconds);
        connect(m_saveRetry.get(), &QTimer::timeout, this, [this] { synchronizeTemplates(false); });
    }
    if (m_savePending)
        m_saveRetry->start();
    else
        m_saveRetry->stop();
}

void AppDelegate::showTemplates(const TemplateList& templates) {
    if (templates == m_templates)
        return;
    // With the same rows the table keeps its selection and an edit in progress.
    const bool sameRows = templates.size() == m_templates.size();
    m_templates = templates;
    if (sameRows)
        m_templateTableModel->refresh();
    else
        m_templateTableModel->reload();
    rebuildNewFileStatusMenu();
}

void AppDelegate::watchTemplateStore() {
    if (!m_storeWatcher) {
        m_storeWatcher = std::make_unique<QFileSystemWatcher>();
        m_storeSettle = std::make_unique<QTimer>();
        m_storeSettle->setSingleShot(true);
        m_storeSettle->setInterval(StoreSettleMilliseconds);
        connect(m_storeWatcher.get(), &QFileSystemWatcher::directoryChanged, m_storeSettle.get(),
                qOverload<>(&QTimer::start));
        connect(m_storeSettle.get(), &QTimer::timeout, this, [this] {
            watchTemplateStore();
            synchronizeTemplates(false);
        });
        // The last chance for a save the disk did not take yet.
        if (QCoreApplication* application = QCoreApplication::instance())
            connect(application, &QCoreApplication::aboutToQuit, this, [this] {
                if (m_savePending)
                    synchronizeTemplates(false);
            });
    }
    // The folders of the Templates.json files, which are Brindlemark's own and written by every
    // save: a save replaces the files, which would end a watch on a file, never one on its folder.
    const QStringList watched = m_storeWatcher->directories();
    for (const QString& path : m_platform.templateConfigFilePaths()) {
        const QString folder = QFileInfo(path).absolutePath();
        if (!watched.contains(folder) && QFileInfo(folder).isDir())
            m_storeWatcher->addPath(folder);
    }
}

} // namespace brindlemark
