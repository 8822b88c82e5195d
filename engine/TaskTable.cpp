#include "MyDocument.h"

#include "InTwoHalves.h"
#include "PreviewPipeline.h"
#include "QXException.h"
#include "QXLog.h"
#include "TaskRun.h"

#include <atomic>
#include <limits>
#include <vector>

// The task table: tag -> preview entry point, commit entry point, settings.
namespace {
using PreviewFn = bool (MyDocument::*)(const QVariantMap&, const FileList&);
using CommitFn = bool (MyDocument::*)(const QVariantMap&);
struct TaskEntry {
    int tag;
    PreviewFn preview;
    CommitFn commit;
    bool takesSettings; // the commit passes no settings to the others
};
const TaskEntry kTasks[] = {
    {1, &MyDocument::processFindAndReplace, &MyDocument::processFindAndReplace, true},
    {2, &MyDocument::processConform, &MyDocument::processConform, true},
    {3, &MyDocument::processOffsetNumbers, &MyDocument::processOffsetNumbers, true},
    {4, &MyDocument::processCloseGaps, &MyDocument::processCloseGaps, false},
    {5, &MyDocument::processPadNumbers, &MyDocument::processPadNumbers, true},
    {6, &MyDocument::processReverseNumbers, &MyDocument::processReverseNumbers, false},
    {7, &MyDocument::processReorderFrames, &MyDocument::processReorderFrames, true},
    {9, &MyDocument::processRemoveFrameNumber, &MyDocument::processRemoveFrameNumber, false},
    {10, &MyDocument::processChangeFileExtension, &MyDocument::processChangeFileExtension, true},
    {11, &MyDocument::processRemoveFileExtension, &MyDocument::processRemoveFileExtension, false},
    {12, &MyDocument::processAddPrefix, &MyDocument::processAddPrefix, true},
    {13, &MyDocument::processAddSuffix, &MyDocument::processAddSuffix, true},
    {14, &MyDocument::processRemoveCharactersFromStart,
     &MyDocument::processRemoveCharactersFromStart, true},
    {15, &MyDocument::processRemoveCharactersFromEnd, &MyDocument::processRemoveCharactersFromEnd,
     true},
    {16, &MyDocument::processRemoveCharacterRange, &MyDocument::processRemoveCharacterRange, true},
    {17, &MyDocument::processConvertSpacesToUnderscores,
     &MyDocument::processConvertSpacesToUnderscores, false},
    {18, &MyDocument::processStripNonAlphanumeric, &MyDocument::processStripNonAlphanumeric, false},
    {19, &MyDocument::processRemoveTrailingSpaces, &MyDocument::processRemoveTrailingSpaces, false},
    {20, &MyDocument::processUppercase, &MyDocument::processUppercase, false},
    {21, &MyDocument::processLowercase, &MyDocument::processLowercase, false},
    {22, &MyDocument::processLowercaseFileExtension, &MyDocument::processLowercaseFileExtension,
     false},
    {23, &MyDocument::processUppercaseFileExtension, &MyDocument::processUppercaseFileExtension,
     false},
    {24, &MyDocument::processCapitalizeWords, &MyDocument::processCapitalizeWords, false},
    {25, &MyDocument::processInsertCharactersAtPosition,
     &MyDocument::processInsertCharactersAtPosition, true},
    {26, &MyDocument::processReplaceCharactersInRange, &MyDocument::processReplaceCharactersInRange,
     true},
};

const TaskEntry* taskFor(int tag) {
    for (const auto& t : kTasks)
        if (t.tag == tag) return &t;
    return nullptr;
}
} // namespace

