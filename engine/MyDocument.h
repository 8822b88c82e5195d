#pragma once

#include "DocumentView.h"
#include "QXFileItem.h"
#include "SettingsForm.h"
#include "TaskRun.h"

#include <QMutex>
#include <QStringList>
#include <QVariantMap>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>

class PreviewPipeline;
class FileIndex;

// One batch: the ordered list of file items, the selected task and its
// settings form, the preview pool and the commit. The engine side of the
// document window; everything shown goes through DocumentView.
class MyDocument {
public:
    explicit MyDocument(DocumentView* view = nullptr);
    // Cancels the preview work and waits for every thread the document started.
    ~MyDocument();
    MyDocument(const MyDocument&) = delete;
    MyDocument& operator=(const MyDocument&) = delete;

    void setView(DocumentView* view);
    DocumentView& view() const;

    // ---- the file list ----------------------------------------------------
    FileList fileArray() const; // a snapshot, in table order
    qsizetype fileCount() const;
    void setFileArray(const FileList& files);
    void addFileToList(const QString& path) { addFileToList(path, true, false); }
    void addFileToList(const QString& path, bool verifyUnique, bool preserveFolders);
    // Adds paths in order (on the calling thread), then reloads, logs
    // "%i item(s) added" with the list's total and starts a preview.
    void addItemsOnThread(const QStringList& paths);
    // Starts addItemsOnThread on a thread of its own and returns at once.
    void addItemsInBackground(const QStringList& paths);
    // The folders-only chooser's end: each folder becomes one item.
    void importFolders(const QStringList& paths);
    FileItemPtr fileInQueue(const QString& path) const;
    void remove(const QList<int>& rows);
    FileList sortFilesByPreviewFilename() const;
    FileList sortFilesByFrameOrder() const;
    // Reorders the list itself by name in natural order (shot.2 before
    // shot.10): by what the file-name column shows, the full path when
    // "showFullSourcePaths" is on, else the file name with its folder breaking
    // ties. Stable; reloads the table and clears the selection.
    void sortByName(bool descending = false);
    static std::optional<FileList> reverseArray(const FileList& files);
    // The commit re-keys the look-up index after it renames an item; position,
    // when known, spares looking the item up.
    void noteItemPathChanged(const QXFileItem* item, const QString& oldFullPath, int position = -1);
    // Waits until every background add started by this document has ended.
    void waitForAdds();
    // Folder entries left out so far because their names are not valid UTF-8
    // (each is in the log); a front end tells the user how many.
    qsizetype skippedNameCount() const { return m_skippedNames.load(); }

    // ---- the table --------------------------------------------------------
    enum class Column { Filename, Preview };
    int numberOfRows() const { return static_cast<int>(fileCount()); }
    FileItemPtr itemAt(int row) const; // null outside the list
    QString objectValue(Column column, int row) const;
    // The same with the "showFullSourcePaths" choice given: a table that
    // repaints often reads the default once, not once per cell.
    QString objectValue(Column column, int row, bool fullPaths) const;
    // Whether the row shows the caution: its proposed name is another's too,
    // or it is not a file name at all (the tool tip says which).
    bool rowIsConflicting(int row) const;
    QString toolTip(int row) const; // empty: none
    static QString conflictToolTip();
    void enableDisableRenameButton();
    // The row-move algorithm of a drop inside the table: the new order as
    // indexes into the old list.
    static QList<int> moveRows(int count, const QList<int>& rows, int dropRow);
    bool acceptRowDrop(const QList<int>& rows, int dropRow);
    // Dropped file names: added on a thread of their own.
    bool acceptFileDrop(const QVariant& propertyList);

    // ---- settings ---------------------------------------------------------
    SettingsForm settingsForm() const;
    void setSettingsForm(const SettingsForm& form);
    int selectedTag() const;
    void setSelectedTag(int tag);
    void setFieldText(const QString& outlet, const QString& text);
    void setCheckState(const QString& outlet, int state);
    void setTokens(const QVariantList& tokens);
    QVariantMap dictionaryFromSettings() const;
    void setSettingsFromDictionary(const QVariantMap& settings);
    // The settings keys of a task, in the order the batch file lists them.
    static QStringList settingKeys(int tag);
    // The form entry behind a task's settings key: its outlet, and whether it
    // is a check box (else a text field). Null outlet when the task has no such key.
    struct SettingField {
        QString outlet;
        bool isCheck = false;
    };
    static SettingField settingField(int tag, const QString& key);

    // ---- batch files ------------------------------------------------------
    bool writeToURL(const QString& path) const;
    // Never fails: a file that is not a batch gives an empty batch. problem,
    // when given, receives why the file is not a batch file (empty when it is).
    bool readFromURL(const QString& path, QString* problem = nullptr);
    QVariantMap batchFileDict() const;
    // The window has loaded: apply a pending batch dictionary, then changeTask.
    void windowControllerDidLoadNib();

