#include "QXLog.h"

#include "PropertyList.h"
#include "QXConsole.h"
#include "QXDate.h"
#include "QXLocalPaths.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QSaveFile>
#include <QThread>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <unordered_set>

#include <sys/utsname.h>
#include <unistd.h>

namespace {
constexpr quint64 kRestartAfterBytes = 499999;
constexpr qsizetype kSyncFlushLimit = 99;
constexpr int kGenerations = 5;
} // namespace

// The write queue is one dedicated thread fed through a mutex-guarded deque: one write at a
// time, in the order of the calls. The file handle is guarded by its own mutex, because
// createNewLog runs on the caller's thread while the writer may open the file on demand.
struct QXLog::Impl {
    struct Operation {
        quint64 id;
        QString message;
    };

    // Queue state, guarded by queueMutex.
    std::mutex queueMutex;
    std::condition_variable workAvailable;
    std::condition_variable workDone;
    std::deque<Operation> queue;
    std::unordered_set<quint64> unfinished; // queued or running operation ids
    quint64 nextId = 1;
    quint64 runningId = 0;
    std::thread writer;
    std::thread::id writerId;

    // The current file, guarded by fileMutex.
    std::mutex fileMutex;
    std::unique_ptr<QFile> file;

    QMutex nameMutex;
    QString storedName;

    std::atomic<quint64> bytesWritten{0};
    std::atomic<quint64> bytesInQueue{0};
    std::atomic<bool> loggingDisabled{false};
};

struct QXLogAccess {
    static QXLog::Impl& impl() { return *QXLog::sharedController().d; }
    static void run(QXLog::Impl& d);
    static void enqueue(const QStringList& messages);
    // Writes the batch's lines; returns how many it dealt with. Fewer than all
    // when the log must restart after the last of them (restart is set) or a
    // write failed (the rest are tried again).
    static qsizetype write(QXLog::Impl& d, const std::deque<QXLog::Impl::Operation>& batch,
                           bool* restart);
    static void restartLog();
    static bool readDisablePreference();
    static QString header();
    static QString executableName();
};

namespace {
void flushOnExit() {
    QXLog::finishWriting();
}
} // namespace

QXLog::QXLog() : d(new Impl) {}

QXLog& QXLog::sharedController() {
    // A function-local static is created once under the compiler's guard and never freed.
    static QXLog* const instance = [] {
        auto* log = new QXLog;
        Impl* impl = log->d;
        impl->writer = std::thread([impl] { QXLogAccess::run(*impl); });
        impl->writerId = impl->writer.get_id();
        // The writer runs for the whole process; lines still queued at exit are written first.
        std::atexit(flushOnExit);
        return log;
    }();
    return *instance;
}

void QXLogAccess::run(QXLog::Impl& d) {
    for (;;) {
        // Everything waiting goes out together, in one write: a commit logs a
        // line per file, and a write and a wake-up per line cost more than the
        // rename they describe. The lines still keep their order.
        std::deque<QXLog::Impl::Operation> batch;
        {
            std::unique_lock lock(d.queueMutex);
            d.workAvailable.wait(lock, [&d] { return !d.queue.empty(); });
            batch.swap(d.queue);
            d.runningId = batch.back().id;
        }
        bool restart = false;
        const auto done = static_cast<std::size_t>(write(d, batch, &restart));
        {
            std::lock_guard lock(d.queueMutex);
            for (std::size_t i = 0; i < done; ++i)
                d.unfinished.erase(batch[i].id);
            // Lines not dealt with go back, ahead of any that came meanwhile.
            for (std::size_t i = batch.size(); i > done; --i)
                d.queue.push_front(std::move(batch[i - 1]));
            d.runningId = 0;
        }
        if (restart) restartLog();
        d.workDone.notify_all();
    }
}

