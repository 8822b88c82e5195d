#pragma once
// What the process, synchronous and timed forms of QXTask share: argument
// vectors, descriptors, the failure reports and the decoding of output.
#include "QXTask.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <vector>

namespace QXTaskDetail {

// The argument vector of a child, built before any process is started.
struct Argv {
    std::vector<QByteArray> storage;
    std::vector<char*> pointers;
    Argv(const QString& path, const QStringList& arguments);
};

void closeFd(int& fd);
QString errnoText(int err);
void reportNotExecutable(const QString& path);
// A launch the checks let through but the system refused: logged as the
// framework logs exceptions, and the caller gets its failure value.
void reportLaunchFailure(const QString& path, const QString& reason, const char* method);
// Reads what is available on fd into buffer. False at end of file or error.
bool readSome(int fd, QByteArray& buffer);
int clampSeconds(double timeout);
QString decode(const QByteArray& bytes, QXTask::Encoding encoding);

} // namespace QXTaskDetail
