#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <memory>
#include <mutex>

// How this platform obtains administrator rights and runs a tool with them.
// QXAuthorization keeps the rules; a mechanism only talks to the system, so
// tests can put a fake one in its place.
class QXPrivilegeMechanism {
public:
    virtual ~QXPrivilegeMechanism() = default;
    // Asks for the right, letting the desktop ask the user. 0 when granted; a
    // positive value when the mechanism is not available at all; -1 when refused.
    virtual int obtainInteractively(const QString& right) = 0;
    // The same for a given administrator name and password, without asking.
    virtual int obtainWithCredentials(const QString& right, const QString& user,
                                      const QString& password) = 0;
    // Runs the tool with the right obtained. Waiting: the tool's exit status
    // (or -1 when the right is refused); not waiting: 0 once it is started.
    virtual int execute(const QString& tool, const QStringList& arguments, bool wait) = 0;
    // Forgets the right and anything kept for it.
    virtual void release() = 0;
};

// The Linux mechanism: interactive rights through pkexec (the desktop's
// polkit agent asks), name-and-password rights through "sudo -S" (the
// password is kept in memory until release() and fed to each sudo). sudo
// checks the invoking user's own password, so the name must be that user's.
class QXSystemPrivilegeMechanism : public QXPrivilegeMechanism {
public:
    ~QXSystemPrivilegeMechanism() override;
    int obtainInteractively(const QString& right) override;
    int obtainWithCredentials(const QString& right, const QString& user,
                              const QString& password) override;
    int execute(const QString& tool, const QStringList& arguments, bool wait) override;
    void release() override;

    // The command lines used, for the record and for tests.
    static QStringList pkexecCommand(const QString& tool, const QStringList& arguments);
    static QStringList sudoCommand(const QString& tool, const QStringList& arguments);

private:
    enum class Mode { None, Interactive, Credentials };
    std::mutex m_mutex;
    Mode m_mode = Mode::None;
    QByteArray m_password;
};

// Administrator rights for the right "system.privilege.admin" and the system
// tools run with them. The super-user needs no rights: its tools start
// directly. Protected system folders are refused with a console message.
// Statuses of authExecTask: 0 success, -1 not authorized, -2 no such tool.
class QXAuthorization {
public:
    static QString rightName() { return QStringLiteral("system.privilege.admin"); }

    // The singleton; the first call decides whether the user may be asked.
    static QXAuthorization& sharedController(bool gui = true);

    bool hasGUI() const;
    QString userDirectory() const; // stored only when not the super-user

    bool isAuthorized() const;
    bool canAuthorize() const;
    bool authStart();
    bool authStartWithUser(const QString& user, const QString& password);
    void authEnd();

    int authExecTask(const QString& tool, const QStringList& arguments, bool async = true);

    bool authMoveFile(const QString& source, const QString& destination);
    bool authCopyFile(const QString& source, const QString& destination);
    bool authCreateDir(const QString& path);
    bool authRemoveFile(const QString& path);
    bool authTrashFile(const QString& path, bool deleteOnRootAccount = false);
    bool authTrashFolderContents(const QString& folder, bool deleteOnRootAccount = false);
    bool authMoveFolderContents(const QString& folder, const QString& destination);

    // Replaces the mechanism (tests; null restores the system's).
    void setMechanism(std::shared_ptr<QXPrivilegeMechanism> mechanism);
    // Test seam: forget the rights and start over as a fresh singleton would.
    void resetForTesting(bool gui);

    QXAuthorization(const QXAuthorization&) = delete;
    QXAuthorization& operator=(const QXAuthorization&) = delete;

private:
    explicit QXAuthorization(bool gui);
    ~QXAuthorization() = delete; // never freed during the process
    std::shared_ptr<QXPrivilegeMechanism> mechanism() const;
    void reset(bool gui);

    mutable std::mutex m_mutex; // guards the fields below
    std::mutex m_startMutex;    // one rights request at a time: one dialog, not two
    bool m_authRef = false;     // rights held
    bool m_hasGUI = true;
    QString m_userDirectory;
    std::shared_ptr<QXPrivilegeMechanism> m_mechanism;
};