void QXLogAccess::enqueue(const QStringList& messages) {
    QXLog::Impl& d = impl();
    bool wasEmpty = false;
    {
        std::lock_guard lock(d.queueMutex);
        wasEmpty = d.queue.empty();
        // Only the restart after 500KB queues from the writer itself; its marker goes first so
        // that it opens the new file, ahead of lines that were already waiting.
        const bool front = std::this_thread::get_id() == d.writerId;
        auto at = front ? d.queue.begin() : d.queue.end();
        for (const QString& message : messages) {
            QXLog::Impl::Operation op{d.nextId++, message};
            d.unfinished.insert(op.id);
            at = std::next(d.queue.insert(at, std::move(op)));
        }
    }
    // Only an empty queue can have the writer asleep; waking it for every line
    // of a busy stretch would cost a system call per line.
    if (wasEmpty) d.workAvailable.notify_one();
}

void QXLog::finishWriting() {
    Impl& d = *sharedController().d;
    // On the writer thread the running operation is the caller itself: waiting for it would never
    // end, and what is queued behind it runs right after it anyway. So nothing to wait for.
    if (std::this_thread::get_id() == d.writerId) return;
    std::unique_lock lock(d.queueMutex);
    if (d.unfinished.empty()) return;
    // Everything unfinished now is done once the last of it is: the back of the queue, or the
    // running operation when the queue is empty. Later lines do not extend the wait.
    const quint64 last = d.queue.empty() ? d.runningId : d.queue.back().id;
    d.workDone.wait(lock, [&d, last] { return !d.unfinished.contains(last); });
}

void QXLog::appendLog(const QString& message) {
    if (message.isNull()) return;
    appendLogs({message});
}

void QXLog::appendLogs(const QStringList& messages) {
    Impl& d = *sharedController().d;
    QStringList lines;
    lines.reserve(messages.size());
    bool wait = false;
    quint64 length = 0;
    for (const QString& message : messages) {
        if (message.isNull()) continue;
        lines.append(message.trimmed());
        const auto size = static_cast<quint64>(lines.last().size());
        length += size;
        // Short messages logged while little is pending are on disk on return.
        wait = wait || (size >= 1 && size <= static_cast<quint64>(kSyncFlushLimit) &&
                        d.bytesInQueue.load() + length <= static_cast<quint64>(kSyncFlushLimit));
    }
    if (lines.isEmpty()) return;
    d.bytesInQueue.fetch_add(length);
    QXLogAccess::enqueue(lines);
    if (wait) finishWriting();
}

void QXLog::appendLogAndPrint(const QString& message) {
    if (message.isNull()) return;
    const QString trimmed = message.trimmed();
    appendLog(trimmed);
    QXConsole::print(trimmed);
}

