#include "templates/TemplateSync.h"

#include "templates/AtomicWrite.h"
#include "templates/TemplateStore.h"

#include <QFile>
#include <QHash>

#include <cerrno>
#include <condition_variable>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace brindlemark {

StoredCopy storedCopyInFile(const QString& path) {
    StoredCopy copy;
    struct stat info {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0 && errno == ENOENT)
        return copy;
    QFile file(path);
    copy.state = StoredCopy::State::Unreadable;
    if (!file.open(QIODevice::ReadOnly))
        return copy;
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return copy;
    copy.state = StoredCopy::State::Read;
    copy.text = QString::fromUtf8(bytes);
    copy.modified = file.fileTime(QFileDevice::FileModificationTime).toMSecsSinceEpoch();
    return copy;
}

ChosenText chosenStoredText(const QList<StoredCopy>& copies) {
    using State = StoredCopy::State;
    if (copies.isEmpty() || copies.constFirst().state == State::Missing)
        return {};
    const StoredCopy& defaults = copies.constFirst();
    // A copy counts when it reads as a list and, beside readable user defaults, when it was
    // written after them; a time of 0 is unknown and never counts as later.
    const StoredCopy* newest = nullptr;
    for (qsizetype i = 1; i < copies.size(); ++i) {
        const StoredCopy& copy = copies[i];
        if (copy.state != State::Read || !templatesFromJSONString(copy.text))
            continue;
        if (defaults.state == State::Read &&
            (defaults.modified == 0 || copy.modified <= defaults.modified ||
             copy.text == defaults.text))
            continue;
        if (!newest || copy.modified > newest->modified)
            newest = &copy;
    }
    if (newest)
        return {newest->text, false};
    if (defaults.state == State::Unreadable)
        return {QString(), false};
    return {defaults.text, true};
}

std::optional<TemplateList> storedList(const QString& text) {
    const std::optional<QJsonArray> parsed = templatesFromJSONString(text);
    if (!parsed)
        return std::nullopt;
    TemplateList list;
    for (const QJsonValue& element : *parsed)
        if (element.isObject())
            list.append(normalizedTemplate(element.toObject()));
    return list;
}

namespace {

// Each row's key: its id and the how-many-th row with that id it is.
QList<QString> rowKeys(const TemplateList& list) {
    QHash<QString, int> seen;
    QList<QString> keys;
    for (const Template& record : list) {
        const QString id = record.value(TemplateKey::id).toString();
        keys.append(id + QChar(0) + QString::number(seen[id]++));
    }
    return keys;
}

QHash<QString, qsizetype> positions(const QList<QString>& keys) {
    QHash<QString, qsizetype> at;
    for (qsizetype i = 0; i < keys.size(); ++i)
        at.insert(keys[i], i);
    return at;
}

} // namespace

TemplateList mergedTemplates(const TemplateList& base, const TemplateList& ours,
                             const TemplateList& theirs) {
    const QList<QString> ourKeys = rowKeys(ours), theirKeys = rowKeys(theirs);
    const QHash<QString, qsizetype> inBase = positions(rowKeys(base)), inOurs = positions(ourKeys),
                                    inTheirs = positions(theirKeys);
    TemplateList merged;
    for (qsizetype i = 0; i < theirs.size(); ++i) {
        const QString& key = theirKeys[i];
        const auto before = inBase.constFind(key), mine = inOurs.constFind(key);
        if (before != inBase.constEnd() && mine == inOurs.constEnd())
            continue; // removed here
        Template row = theirs[i];
        if (before != inBase.constEnd()) {
            // Our records keep what was typed (an untrimmed suffix, an empty title): compare
            // their stored form, keep what was typed.
            const Template& ourRecord = ours[*mine];
            const Template ourStored = normalizedTemplate(ourRecord), &baseRecord = base[*before];
            for (auto member = ourStored.begin(); member != ourStored.end(); ++member)
                if (member.value() != baseRecord.value(member.key()))
                    row.insert(member.key(), ourRecord.value(member.key()));
        }
        merged.append(row);
    }
    for (qsizetype i = 0; i < ours.size(); ++i)
        if (!inBase.contains(ourKeys[i]) && !inTheirs.contains(ourKeys[i]))
            merged.append(ours[i]); // added here
    return merged;
}

StoreLock::StoreLock(const QString& folder, int patienceMilliseconds) {
    const QByteArray path = QFile::encodeName(folder);
    if (!makeFolders(path.toStdString()))
        return;
    m_fd = ::open(path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_fd < 0 || ::flock(m_fd, LOCK_EX | LOCK_NB) == 0)
        return;
    // Waiting in the kernel's queue, rather than trying again now and then: an instance saving
    // edit after edit would otherwise take the lock back every time before the other looked.
    // The wait is on a thread of its own so that it can be given up; a thread given up lets go
    // of the lock as soon as it gets it.
    struct Waiting {
        std::mutex mutex;
        std::condition_variable answered;
        bool done = false, givenUp = false;
    };
    const auto waiting = std::make_shared<Waiting>();
    try {
        std::thread([waiting, fd = m_fd] {
            ::flock(fd, LOCK_EX); // failing, it leaves the save to go on without the lock
            const std::lock_guard<std::mutex> guard(waiting->mutex);
            if (waiting->givenUp) {
                ::close(fd);
                return;
            }
            waiting->done = true;
            waiting->answered.notify_one();
        }).detach();
    } catch (const std::system_error&) {
        return; // no thread to be had: on without the lock
    }
    std::unique_lock<std::mutex> guard(waiting->mutex);
    if (!waiting->answered.wait_for(guard, std::chrono::milliseconds(patienceMilliseconds),
                                    [&] { return waiting->done; })) {
        waiting->givenUp = true;
        m_busy = true;
        m_fd = -1; // the thread closes it
    }
}

StoreLock::~StoreLock() {
    if (m_fd >= 0)
        ::close(m_fd); // and with it the lock
}

} // namespace brindlemark
