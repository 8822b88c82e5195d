#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <sys/types.h>
#include <thread>
#include <vector>

// One child process: its launch path and arguments, started at most once.
// Every member is safe from any thread. A child is reaped only by the thread
// that waits for it, so terminate() can never signal a recycled process id.
class QXTaskProcess {
public:
    QXTaskProcess(QString launchPath, QStringList arguments);
    // A child still unreaped here is killed and reaped: no zombies.
    ~QXTaskProcess();
    QXTaskProcess(const QXTaskProcess&) = delete;
    QXTaskProcess& operator=(const QXTaskProcess&) = delete;

    const QString& launchPath() const { return m_launchPath; }
    const QStringList& arguments() const { return m_arguments; }
    pid_t processIdentifier() const; // 0 before launch
    bool isLaunched() const;
    // Launched and not yet exited.
    bool isRunning() const;
    // SIGTERM. Before launch the request is remembered and the child is
    // signalled the moment it starts, so a timeout that has already expired
    // is not lost to the race between launching and the timer.
    void terminate();
    // SIGKILL, for a child that ignores terminate().
    void kill();
    // Blocks until the child has exited and reaps it. False when never launched.
    bool waitUntilExit();
    // waitUntilExit(), but after terminate(): a child still alive after the
    // grace period is killed.
    void terminateAndReap(int graceMilliseconds);
    // The exit code, or the signal number when a signal ended the child.
    int terminationStatus() const;

    // The standard streams of the child; -1 is the null device.
    struct Wiring {
        int in = -1;
        int out = -1;
        int err = -1;
    };
    // Starts the child (once) with the given streams; false with the system's reason.
    bool launch(const Wiring& wiring, QString* error);

private:
    void signalLocked(int sig);

    const QString m_launchPath;
    const QStringList m_arguments;
    mutable std::mutex m_mutex; // guards the fields below
    std::mutex m_waitMutex;     // one waiter at a time
    pid_t m_pid = 0;
    bool m_reaped = false;
    bool m_terminateRequested = false;
    int m_status = 0;
};

// Runs external programs: waits for them (optionally with a timeout that
// terminates them), returns their exit status or what they printed, or runs
// them in the background and hands the output to a callback as it arrives.
//
// Threads: the timer of a timed call is a thread of its own that also runs
// the timeout action (there may be no event loop to post it to, as in the
// CLI); the action and the calling thread share the task field under a mutex.
// A QXTask never leaves a thread behind: the destructor stops a background
// run and joins its reader thread.
class QXTask {
public:
    using Process = std::shared_ptr<QXTaskProcess>;
    // Receives the child right after it is made and before it is launched.
    using ProcessHook = std::function<void(const Process&)>;
    // A background run's delivery: (bytes, the task, the object given at the start).
    using DataCallback =
        std::function<void(const QByteArray& data, QXTask& task, const QVariant& object)>;
    enum class Encoding { ASCII, UTF8, Latin1 };

    QXTask();
    ~QXTask();
    QXTask(const QXTask&) = delete;
    QXTask& operator=(const QXTask&) = delete;

    // The check made before every synchronous launch: an executable regular file.
    static bool isExecutable(const QString& path);

    // Synchronous forms. Standard input reads end of file at once (the null
    // device, or an empty pipe), so a program waiting for input cannot hang
    // the call; output and error go to the null device unless said otherwise.
    // A program that passes the check but cannot be started is logged as an
    // exception and gives the failure value.
    static bool runTask(const QString& path, const QStringList& arguments,
                        const ProcessHook& task = nullptr);
    // Starts the program and returns at once; the child is adopted by init, not left a zombie.
    static void runTaskAndReturn(const QString& path, const QStringList& arguments);
    // As terminationCodeFromTask and runTaskAndReturn, with the given bytes on
    // the child's standard input (at most 64 KiB: what a pipe holds unread).
    static int terminationCodeFromTaskWithInput(const QString& path, const QStringList& arguments,
                                                const QByteArray& input);
    static void runTaskAndReturnWithInput(const QString& path, const QStringList& arguments,
                                          const QByteArray& input);
    // The exit status, or -1 when the program cannot be run.
    static int terminationCodeFromTask(const QString& path, const QStringList& arguments,
                                       const ProcessHook& task = nullptr);
    // What the program printed: its error bytes when there are any, else its
    // output bytes. nullopt when it cannot be run.
    static std::optional<QByteArray> dataFromTask(const QString& path, const QStringList& arguments,
                                                  const ProcessHook& task = nullptr);
    // dataFromTask decoded; "" when nothing came back or the bytes do not decode.
    static QString stringFromTask(const QString& path, const QStringList& arguments,
                                  Encoding encoding = Encoding::ASCII,
                                  const ProcessHook& task = nullptr);

    // Timed forms: the timeout is truncated to whole seconds (0.5 gives 0, so
    // the timer fires at once) and a child still running then is terminated
    // (SIGTERM, then SIGKILL after the grace below). A timer that fires before
    // the child is started terminates it as soon as it starts. The status of a
    // terminated child is the signal's number.
    static void runTask(const QString& path, const QStringList& arguments, double timeout);
    static int terminationCodeFromTask(const QString& path, const QStringList& arguments,
                                       double timeout);
    static std::optional<QByteArray> dataFromTask(const QString& path, const QStringList& arguments,
                                                  double timeout);
    static QString stringFromTask(const QString& path, const QStringList& arguments,
                                  Encoding encoding, double timeout);
    static QString stringFromTask(const QString& path, const QStringList& arguments,
                                  double timeout);

    // Starts the program in the background (output to a pipe, error discarded)
    // and returns at once. The callback runs on the reader thread for every
    // chunk of output and once more with empty bytes at the end; the run then
    // ends with terminateAsyncTask(). No executable check is made here. An
    // earlier run of this instance that is still going is terminated first.
    // The callback must not destroy this QXTask.
    void asyncDataFromTask(const QString& path, const QStringList& arguments, DataCallback delegate,
                           const QVariant& object = QVariant());
    // Stops a background run: no further deliveries, the child is terminated.
    void terminateAsyncTask();
    // The child of the running background run, or null.
    Process task() const;

    // The time a terminated child gets to exit before it is killed (2 s by default).
    static int terminateGraceMilliseconds();
    static void setTerminateGraceMilliseconds(int milliseconds);

private:
    template <typename Result, typename Op> Result runTimed(double timeout, Op op);
    void setupTimeout(int seconds);
    void timerMain(int seconds);
    void timeout();
    void finishTimed();
    void installTask(const Process& process);
    struct AsyncPipes {
        int read;
        int write;
        int wake;
    };
    void launchAsyncTask(Process process, AsyncPipes pipes, quint64 runId);
    void asyncTaskReturnData(const QByteArray& data, quint64 runId);
    void joinReaders();
    void terminateRun(quint64 runId); // 0: whatever run is current

    mutable std::mutex m_mutex; // guards every field below
    std::condition_variable m_timerWake;
    Process m_task;
    bool m_timedOut = false;
    bool m_timerCancelled = false;
    std::thread m_timer;
    DataCallback m_delegate;
    QVariant m_object;
    quint64 m_runId = 0; // the background run that may still deliver
    int m_wakeFd = -1;   // wakes the reader thread of the current run
    std::vector<std::thread> m_readers;
};
