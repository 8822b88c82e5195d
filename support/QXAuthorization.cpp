#include "QXAuthorization.h"

#include "QXConsole.h"
#include "QXDate.h"
#include "QXFileManager.h"
#include "QXLocalPaths.h"
#include "QXLog.h"
#include "QXTask.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <cerrno>
#include <chrono>
#include <sys/stat.h>
#include <thread>

namespace {

const QString mvTool = QStringLiteral("/bin/mv");
const QString cpTool = QStringLiteral("/bin/cp");
const QString rmTool = QStringLiteral("/bin/rm");
const QString mkdirTool = QStringLiteral("/bin/mkdir");

// Something is there, a dangling link included.
bool existsAt(const QString& path) {
    if (path.isEmpty()) return false;
    struct stat st;
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0;
}

QString findTool(const QString& name) {
    for (const QString& dir : {QStringLiteral("/usr/bin"), QStringLiteral("/bin")}) {
        const QString candidate = dir + u'/' + name;
        if (QXTask::isExecutable(candidate)) return candidate;
    }
    return QStandardPaths::findExecutable(name);
}

} // namespace

// ---------------------------------------------------------------------------
// QXSystemPrivilegeMechanism

QXSystemPrivilegeMechanism::~QXSystemPrivilegeMechanism() {
    release();
}

QStringList QXSystemPrivilegeMechanism::pkexecCommand(const QString& tool,
                                                      const QStringList& arguments) {
    return QStringList{findTool(QStringLiteral("pkexec")), tool} + arguments;
}

QStringList QXSystemPrivilegeMechanism::sudoCommand(const QString& tool,
                                                    const QStringList& arguments) {
    // -S: the password comes on standard input; -p "": no prompt text in the way.
    return QStringList{findTool(QStringLiteral("sudo")),
                       QStringLiteral("-S"),
                       QStringLiteral("-p"),
                       QString(),
                       QStringLiteral("--"),
                       tool} +
           arguments;
}

int QXSystemPrivilegeMechanism::obtainInteractively(const QString&) {
    const QStringList command = pkexecCommand(QStringLiteral("/bin/true"), {});
    if (command.first().isEmpty()) return ENOENT;
    // pkexec has no separate "pre-authorize" step; running a harmless tool
    // makes the agent ask now rather than in the middle of an operation.
    const int status = QXTask::terminationCodeFromTask(command.first(), command.mid(1));
    std::lock_guard lock(m_mutex);
    if (status != 0) return -1;
    m_mode = Mode::Interactive;
    return 0;
}

int QXSystemPrivilegeMechanism::obtainWithCredentials(const QString&, const QString& user,
                                                      const QString& password) {
    const QString sudo = findTool(QStringLiteral("sudo"));
    if (sudo.isEmpty()) return ENOENT;
    if (user != QXLocalPaths::username()) return -1;
    const QByteArray secret = password.toUtf8() + '\n';
    // -k forgets any cached ticket so that the password itself is checked.
    const int status = QXTask::terminationCodeFromTaskWithInput(
        sudo,
        {QStringLiteral("-S"), QStringLiteral("-k"), QStringLiteral("-p"), QString(),
         QStringLiteral("-v")},
        secret);
    std::lock_guard lock(m_mutex);
    if (status != 0) return -1;
    m_mode = Mode::Credentials;
    m_password = secret;
    return 0;
}

int QXSystemPrivilegeMechanism::execute(const QString& tool, const QStringList& arguments,
                                        bool wait) {
    Mode mode;
    QByteArray input;
    {
        std::lock_guard lock(m_mutex);
        mode = m_mode;
        input = m_password;
    }
    QStringList command;
    if (mode == Mode::Interactive)
        command = pkexecCommand(tool, arguments);
    else if (mode == Mode::Credentials)
        command = sudoCommand(tool, arguments);
    else
        return -1;
    if (command.first().isEmpty()) return -1;
    if (!wait) {
        QXTask::runTaskAndReturnWithInput(command.first(), command.mid(1), input);
        return 0;
    }
    const int status =
        QXTask::terminationCodeFromTaskWithInput(command.first(), command.mid(1), input);
    // pkexec's own refusals: 126 the dialog was dismissed, 127 not authorized.
    if (mode == Mode::Interactive && (status == 126 || status == 127)) return -1;
    return status;
}

void QXSystemPrivilegeMechanism::release() {
    std::lock_guard lock(m_mutex);
    m_password.fill('\0');
    m_password.clear();
    m_mode = Mode::None;
}

// ---------------------------------------------------------------------------
// QXAuthorization