qsizetype QXLogAccess::write(QXLog::Impl& d, const std::deque<QXLog::Impl::Operation>& batch,
                             bool* restart) {
    const auto count = static_cast<qsizetype>(batch.size());
    qsizetype used = count;
    const auto dropFromQueue = [&d, &batch](qsizetype n) {
        quint64 length = 0;
        for (qsizetype i = 0; i < n; ++i)
            length += static_cast<quint64>(batch[static_cast<std::size_t>(i)].message.size());
        d.bytesInQueue.fetch_sub(length);
    };
    if (d.loggingDisabled.load()) return count;
    try {
        std::lock_guard lock(d.fileMutex);
        if (!d.file) {
            auto file = std::make_unique<QFile>(QXLog::currentLogPath());
            // An existing file only: before createNewLog there may be nothing to append to.
            if (!file->open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::ExistingOnly |
                            QIODevice::Unbuffered)) {
                for (const auto& op : batch) {
                    QXConsole::print(QStringLiteral("Unable to log the following information: %1")
                                         .arg(op.message));
                    QXConsole::print(QStringLiteral("Unable to open log for output"));
                }
                dropFromQueue(count);
                return count;
            }
            d.file = std::move(file);
        }
        // Now in UTC: asking for local time makes Qt re-read the time zone on every line;
        // the description turns it into local time once the C library's way.
        const QString stamp =
            QXDate::description(QDateTime::currentDateTimeUtc()) + QStringLiteral(" - ");
        // Up to the line that takes the file past 500KB: the log restarts after it.
        QByteArray lines;
        quint64 total = d.bytesWritten.load();
        for (used = 0; used < count && total <= kRestartAfterBytes; ++used) {
            const QByteArray line =
                (stamp + batch[static_cast<std::size_t>(used)].message + u'\n').toUtf8();
            lines += line;
            total += static_cast<quint64>(line.size());
        }
        const qint64 written = d.file->write(lines);
        if (written != lines.size()) {
            const QString reason = d.file->errorString();
            // Drop the handle: the next line tries the path again.
            d.file.reset();
            throw std::runtime_error(reason.toStdString());
        }
        d.bytesWritten.fetch_add(static_cast<quint64>(written));
        dropFromQueue(used);
        *restart = total > kRestartAfterBytes;
        return used;
    } catch (const std::exception& e) {
        if (!d.loggingDisabled.load())
            QXConsole::print(
                QStringLiteral("Exception writing to log: %1").arg(QString::fromUtf8(e.what())));
    } catch (...) {
        if (!d.loggingDisabled.load())
            QXConsole::print(QStringLiteral("Exception writing to log: %1")
                                 .arg(QStringLiteral("unknown exception")));
    }
    return used; // lost lines stay counted as pending, as their bytes never went out
}

void QXLogAccess::restartLog() {
    QXLog::createNewLog(QXLog::sharedController().appName());
    QXLog::appendLog(QStringLiteral("Log truncated at 500KB"));
}

bool QXLogAccess::readDisablePreference() {
    const QString path = QXLocalPaths::vendorPreferencesPath();
    if (!QFileInfo::exists(path)) return false;
    const QVariant root = PropertyList::readFile(path);
    if (root.typeId() != QMetaType::QVariantMap) return false;
    const QVariant value = root.toMap().value(QStringLiteral("disable-logging"));
    switch (value.typeId()) {
    case QMetaType::QString:
        return value.toString() == QLatin1String("1");
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::LongLong:
        return value.toLongLong() == 1;
    case QMetaType::ULongLong:
        return value.toULongLong() == 1;
    case QMetaType::Double:
        return value.toDouble() == 1.0;
    default:
        return false;
    }
}

QString QXLogAccess::executableName() {
    QString name = QCoreApplication::applicationName();
    if (name.isEmpty()) {
        const QString exe = QCoreApplication::instance()
                                ? QCoreApplication::applicationFilePath()
                                : QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget();
        name = QFileInfo(exe).completeBaseName();
    }
    return name;
}

QString QXLogAccess::header() {
    QString text =
        QStringLiteral("Log started: %1\n").arg(QXDate::description(QDateTime::currentDateTime()));
    QString version = QCoreApplication::applicationVersion();
#ifdef SEQMATE_VERSION
    if (version.isEmpty()) version = QStringLiteral(SEQMATE_VERSION);
#endif
    if (!version.isEmpty()) text += QStringLiteral("Version: %1\n").arg(version);
    if (QCoreApplication::instance())
        text += QStringLiteral("Path: %1\n").arg(QCoreApplication::applicationFilePath());

    utsname system{};
    const QString release =
        uname(&system) == 0 ? QString::fromLocal8Bit(system.release) : QString();
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long pageSize = sysconf(_SC_PAGESIZE);
    double memory = pages > 0 && pageSize > 0
                        ? static_cast<double>(pages) * static_cast<double>(pageSize)
                        : 0.0;
    for (int i = 0; i < 3; ++i)
        memory *= 1.0 / 1024.0;
    text += QStringLiteral("System: Linux %1, %2 CPU(s), %3 GB RAM\n")
                .arg(release)
                .arg(QThread::idealThreadCount())
                .arg(memory, 0, 'f', 2);
    text += sizeof(void*) == 8 ? QStringLiteral("Running in 64-bit mode\n")
                               : QStringLiteral("Running in 32-bit mode\n");
    return text;
}

