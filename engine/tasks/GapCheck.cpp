// The frame-gap check: renames nothing, reports the missing runs of frame
// numbers of the files as they are on disk (never their previews).
#include "MyDocument.h"
#include "QXException.h"
#include "QXLog.h"
#include "ReloadAtExit.h"

namespace {

// The report's formats print 32-bit integers ("%u" in the log, "%i" in the
// gap list), so a number past that range shows its low 32 bits, as it always
// has; real frame numbers never get there.
QString asUnsigned32(quint64 value) {
    return QString::number(static_cast<quint32>(value));
}
QString asSigned32(quint64 value) {
    return QString::number(static_cast<qint32>(static_cast<quint32>(value)));
}

} // namespace

std::optional<MyDocument::GapReport> MyDocument::checkFrameGaps() {
    static constexpr const char* method = "-[MyDocument checkFrameGaps:]";
    ReloadAtExit reload(view()); // also after an exception
    try {
        QXLog::appendLog(QStringLiteral("Checking for gaps..."));
        GapReport report;
        // 0 means "no previous number": a gap right after frame 0 or after an
        // unnumbered file is not reported; duplicates are no gap.
        quint64 previous = 0;
        const FileList files = sortFilesByFrameOrder();
        for (const FileItemPtr& item : files) {
            const QVariant frame = item->frameNumber();
            const quint64 value = FrameValue::toUnsigned(frame);
            if (!frame.isNull() && previous != 0 && value > previous + 1) {
                QXLog::appendLog(QStringLiteral("gap: %1 should be %2")
                                     .arg(asUnsigned32(value), asUnsigned32(previous + 1)));
                if (value - previous == 2)
                    report.gaps.append(asSigned32(previous + 1));
                else
                    report.gaps.append(asSigned32(previous + 1) + u'-' + asSigned32(value - 1));
            }
            previous = value;
        }
        QXLog::appendLog(QStringLiteral("Gap checking complete"));

        const qsizetype count = report.gaps.size();
        if (count > 0) {
            report.messageText = QStringLiteral("%1 gap%2 found")
                                     .arg(count)
                                     .arg(count == 1 ? QString() : QStringLiteral("s"));
            report.informativeText =
                QStringLiteral("Frame number gaps were found at the following locations:\n") +
                report.gaps.join(u'\n');
        } else {
            report.messageText = QStringLiteral("No gaps found");
            report.informativeText =
                QStringLiteral("There are no frame number gaps in the file list.");
        }
        AlertRequest alert;
        alert.messageText = report.messageText;
        alert.informativeText = report.informativeText;
        alert.parent = AlertRequest::Parent::MainWindow;
        alert.block = true;
        view().alert(alert);
        return report;
    } catch (const QXException& e) {
        QXException::logException(e, method);
    } catch (const std::exception& e) {
        QXException::logException(e, method);
    }
    return std::nullopt;
}