QXAuthorization& QXAuthorization::sharedController(bool gui) {
    // A function-local static is created once, under the compiler's own lock.
    static QXAuthorization* instance = new QXAuthorization(gui);
    return *instance;
}

QXAuthorization::QXAuthorization(bool gui)
    : m_mechanism(std::make_shared<QXSystemPrivilegeMechanism>()) {
    reset(gui);
}

void QXAuthorization::reset(bool gui) {
    std::lock_guard lock(m_mutex);
    m_authRef = false;
    m_hasGUI = gui;
    m_userDirectory = QXLocalPaths::isSuperUser() ? QString() : QXLocalPaths::userDirectory();
}

void QXAuthorization::resetForTesting(bool gui) {
    authEnd();
    reset(gui);
}

void QXAuthorization::setMechanism(std::shared_ptr<QXPrivilegeMechanism> mechanism) {
    std::lock_guard lock(m_mutex);
    m_mechanism = mechanism ? std::move(mechanism) : std::make_shared<QXSystemPrivilegeMechanism>();
}

std::shared_ptr<QXPrivilegeMechanism> QXAuthorization::mechanism() const {
    std::lock_guard lock(m_mutex);
    return m_mechanism;
}

bool QXAuthorization::hasGUI() const {
    std::lock_guard lock(m_mutex);
    return m_hasGUI;
}

QString QXAuthorization::userDirectory() const {
    std::lock_guard lock(m_mutex);
    return m_userDirectory;
}

bool QXAuthorization::isAuthorized() const {
    if (QXLocalPaths::isSuperUser()) return true;
    std::lock_guard lock(m_mutex);
    return m_authRef;
}

bool QXAuthorization::canAuthorize() const {
    return hasGUI() || QXLocalPaths::isSuperUser();
}

bool QXAuthorization::authStart() {
    std::lock_guard start(m_startMutex);
    if (isAuthorized() || QXLocalPaths::isSuperUser()) return true;
    if (!hasGUI()) {
        QXConsole::print(QStringLiteral("Unable to authorize"));
        return false;
    }
    const bool granted = mechanism()->obtainInteractively(rightName()) == 0;
    std::lock_guard lock(m_mutex);
    m_authRef = granted;
    return granted;
}

bool QXAuthorization::authStartWithUser(const QString& user, const QString& password) {
    if (QXLocalPaths::isSuperUser()) return true;
    if (user.isEmpty() || password.isEmpty()) return false;
    std::lock_guard start(m_startMutex);
    const int status = mechanism()->obtainWithCredentials(rightName(), user, password);
    if (status > 0) {
        QXConsole::print(QStringLiteral("Unable to create authRef - error %1").arg(status));
        return false;
    }
    {
        std::lock_guard lock(m_mutex);
        m_authRef = status == 0;
    }
    if (status == 0) return true;
    const QString line = QStringLiteral("Authorization failed. Invalid username or password");
    QXConsole::print(line);
    QXLog::appendLog(line);
    return false;
}

void QXAuthorization::authEnd() {
    if (isAuthorized() && !QXLocalPaths::isSuperUser()) mechanism()->release();
    std::lock_guard lock(m_mutex);
    m_authRef = false;
}

int QXAuthorization::authExecTask(const QString& tool, const QStringList& arguments, bool async) {
    if (!QFileInfo::exists(tool)) {
        QXConsole::print(QStringLiteral("Unable to execute task: path %1 doesn't exist").arg(tool));
        return -2;
    }
    if (QXLocalPaths::isSuperUser()) {
        if (async)
            QXTask::runTaskAndReturn(tool, arguments);
        else
            QXTask::runTask(tool, arguments);
        return 0;
    }
    if (!isAuthorized()) authStart();
    if (!isAuthorized()) return -1;
    return mechanism()->execute(tool, arguments, !async);
}

bool QXAuthorization::authMoveFile(const QString& source, const QString& destination) {
    if (source.isEmpty()) {
        QXConsole::print(QStringLiteral("Error in authMoveFile: old path is null"));
        return false;
    }
    if (destination.isEmpty()) {
        QXConsole::print(QStringLiteral("Error in authMoveFile: new path is null"));
        return false;
    }
    if (QXLocalPaths::isPathSystemDirectory(source, true)) {
        QXConsole::print(
            QStringLiteral("Unable to move path %1 because it is a system directory.").arg(source));
        return false;
    }
    if (!existsAt(source)) return false;
    const QStringList args = {QStringLiteral("-f"), source, destination};
    if (!QXLocalPaths::isSuperUser()) return authExecTask(mvTool, args) == 0;
    QXTask::runTaskAndReturn(mvTool, args);
    return true;
}