bool MyDocument::processFindAndReplace(const QVariantMap& s) {
    return processFindAndReplace(s, fileArray());
}
bool MyDocument::processConform(const QVariantMap& s) {
    return processConform(s, sortFilesByFrameOrder());
}
bool MyDocument::processOffsetNumbers(const QVariantMap& s) {
    return processOffsetNumbers(s, sortFilesByFrameOrder());
}
bool MyDocument::processCloseGaps(const QVariantMap& s) {
    return processCloseGaps(s, sortFilesByFrameOrder());
}
bool MyDocument::processPadNumbers(const QVariantMap& s) {
    return processPadNumbers(s, fileArray());
}
bool MyDocument::processReverseNumbers(const QVariantMap& s) {
    return processReverseNumbers(s, sortFilesByFrameOrder());
}
bool MyDocument::processReorderFrames(const QVariantMap& s) {
    return processReorderFrames(s, fileArray());
}
bool MyDocument::processRemoveFrameNumber(const QVariantMap& s) {
    return processRemoveFrameNumber(s, fileArray());
}
bool MyDocument::processChangeFileExtension(const QVariantMap& s) {
    return processChangeFileExtension(s, fileArray());
}
bool MyDocument::processRemoveFileExtension(const QVariantMap& s) {
    return processRemoveFileExtension(s, fileArray());
}
bool MyDocument::processAddPrefix(const QVariantMap& s) {
    return processAddPrefix(s, fileArray());
}
bool MyDocument::processAddSuffix(const QVariantMap& s) {
    return processAddSuffix(s, fileArray());
}
bool MyDocument::processRemoveCharactersFromStart(const QVariantMap& s) {
    return processRemoveCharactersFromStart(s, fileArray());
}
bool MyDocument::processRemoveCharactersFromEnd(const QVariantMap& s) {
    return processRemoveCharactersFromEnd(s, fileArray());
}
bool MyDocument::processRemoveCharacterRange(const QVariantMap& s) {
    return processRemoveCharacterRange(s, fileArray());
}
bool MyDocument::processConvertSpacesToUnderscores(const QVariantMap& s) {
    return processConvertSpacesToUnderscores(s, fileArray());
}
bool MyDocument::processStripNonAlphanumeric(const QVariantMap& s) {
    return processStripNonAlphanumeric(s, fileArray());
}
bool MyDocument::processRemoveTrailingSpaces(const QVariantMap& s) {
    return processRemoveTrailingSpaces(s, fileArray());
}
bool MyDocument::processUppercase(const QVariantMap& s) {
    return processUppercase(s, fileArray());
}
bool MyDocument::processLowercase(const QVariantMap& s) {
    return processLowercase(s, fileArray());
}
bool MyDocument::processLowercaseFileExtension(const QVariantMap& s) {
    return processLowercaseFileExtension(s, fileArray());
}
bool MyDocument::processUppercaseFileExtension(const QVariantMap& s) {
    return processUppercaseFileExtension(s, fileArray());
}
bool MyDocument::processCapitalizeWords(const QVariantMap& s) {
    return processCapitalizeWords(s, fileArray());
}
bool MyDocument::processInsertCharactersAtPosition(const QVariantMap& s) {
    return processInsertCharactersAtPosition(s, fileArray());
}
bool MyDocument::processReplaceCharactersInRange(const QVariantMap& s) {
    return processReplaceCharactersInRange(s, fileArray());
}

bool MyDocument::runPreviewTask(int tag, const QVariantMap& settings, const FileList& files) {
    const TaskEntry* t = taskFor(tag);
    return t ? (this->*(t->preview))(settings, files) : false;
}

bool MyDocument::runCommitTask(int tag, const QVariantMap& settings) {
    const TaskEntry* t = taskFor(tag);
    if (!t) return false; // 0, 8 and unknown tags run nothing and count as failure
    return (this->*(t->commit))(t->takesSettings ? settings : QVariantMap());
}

bool MyDocument::taskUsesFrameOrder(int tag) {
    return tag == 2 || tag == 3 || tag == 4 || tag == 6;
}

