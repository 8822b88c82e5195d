#include "QXException.h"

#include "QXConsole.h"
#include "QXLog.h"

#include <typeinfo>

QXException::QXException(QString name, QString reason)
    : m_name(std::move(name)), m_reason(std::move(reason)),
      m_what((m_name + QStringLiteral(" - ") + m_reason).toUtf8()) {}

void QXException::logException(const QString& name, const QString& reason, const char* method) {
    const QString line =
        QStringLiteral("Exception in %1. %2 - %3.").arg(QString::fromUtf8(method), name, reason);
    QXLog::appendLog(line);
    QXConsole::print(line);
}

void QXException::logException(const QXException& e, const char* method) {
    logException(e.name(), e.reason(), method);
}

void QXException::logException(const std::exception& e, const char* method) {
    if (auto* qx = dynamic_cast<const QXException*>(&e)) {
        logException(*qx, method);
        return;
    }
    logException(QString::fromUtf8(typeid(e).name()), QString::fromUtf8(e.what()), method);
}
