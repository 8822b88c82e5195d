#pragma once

#include <QString>
#include <exception>

// An exception with a name and a reason, as the framework reports them.
// Every operation that can fail catches at its own edge and hands the
// exception to logException() with its full method name.
class QXException : public std::exception {
public:
    QXException(QString name, QString reason);

    const QString& name() const noexcept { return m_name; }
    const QString& reason() const noexcept { return m_reason; }
    const char* what() const noexcept override { return m_what.constData(); }

    // Writes "Exception in %s. %@ - %@." to the log and the console.
    static void logException(const QXException& e, const char* method);
    static void logException(const QString& name, const QString& reason, const char* method);
    // Any other C++ exception: its type stands in for the name.
    static void logException(const std::exception& e, const char* method);

    // Common names, as the framework raises them.
    static QString rangeError() { return QStringLiteral("NSRangeException"); }
    static QString invalidArgument() { return QStringLiteral("NSInvalidArgumentException"); }
    static QString genericError() { return QStringLiteral("NSGenericException"); }

private:
    QString m_name;
    QString m_reason;
    QByteArray m_what;
};