void QXLog::createNewLog(const QString& name) {
    finishWriting();
    Impl& d = *sharedController().d;
    std::lock_guard lock(d.fileMutex);
    d.file.reset();

    if (d.loggingDisabled.load() || QXLogAccess::readDisablePreference()) {
        QXConsole::print(QStringLiteral("Logging is disabled"));
        d.loggingDisabled.store(true);
        return;
    }

    if (!name.isEmpty()) {
        QMutexLocker nameLock(&d.nameMutex);
        // A given name counts only when neither a stored nor an executable name exists.
        if (d.storedName.isEmpty() && QXLogAccess::executableName().isEmpty()) d.storedName = name;
    }
    d.bytesWritten.store(0);

    const QString folder = logFolder();
    const QString current = currentLogPath();
    const QString base = sharedController().appName();
    if (!QFileInfo::exists(folder) && !QDir().mkpath(folder)) {
        QXConsole::print(QStringLiteral("Unable to create folder %1.").arg(folder));
        return;
    }

    if (QFileInfo::exists(current)) {
        const auto generation = [&](int n) -> QString {
            return folder + QStringLiteral("/%1.%2.log").arg(base).arg(n);
        };
        if (QFileInfo::exists(generation(kGenerations))) QFile::remove(generation(kGenerations));
        for (int n = kGenerations - 1; n >= 1; --n) {
            const QString from = generation(n);
            if (!QFileInfo::exists(from)) continue;
            const QString to = generation(n + 1);
            if (!QFile::rename(from, to)) {
                QXConsole::print(QStringLiteral("Unable to move file %1 to %2").arg(from, to));
                return;
            }
        }
    }

    QSaveFile save(current);
    const QByteArray header = QXLogAccess::header().toUtf8();
    if (!save.open(QIODevice::WriteOnly) || save.write(header) != header.size() || !save.commit()) {
        QXConsole::print(
            QStringLiteral("Unable to create log file %1 - %2").arg(current, save.errorString()));
        return;
    }

    auto file = std::make_unique<QFile>(current);
    if (file->open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::ExistingOnly |
                   QIODevice::Unbuffered))
        d.file = std::move(file);
}

QString QXLog::appName() const {
    {
        QMutexLocker lock(&d->nameMutex);
        if (!d->storedName.isEmpty()) return d->storedName;
    }
    const QString name = QXLogAccess::executableName();
    return name.isEmpty() ? QStringLiteral("Seqmate") : name;
}

void QXLog::setAppName(const QString& name) {
    QMutexLocker lock(&d->nameMutex);
    d->storedName = name;
}

QString QXLog::logFolder() {
    return QXLocalPaths::libraryDirectory(true) + QStringLiteral("/Logs/Corvane");
}

QString QXLog::currentLogPath() {
    const QString file = QStringLiteral("/%1.1.log").arg(sharedController().appName());
    // A privileged run writes the machine-wide log; the folder checks above stay per user.
    if (QXLocalPaths::isSuperUser())
        return QXLocalPaths::libraryDirectory(false) + QStringLiteral("/Logs/Corvane") + file;
    return logFolder() + file;
}

bool QXLog::loggingDisabled() const {
    return d->loggingDisabled.load();
}
quint64 QXLog::bytesWritten() const {
    return d->bytesWritten.load();
}
quint64 QXLog::bytesInQueue() const {
    return d->bytesInQueue.load();
}

void QXLog::resetForTesting() {
    finishWriting();
    Impl& d = *sharedController().d;
    std::lock_guard lock(d.fileMutex);
    d.file.reset();
    d.loggingDisabled.store(false);
    d.bytesWritten.store(0);
    d.bytesInQueue.store(0);
}