    // ---- tasks and previews -----------------------------------------------
    static QString taskDescription(int tag); // the blank panel's text, or empty
    static bool taskUsesFrameOrder(int tag);
    void changeTask(int tag);
    void generatePreviews(); // starts a thread; returns at once
    void generatePreviewsOnThread();
    void waitForPreviews(); // until every preview thread has finished
    // Why the last preview failed (a pattern that does not compile or runs
    // too long, a missing setting), for the front end to show beside the
    // setting; nullopt when it succeeded. Set before the preview reloads the
    // table; a superseded preview leaves it alone.
    std::optional<TaskFailure> lastPreviewFailure() const;
    // The time slow regular-expression matches of one preview may take
    // together before the task fails (a second unless set).
    void setPreviewMatchBudget(TaskRun::Nanoseconds budget, TaskRun::Clock clock = {});
    void checkForConflicts();
    void process(); // the Rename button
    // Runs the preview entry point of a tag on some files (false: none).
    bool runPreviewTask(int tag, const QVariantMap& settings, const FileList& files);
    // Runs the commit entry point of a tag (false for tags without one).
    bool runCommitTask(int tag, const QVariantMap& settings);

    // The task contract: for each item, reset its preview and edit the preview
    // (or edit the item when committing), synchronize previews, end a commit
    // with copyFiles; exceptions are logged under method and give false.
    // Item: each edit touches only its own item and reads nothing that
    // changes, so the edits of a large commit may run on two threads.
    enum class EditScope { List, Item };
    bool runTaskContract(const char* method, const QVariantMap& settings, const FileList& files,
                         const std::function<void(QXFileItem& target)>& edit,
                         bool reloadAtExit = true, EditScope scope = EditScope::List);
    static bool isPreview(const QVariantMap& settings);
    // The item a task edits: the freshly reset preview, or the item itself.
    static FileItemPtr taskTarget(const FileItemPtr& item, bool preview);

    // Case and character tasks
    bool processLowercase(const QVariantMap& s, const FileList& files);
    bool processUppercase(const QVariantMap& s, const FileList& files);
    bool processCapitalizeWords(const QVariantMap& s, const FileList& files);
    bool processConvertSpacesToUnderscores(const QVariantMap& s, const FileList& files);
    bool processStripNonAlphanumeric(const QVariantMap& s, const FileList& files);
    bool processRemoveTrailingSpaces(const QVariantMap& s, const FileList& files);
    bool processLowercaseFileExtension(const QVariantMap& s, const FileList& files);
    bool processUppercaseFileExtension(const QVariantMap& s, const FileList& files);
    static QString stripNonAlphanumeric(const QString& text); // the kept set is L, M and N
    // Affix, extension and character-range tasks
    bool processAddPrefix(const QVariantMap& s, const FileList& files);
    bool processAddSuffix(const QVariantMap& s, const FileList& files);
    bool processChangeFileExtension(const QVariantMap& s, const FileList& files);
    bool processRemoveFileExtension(const QVariantMap& s, const FileList& files);
    bool processInsertCharactersAtPosition(const QVariantMap& s, const FileList& files);
    bool processReplaceCharactersInRange(const QVariantMap& s, const FileList& files);
    bool processRemoveCharactersFromStart(const QVariantMap& s, const FileList& files);
    bool processRemoveCharactersFromEnd(const QVariantMap& s, const FileList& files);
    bool processRemoveCharacterRange(const QVariantMap& s, const FileList& files);
    // Find and replace
    bool processFindAndReplace(const QVariantMap& s, const FileList& files);
    // Frame-number tasks
    bool processReorderFrames(const QVariantMap& s, const FileList& files);
    bool processReverseNumbers(const QVariantMap& s, const FileList& files);
    bool processPadNumbers(const QVariantMap& s, const FileList& files);
    bool processCloseGaps(const QVariantMap& s, const FileList& files);
    bool processOffsetNumbers(const QVariantMap& s, const FileList& files);
    bool processRemoveFrameNumber(const QVariantMap& s, const FileList& files);
    // Conform to format
    bool processConform(const QVariantMap& s, const FileList& files);
    QVariant vacantFrameNumber() const;
    static QVariantList formatComponentsFromArray(const QVariantList& tokens);
    // The token list after inserting a kind token by its menu title.
    static QVariantList insertToken(const QVariantList& tokens, const QString& title);
    void insertToken(const QString& title); // on the form, then previews
    // Frame-gap check
    struct GapReport {
        QStringList gaps; // "2" or "2-4", in order
        QString messageText;
        QString informativeText;
    };
    std::optional<GapReport> checkFrameGaps(); // shows the alert; nullopt on exception