QString MyDocument::taskDescription(int tag) {
    switch (tag) {
    case 4:
        return QStringLiteral("Renumbers frame numbers so that there are no gaps.");
    case 6:
        return QStringLiteral("Reverses frame numbers.");
    case 8:
        return QStringLiteral("Does not rename any files but tells you where gaps are occurring.");
    case 9:
        return QStringLiteral(
            "Removes all frame numbers.\n\nExample: MyImage.2.jpg becomes MyImage.jpg");
    case 11:
        return QStringLiteral("Removes file extensions. Note that some files may not be openable "
                              "without an extension.\n\nExample: MyImage.jpg becomes MyImage");
    case 17:
        return QStringLiteral(
            "Converts spaces to underscores.\n\nExample: My Image.jpg becomes My_Image.jpg");
    case 18:
        return QStringLiteral("Strips all non-alphanumeric (i.e. letters, numbers and basic "
                              "punctuation) from filenames.\n\nExample: My*Image.jpg becomes "
                              "MyImage.jpg");
    case 19:
        return QStringLiteral("Removes any extra spaces at the beginning or end of the "
                              "filename.\n\nExample: MyImage .jpg becomes MyImage.jpg");
    case 20:
        return QStringLiteral("Converts all characters in the filename to uppercase.\n\nExample: "
                              "MyImage.jpg becomes MYIMAGE.jpg");
    case 21:
        return QStringLiteral("Converts all characters in the filename to lowercase.\n\nExample: "
                              "MyImage.jpg becomes myimage.jpg");
    case 22:
        return QStringLiteral("Converts the file extension to lowercase.\n\nExample: MyImage.JPG "
                              "becomes MyImage.jpg");
    case 23:
        return QStringLiteral("Converts the file extension to uppercase.\n\nExample: MyImage.jpg "
                              "becomes MyImage.JPG");
    case 24:
        return QStringLiteral("Capitalizes the first letter of each word in the filename.\n\n"
                              "Example: my image.jpg becomes My Image.jpg");
    default:
        return QString();
    }
}

bool MyDocument::isPreview(const QVariantMap& settings) {
    return settings.value(QStringLiteral("preview")).toBool();
}

FileItemPtr MyDocument::taskTarget(const FileItemPtr& item, bool preview) {
    if (!preview) return item;
    item->resetPreview();
    return item->previewObject();
}

bool MyDocument::runTaskContract(const char* method, const QVariantMap& settings,
                                 const FileList& files,
                                 const std::function<void(QXFileItem&)>& edit, bool reloadAtExit,
                                 EditScope scope) {
    bool result = true;
    try {
        const bool preview = isPreview(settings);
        if (!preview && scope == EditScope::Item) {
            // A commit edits the items themselves, each on its own; or, when
            // the previews are known to be current, takes what they show.
            // An item's edit then depends on nothing but the item, so its
            // preview holds the very name the edit would give it.
            const bool fromPreviews =
                m_commitFromPreviews.load() && m_previews->completeTag() == selectedTag();
            inTwoHalves(files.size(), kTwoHalvesMinimum, [&](qsizetype from, qsizetype to) {
                for (qsizetype i = from; i < to; ++i) {
                    const FileItemPtr shown = fromPreviews ? files[i]->previewObject() : nullptr;
                    if (shown)
                        files[i]->takeNameFrom(*shown);
                    else
                        edit(*files[i]);
                }
            });
        } else {
            for (const FileItemPtr& item : files) {
                const FileItemPtr target = taskTarget(item, preview);
                edit(*target);
                if (preview) target->synchronize();
            }
        }
        if (!preview) result = copyFiles();
    } catch (const std::exception& e) {
        QXException::logException(e, method);
        TaskRun::reportException(e);
        result = false;
    }
    if (reloadAtExit) view().reloadTable(false);
    return result;
}

// ---- choosing a task and previewing -----------------------------------------------------------

void MyDocument::changeTask(int tag) {
    setSelectedTag(tag);
    view().taskChanged(tag, taskDescription(tag));
    generatePreviews();
}

void MyDocument::generatePreviews() {
    startThread([this] { generatePreviewsOnThread(); });
}

void MyDocument::generatePreviewsOnThread() {
    m_previews->run();
}

std::optional<TaskFailure> MyDocument::lastPreviewFailure() const {
    return m_previews->lastFailure();
}

void MyDocument::setPreviewMatchBudget(TaskRun::Nanoseconds budget, TaskRun::Clock clock) {
    m_previews->setMatchBudget(budget, std::move(clock));
}

namespace {
// A preview name by reference, with its hash taken once.
struct NameKey {
    const QString* name;
    size_t hash;
    bool operator==(const NameKey& other) const { return *name == *other.name; }
};
size_t qHash(const NameKey& key, size_t) {
    return key.hash;
}
} // namespace

