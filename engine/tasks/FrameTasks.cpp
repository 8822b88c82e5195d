// The frame-number tasks: renumber, reverse, pad, close gaps, offset and
// remove. Frame numbers are read as unsigned 64-bit values; the arithmetic
// on them wraps, deliberately, and is never clamped.
#include "MyDocument.h"
#include "QXException.h"
#include "ReloadAtExit.h"
#include "TaskRun.h"

#include <QHash>

namespace {

// Longer padding can never reach the disk (names stop at 255 bytes) and
// would only make the preview allocate gigabytes of zeros.
constexpr quint64 kMaxPadLength = 4096;

QVariant unsignedFrame(quint64 value) {
    return QVariant::fromValue<qulonglong>(value);
}

quint64 frameOf(const QXFileItem& item) {
    return FrameValue::toUnsigned(item.frameNumber());
}

} // namespace

bool MyDocument::processReorderFrames(const QVariantMap& s, const FileList& files) {
    quint64 counter = s.value(QStringLiteral("startFrame")).toULongLong();
    // The counter advances for every file, changed or not; a file without a
    // number reads as 0 and so keeps having none when its turn is 0.
    return runTaskContract(
        "-[MyDocument processReorderFrames:files:]", s, files,
        [&counter](QXFileItem& t) {
            if (frameOf(t) != counter) t.setFrameNumber(unsignedFrame(counter));
            ++counter;
        },
        false);
}

bool MyDocument::processReverseNumbers(const QVariantMap& s, const FileList& files) {
    static constexpr const char* method = "-[MyDocument processReverseNumbers:files:]";
    ReloadAtExit reload(view());
    const bool preview = isPreview(s);
    try {
        // Every preview is reset, numbered or not, so an unnumbered file shows
        // its own name rather than what an earlier task proposed.
        QHash<const QXFileItem*, FileItemPtr> targets;
        FileList numbered;
        for (const FileItemPtr& item : files) {
            targets.insert(item.get(), taskTarget(item, preview));
            if (item->hasFrameNumber()) numbered.append(item);
        }
        const FileList reversed = reverseArray(numbered).value_or(FileList());
        const qsizetype n = std::min(numbered.size(), reversed.size());
        // ceil(n / 2): an odd list's middle file is paired with itself.
        for (qsizetype i = 0; i < (n + 1) / 2; ++i) {
            const FileItemPtr a = targets.value(numbered[i].get());
            const FileItemPtr b = targets.value(reversed[i].get());
            if (numbered[i] != reversed[i]) {
                const QVariant frameA = a->frameNumber();
                const QVariant frameB = b->frameNumber();
                a->setFrameNumber(frameB);
                b->setFrameNumber(frameA);
            }
        }
        if (!preview) return copyFiles();
        for (const FileItemPtr& t : std::as_const(targets))
            t->synchronize();
        return true;
    } catch (const std::exception& e) {
        QXException::logException(e, method);
        TaskRun::reportException(e);
    }
    return false;
}

bool MyDocument::processPadNumbers(const QVariantMap& s, const FileList& files) {
    quint64 length = s.value(QStringLiteral("padLength")).toULongLong();
    if (length == 0) length = 4;
    const auto padding = static_cast<quint32>(std::min(length, kMaxPadLength));
    // Every file, numbered or not; padding never shortens a longer number.
    return runTaskContract(
        "-[MyDocument processPadNumbers:files:]", s, files,
        [padding](QXFileItem& t) { t.setPaddingLength(padding); }, true, EditScope::Item);
}

bool MyDocument::processCloseGaps(const QVariantMap& s, const FileList& files) {
    // 0 stands for "no previous number": the file after a frame 0 or after an
    // unnumbered file is never moved down. Duplicates stay duplicates.
    quint64 previous = 0;
    return runTaskContract("-[MyDocument processCloseGaps:files:]", s, files,
                           [&previous](QXFileItem& t) {
                               const quint64 value = frameOf(t);
                               if (t.hasFrameNumber() && previous != 0 && value > previous + 1)
                                   t.setFrameNumber(unsignedFrame(previous + 1));
                               previous = frameOf(t);
                           });
}

bool MyDocument::processOffsetNumbers(const QVariantMap& s, const FileList& files) {
    // Stored as the unsigned integer of the same bits; read back signed.
    const auto offset = static_cast<qint64>(s.value(QStringLiteral("offset")).toULongLong());
    // Raising numbers runs from the highest down, lowering from the lowest up.
    const FileList order = offset > 0 ? reverseArray(files).value_or(FileList()) : files;
    return runTaskContract(
        "-[MyDocument processOffsetNumbers:files:]", s, order,
        [offset](QXFileItem& t) {
            if (!t.hasFrameNumber()) return;
            // Below zero wraps round, deliberately.
            t.setFrameNumber(unsignedFrame(frameOf(t) + static_cast<quint64>(offset)));
        },
        true, EditScope::Item);
}

bool MyDocument::processRemoveFrameNumber(const QVariantMap& s, const FileList& files) {
    return runTaskContract(
        "-[MyDocument processRemoveFrameNumber:files:]", s, files,
        [](QXFileItem& t) {
            ComponentList list = t.components();
            qsizetype i = 0;
            while (i < list.size() && !list[i].is(ComponentKind::FrameNumber))
                ++i;
            if (i < list.size()) {
                const bool followed = i + 1 < list.size();
                list.removeAt(i);
                // Only the separator before the number goes when there is
                // one; the one after only when there is none before.
                if (i > 0 && list[i - 1].is(ComponentKind::Separator))
                    list.removeAt(i - 1);
                else if (followed && list[i].is(ComponentKind::Separator))
                    list.removeAt(i);
            }
            // A name left empty or with only its extension keeps its number.
            if (list.size() >= 2 ||
                (list.size() == 1 && !list.first().is(ComponentKind::FileExtension)))
                t.setComponents(list);
        },
        true, EditScope::Item);
}