bool QXAuthorization::authCopyFile(const QString& source, const QString& destination) {
    if (source.isEmpty()) {
        QXConsole::print(QStringLiteral("Error in authCopyFile: old path is null"));
        return false;
    }
    if (destination.isEmpty()) {
        QXConsole::print(QStringLiteral("Error in authCopyFile: new path is null"));
        return false;
    }
    if (!existsAt(source)) return false;
    const QStringList args = {QStringLiteral("-f"), QStringLiteral("-p"), QStringLiteral("-R"),
                              source, destination};
    if (!QXLocalPaths::isSuperUser()) return authExecTask(cpTool, args) == 0;
    QXTask::runTaskAndReturn(cpTool, args);
    return true;
}

bool QXAuthorization::authCreateDir(const QString& path) {
    const QStringList args = {QStringLiteral("-p"), path};
    if (QXLocalPaths::isSuperUser()) {
        QXTask::runTaskAndReturn(mkdirTool, args);
        return true;
    }
    if (authExecTask(mkdirTool, args) != 0) return false;
    std::this_thread::sleep_for(std::chrono::microseconds(500));
    return true;
}

bool QXAuthorization::authRemoveFile(const QString& path) {
    if (QXLocalPaths::isPathSystemDirectory(path, true)) {
        QXConsole::print(
            QStringLiteral("Unable to delete path %1 because it is a system directory.").arg(path));
        return false;
    }
    return authExecTask(rmTool, {QStringLiteral("-Rdf"), path}) == 0;
}

bool QXAuthorization::authTrashFile(const QString& path, bool deleteOnRootAccount) {
    if (QXLocalPaths::isPathSystemDirectory(path, true)) {
        QXConsole::print(
            QStringLiteral("Unable to trash path %1 because it is a system directory.").arg(path));
        return false;
    }
    const QString name = QXFileManager::lastPathComponent(path);
    const QString home = userDirectory();
    QString target = QXFileManager::joinPath(QXLocalPaths::trashDirectory(), name);
    // The super-user trashes into the trash of the user this object started
    // with; the freedesktop trash keeps its files in ".local/share/Trash/files".
    if (QXLocalPaths::isSuperUser() && !home.isEmpty())
        target = QXFileManager::joinPath(home, QStringLiteral(".local/share/Trash/files/") + name);
    if (existsAt(target)) {
        // The dot is written even for an empty extension.
        target = QXFileManager::deletingPathExtension(target) + u'_' +
                 QXDate::compactStamp(QDateTime::currentDateTime()) + u'.' +
                 QXFileManager::pathExtension(path);
    }
    if (home.isEmpty() && deleteOnRootAccount && QXLocalPaths::isSuperUser())
        return authRemoveFile(target); // the destination, not the path: long-standing behaviour
    return authMoveFile(path, target);
}

bool QXAuthorization::authTrashFolderContents(const QString& folder, bool deleteOnRootAccount) {
    if (QXLocalPaths::isPathSystemDirectory(folder, true)) {
        QXConsole::print(
            QStringLiteral("Unable to trash folder contents of path %1 because it is a system "
                           "directory.")
                .arg(folder));
        return false;
    }
    const bool deleteThem =
        userDirectory().isEmpty() && deleteOnRootAccount && QXLocalPaths::isSuperUser();
    bool failed = false;
    const QStringList entries = QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot |
                                                       QDir::Hidden | QDir::System);
    for (const QString& entry : entries) {
        const QString path = QXFileManager::joinPath(folder, entry);
        if (deleteThem) {
            if (authExecTask(rmTool, {QStringLiteral("-R"), QStringLiteral("-f"), path}) != 0)
                failed = true;
        } else if (!authTrashFile(path)) {
            failed = true;
        }
    }
    return !failed;
}

bool QXAuthorization::authMoveFolderContents(const QString& folder, const QString& destination) {
    if (QXLocalPaths::isPathSystemDirectory(folder, true)) {
        QXConsole::print(
            QStringLiteral("Unable to move contents of path %1 because it is a system directory.")
                .arg(folder));
        return false;
    }
    bool failed = false;
    const QStringList entries = QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot |
                                                       QDir::Hidden | QDir::System);
    for (const QString& entry : entries)
        if (!authMoveFile(QXFileManager::joinPath(folder, entry),
                          QXFileManager::joinPath(destination, entry)))
            failed = true;
    return !failed;
}