    // Commit entry points: the two-argument form on the whole list (frame
    // order for reverse, close gaps, offset and conform).
    bool processFindAndReplace(const QVariantMap& s);
    bool processConform(const QVariantMap& s);
    bool processOffsetNumbers(const QVariantMap& s);
    bool processCloseGaps(const QVariantMap& s);
    bool processPadNumbers(const QVariantMap& s);
    bool processReverseNumbers(const QVariantMap& s);
    bool processReorderFrames(const QVariantMap& s);
    bool processRemoveFrameNumber(const QVariantMap& s);
    bool processChangeFileExtension(const QVariantMap& s);
    bool processRemoveFileExtension(const QVariantMap& s);
    bool processAddPrefix(const QVariantMap& s);
    bool processAddSuffix(const QVariantMap& s);
    bool processRemoveCharactersFromStart(const QVariantMap& s);
    bool processRemoveCharactersFromEnd(const QVariantMap& s);
    bool processRemoveCharacterRange(const QVariantMap& s);
    bool processConvertSpacesToUnderscores(const QVariantMap& s);
    bool processStripNonAlphanumeric(const QVariantMap& s);
    bool processRemoveTrailingSpaces(const QVariantMap& s);
    bool processUppercase(const QVariantMap& s);
    bool processLowercase(const QVariantMap& s);
    bool processLowercaseFileExtension(const QVariantMap& s);
    bool processUppercaseFileExtension(const QVariantMap& s);
    bool processCapitalizeWords(const QVariantMap& s);
    bool processInsertCharactersAtPosition(const QVariantMap& s);
    bool processReplaceCharactersInRange(const QVariantMap& s);

    // ---- committing -------------------------------------------------------
    void startProcessing(int count);
    // Lets a commit take each item's new name from its preview instead of
    // editing the item again: for a caller that knows nothing changed since
    // generatePreviewsOnThread() returned (the command line, between the
    // table it printed and the commit). The names renamed are then exactly
    // the ones shown. It holds only for tasks whose edits touch each item on
    // its own, after a preview of the selected task in which every batch
    // succeeded; any other commit runs the task again.
    void setCommitFromPreviews(bool on) { m_commitFromPreviews.store(on); }
    bool copyFiles();
    void updateFilesInFolder(const QString& oldFolder, const QString& newFolder);
    void startProgress();
    void incrementProgress();
    void endProgress();
    void cancelProgress() { m_processingCancelled.store(true); }
    bool processingCancelled() const { return m_processingCancelled.load(); }
    // The old names that the last commit could not rename, in order.
    QStringList lastFailedNames() const;
    // The rename journal of the last commit (empty when none was written).
    QString lastJournalPath() const;
    // A batch file that stood at another's new name and was moved to a dated
    // name (the item carries that name even when the move failed).
    struct MovedAside {
        QString from;   // where it stood
        QString to;     // its dated name
        QString wanted; // the name it was to get itself
        QString error;  // empty: moved; else why it stayed at from
    };
    // How the last commit ended beyond its failures: whether it went through
    // the whole list, and how many batch files it moved out of another's way.
    // When it did and moved none aside, every file is renamed or failed.
    struct CommitSummary {
        bool reachedEnd = false;
        int movedAside = 0;
        int renamed = 0;
        QList<MovedAside> asides; // in the order they happened
        // The rename journal could not be created (nothing moved) or written
        // (the run stopped before the next move): why. The files after that
        // point are neither renamed nor counted as failed.
        QString journalError;
        // The report's lines: each failed name, with where its file is now
        // when that is not under that name.
        QStringList failureLines;
    };
    CommitSummary lastCommitSummary() const;

private:
    friend class PreviewPipeline;
    friend class CommitRunner;
    friend class FolderWalker;
    void addPathLocked(const QString& path, bool verifyUnique, bool preserveFolders);
    void appendItemLocked(FileItemPtr item);
    void rebuildIndexLocked() const;
    QString rowNameProblemLocked(int row) const; // why the preview's name is no file name
    // The index, rebuilt first when a commit left it stale.
    FileIndex& indexLocked() const;
    void startThread(std::function<void()> work);

    DocumentView* m_view = nullptr;
    mutable QMutex m_mutex; // guards the list, its index, the form and the batch dictionary
    FileList m_files;
    std::unique_ptr<FileIndex> m_index;
    // Set by a commit, which renames most of the list: one rebuild at the next
    // look-up costs less than keeping the index up to date rename by rename.
    mutable bool m_indexStale = false;
    SettingsForm m_form;
    QVariantMap m_batchFileDict;
    std::unique_ptr<PreviewPipeline> m_previews;
    std::atomic<qsizetype> m_skippedNames{0};
    std::atomic<bool> m_processingCancelled{false};
    std::atomic<bool> m_commitFromPreviews{false};
    mutable QMutex m_commitMutex; // guards the commit results below
    QStringList m_failedNames;
    QString m_journalPath;
    CommitSummary m_commitSummary;
    struct Threads;
    std::unique_ptr<Threads> m_threads;
};