void MyDocument::checkForConflicts() {
    // Neighbours after a case-sensitive stable sort by preview name are
    // compared by full path; flags are set here, never cleared. Neighbours
    // with the same name are consecutive same-name items in list order, and
    // with equal names equal paths mean equal folders: one hash look-up per
    // item finds the same pairs as the sort. Different names cannot share a
    // path unless a name holds a "/"; then the sort is done for real.
    const FileList files = fileArray();
    const qsizetype count = files.size();
    std::atomic<bool> any = false;
    auto flag = [&any](const FileItemPtr& a, const FileItemPtr& b) {
        a->setIsConflicting(true);
        b->setIsConflicting(true);
        any = true;
    };

    // The previews' names, folders and name hashes, gathered in two halves.
    FileList previews(count);
    QStringList names(count), dirs(count);
    std::vector<size_t> hashes(static_cast<size_t>(count));
    std::atomic<bool> slashInName = false;
    inTwoHalves(count, kTwoHalvesMinimum, [&](qsizetype from, qsizetype to) {
        for (qsizetype i = from; i < to && !slashInName.load(std::memory_order_relaxed); ++i) {
            previews[i] = files[i]->previewObject();
            if (!previews[i]) continue;
            names[i] = previews[i]->fileName();
            dirs[i] = previews[i]->containerDir();
            hashes[static_cast<size_t>(i)] = qHash(names[i], QHashSeed::globalSeed());
            if (names[i].contains(u'/')) slashInName = true;
        }
    });

    if (!slashInName) {
        // Equal names have equal hashes, so the items split by the hash's top
        // bit into two parts that share no name, each searched on its own.
        const size_t parts = count >= kTwoHalvesMinimum ? 2 : 1;
        constexpr int kTopBit = std::numeric_limits<size_t>::digits - 1;
        inTwoHalves(static_cast<qsizetype>(parts), 2, [&](qsizetype from, qsizetype to) {
            for (auto part = static_cast<size_t>(from); part < static_cast<size_t>(to); ++part) {
                QHash<NameKey, qsizetype> lastWithName; // position + 1 of the last item
                lastWithName.reserve(count / static_cast<qsizetype>(parts));
                for (qsizetype i = 0; i < count; ++i) {
                    const size_t hash = hashes[static_cast<size_t>(i)];
                    if (!previews[i] || (parts == 2 && (hash >> kTopBit) != part)) continue;
                    qsizetype& last = lastWithName[NameKey{&names[i], hash}];
                    if (last > 0 && dirs[last - 1] == dirs[i])
                        flag(previews[last - 1], previews[i]);
                    last = i + 1;
                }
            }
        });
    } else {
        const FileList sorted = sortFilesByPreviewFilename();
        for (qsizetype k = 1; k < sorted.size(); ++k) {
            const FileItemPtr a = sorted[k - 1]->previewObject();
            const FileItemPtr b = sorted[k]->previewObject();
            if (a && b && a->fullPath() == b->fullPath()) flag(a, b);
        }
    }
    if (any) view().reloadTable(true);
}

void MyDocument::process() {
    int changed = 0;
    for (const FileItemPtr& item : fileArray()) {
        const FileItemPtr preview = item->previewObject();
        const QString previewName =
            preview ? QXFileItem::lastPathComponent(preview->fileName()) : QString();
        if (QXFileItem::lastPathComponent(item->fileName()) != previewName) ++changed;
    }
    if (changed == 0) {
        view().alert({QStringLiteral("No files need renaming"),
                      QStringLiteral("You have not made any changes to the filenames."), QString(),
                      QString(), QString(), AlertRequest::Parent::MainWindow, true});
        return;
    }
    const QString message = QStringLiteral("Are you sure you wish to rename %1 file%2?")
                                .arg(changed)
                                .arg(changed == 1 ? QString() : QStringLiteral("s"));
    const int answer =
        view().alert({message, QStringLiteral("This cannot be undone."), QStringLiteral("Rename"),
                      QStringLiteral("Cancel"), QString(), AlertRequest::Parent::MainWindow, true});
    if (answer != DocumentView::AlertDefault) return;
    startThread([this, changed] { startProcessing(changed); });
}
