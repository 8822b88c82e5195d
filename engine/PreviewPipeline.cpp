#include "PreviewPipeline.h"

#include "MyDocument.h"
#include "QXException.h"

#include <QThread>
#include <QWaitCondition>
#include <algorithm>
#include <memory>

PreviewPipeline::PreviewPipeline(MyDocument& doc) : m_doc(doc) {
    // More threads than cores only take turns (and each warms its own caches).
    m_pool.setMaxThreadCount(std::clamp(QThread::idealThreadCount(), 1, kMaxConcurrent));
}

PreviewPipeline::~PreviewPipeline() {
    cancelAll();
    m_pool.waitForDone();
}

void PreviewPipeline::cancelAll() {
    QMutexLocker lock(&m_completeMutex);
    ++m_generation;
    m_completeTag.store(0);
    m_pool.clear();
}

void PreviewPipeline::forgetComplete() {
    QMutexLocker lock(&m_completeMutex);
    m_completeTag.store(0);
}

std::optional<TaskFailure> PreviewPipeline::lastFailure() const {
    QMutexLocker lock(&m_failureMutex);
    return m_lastFailure;
}

void PreviewPipeline::setMatchBudget(TaskRun::Nanoseconds budget, TaskRun::Clock clock) {
    QMutexLocker lock(&m_failureMutex);
    m_matchBudget = budget;
    m_clock = std::move(clock);
}

void PreviewPipeline::waitForDone() {
    m_pool.waitForDone();
}

QList<QPair<int, int>> PreviewPipeline::batches(int count) {
    QList<QPair<int, int>> out;
    if (count <= 0) return out;
    const int batchCount = count > kBatchSize ? count / kBatchSize : 1;
    for (int i = 0; i < batchCount; ++i) {
        const int start = i * kBatchSize;
        const int size = (i == batchCount - 1) ? count - (batchCount - 1) * kBatchSize : kBatchSize;
        out.append({start, size});
    }
    return out;
}

namespace {
// The batches of one run still queued or running. Each run waits for its own
// batches, never for the whole pool: with two runs at once (a keystroke
// superseding a preview), QThreadPool::waitForDone's reset of the pool can
// leave queued batches with no thread to run them, and both runs waiting.
struct PendingBatches {
    QMutex mutex;
    QWaitCondition allDone;
    int left = 0;
};
// Held by a batch's job: released when the job has run, or when a newer run
// clears it from the queue unrun.
struct BatchToken {
    explicit BatchToken(std::shared_ptr<PendingBatches> p) : pending(std::move(p)) {}
    BatchToken(const BatchToken&) = delete;
    BatchToken& operator=(const BatchToken&) = delete;
    std::shared_ptr<PendingBatches> pending;
    ~BatchToken() {
        QMutexLocker lock(&pending->mutex);
        if (--pending->left == 0) pending->allDone.wakeAll();
    }
};
} // namespace

void PreviewPipeline::run() {
    if (m_doc.fileCount() == 0) {
        QMutexLocker lock(&m_failureMutex);
        m_lastFailure.reset(); // nothing to preview, nothing that failed
        return;
    }
    DocumentView& view = m_doc.view();
    view.setSpinner(DocumentView::Spinner::Preview, true);

    cancelAll(); // a new preview supersedes the old
    const quint64 generation = m_generation.load();

    QVariantMap settings = m_doc.dictionaryFromSettings();
    settings.insert(QStringLiteral("preview"), true);
    const int tag = m_doc.selectedTag();
    const FileList items =
        MyDocument::taskUsesFrameOrder(tag) ? m_doc.sortFilesByFrameOrder() : m_doc.fileArray();

    const auto bounds = batches(static_cast<int>(items.size()));
    const bool previewable = tag > 0 && tag <= 26 && tag != 8; // 8 has no preview entry point
    std::atomic<bool> failed = !previewable;
    // One budget and one failure for all the batches of this run.
    std::optional<TaskRun> taskRun;
    {
        QMutexLocker lock(&m_failureMutex);
        taskRun.emplace(m_matchBudget, m_clock);
    }
    const auto pending = std::make_shared<PendingBatches>();
    for (qsizetype i = 0; previewable && i < bounds.size(); ++i) {
        if (tag == 7 && i > 0) {
            // Each renumbering batch continues where the previous one ends.
            const quint64 start = settings.value(QStringLiteral("startFrame")).toULongLong();
            settings.insert(QStringLiteral("startFrame"),
                            QVariant::fromValue<qulonglong>(start + kBatchSize));
        }
        const QVariantMap batchSettings = settings; // the settings as they are now
        const FileList batch = items.mid(bounds[i].first, bounds[i].second);
        {
            QMutexLocker lock(&pending->mutex);
            ++pending->left;
        }
        auto token = std::make_shared<BatchToken>(pending);
        m_pool.start([this, generation, tag, batchSettings, batch, &failed, &taskRun, token] {
            if (m_generation.load() != generation) return; // cancelled while queued
            const TaskRun::Scope scope(&*taskRun);
            if (!m_doc.runPreviewTask(tag, batchSettings, batch)) failed = true;
        });
    }
    {
        QMutexLocker lock(&pending->mutex);
        while (pending->left > 0)
            pending->allDone.wait(&pending->mutex);
    }
    {
        QMutexLocker lock(&m_completeMutex);
        const bool current = m_generation.load() == generation;
        if (!failed && current) m_completeTag.store(tag);
        if (current) {
            std::optional<TaskFailure> failure;
            if (failed && previewable) {
                // Every false has a reason to show, even one a task did not give.
                failure = taskRun->failure().value_or(TaskFailure{
                    QStringLiteral("the task failed; the log has the details"), QString(), -1});
            }
            QMutexLocker failureLock(&m_failureMutex);
            m_lastFailure = failure;
        }
    }

    m_doc.checkForConflicts();
    view.setSpinner(DocumentView::Spinner::Preview, false);
    view.reloadTable(true);
    m_doc.enableDisableRenameButton();
}
