// The file table at scale, on the offscreen platform: a tree of 100,000 files
// (100 folders of 1,000 frames) dropped on a document window, against seqmate-cli adding
// and previewing the same tree in the same run. Reports the time until the
// table shows every row (and every new name), the longest main-thread stall
// seen by a 5 ms heartbeat, the time to paint each page while scrolling top to
// bottom, and the heap per item beyond the engine's own.
#include "BenchWindow.h"
#include "Heartbeat.h"
#include "QXLog.h"

#include <QApplication>
#include <QDir>
#include <QDropEvent>
#include <QElapsedTimer>
#include <QMimeData>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gperftools/malloc_extension_c.h>
#include <spawn.h>
#include <sys/wait.h>
#include <vector>

extern char** environ;

namespace {
constexpr int kFolders = 100, kFrames = 1000, kFiles = kFolders * kFrames;

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

void buildTree(const QString& root) {
    for (int f = 0; f < kFolders; ++f) {
        const std::string dir =
            QString(root + QStringLiteral("/shot%1").arg(f, 3, 10, QLatin1Char('0'))).toStdString();
        std::filesystem::create_directories(dir);
        for (int i = 1; i <= kFrames; ++i) {
            char name[64];
            std::snprintf(name, sizeof name, "/plate_v%02d.%04d.exr", f % 7, i);
            if (FILE* fp = std::fopen((dir + name).c_str(), "w")) std::fclose(fp);
        }
    }
}

// Bytes the program has allocated and not freed (the command line's
// allocator, linked here too, so that both run on the same one).
long long heapInUse() {
    size_t bytes = 0;
    MallocExtension_GetNumericProperty("generic.current_allocated_bytes", &bytes);
    return static_cast<long long>(bytes);
}

// One run of the command line with the window's task: its wall time. (Its
// peak RSS would include this program's: a child's count starts before exec.)
double runCli(const QString& path) {
    const std::string cli = SEQMATE_CLI_PATH, target = path.toStdString();
    std::vector<std::string> args = {cli, "-t", "prefix", "-s", "prefix=x_", target};
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t io;
    posix_spawn_file_actions_init(&io);
    posix_spawn_file_actions_addopen(&io, 1, "/dev/null", O_WRONLY, 0);
    QElapsedTimer clock;
    clock.start();
    pid_t pid = 0;
    if (posix_spawn(&pid, cli.c_str(), &io, nullptr, argv.data(), environ) != 0) {
        std::fprintf(stderr, "gui_bench: cannot start %s\n", cli.c_str());
        std::exit(1);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    const double ms = double(clock.nsecsElapsed()) / 1e6;
    posix_spawn_file_actions_destroy(&io);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "gui_bench: seqmate-cli failed\n");
        std::exit(1);
    }
    return ms;
}

void waitUntil(const char* what, const std::function<bool()>& done) {
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 50);
        if (clock.elapsed() > 600'000) {
            std::fprintf(stderr, "gui_bench: gave up waiting until %s\n", what);
            std::exit(1);
        }
    }
}

// A drop of the tree from a file manager, through the table's own drop path.
void dropOn(QTableView* table, const QString& path) {
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(path)});
    QWidget* target = table->viewport();
    const QPointF at(20, 20);
    QDragEnterEvent enter(at.toPoint(), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &enter);
    QDragMoveEvent move(at.toPoint(), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &move);
    QDropEvent drop(at, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &drop);
    if (!enter.isAccepted() || !drop.isAccepted()) {
        std::fprintf(stderr, "gui_bench: the table refused the drop\n");
        std::exit(1);
    }
}

struct GuiRun {
    double rowsMs = 0, previewMs = 0, stallMs = 0;
    long long heapBytes = 0, heapBeforeScrollBytes = 0;
};

GuiRun runWindow(const QString& root, std::vector<double>* pageMs) {
    GuiRun run;
    const long long before = heapInUse();
    {
        BenchWindow window;
        window.document().setFieldText(QStringLiteral("prefixField"), QStringLiteral("x_"));
        window.document().setSelectedTag(12); // add a prefix: the command line's task
        QTableView* table = window.table();
        FileTableModel* model = window.model();
        QCoreApplication::processEvents();

        Heartbeat heartbeat;
        QElapsedTimer clock;
        heartbeat.start();
        clock.start();
        dropOn(table, root);
        waitUntil("every row is shown", [&] { return model->rowCount() == kFiles; });
        table->viewport()->repaint();
        run.rowsMs = double(clock.nsecsElapsed()) / 1e6;
        waitUntil("every new name is shown", [&] {
            const QString last = model->index(kFiles - 1, 0).data().toString();
            return window.previewDone() &&
                   model->index(kFiles - 1, 1).data().toString() == QStringLiteral("x_") + last;
        });
        table->viewport()->repaint();
        run.previewMs = double(clock.nsecsElapsed()) / 1e6;
        run.stallMs = heartbeat.longestMs();
        run.heapBeforeScrollBytes = heapInUse() - before;

        if (pageMs) {
            QScrollBar* bar = table->verticalScrollBar();
            table->scrollToTop();
            table->viewport()->repaint();
            while (bar->value() < bar->maximum()) {
                QElapsedTimer page;
                page.start();
                bar->triggerAction(QAbstractSlider::SliderPageStepAdd);
                table->viewport()->repaint();
                pageMs->push_back(double(page.nsecsElapsed()) / 1e6);
            }
        }
        run.heapBytes = heapInUse() - before;
    }
    QCoreApplication::processEvents();
    return run;
}

// The stall baseline: the same add and preview with no window, the main
// thread running only the heartbeat. What it sees is the workers' and the
// machine's share of the cores, not work done on the main thread.
double heartbeatWithoutWindow(const QString& root) {
    struct PreviewEnd : NullDocumentView {
        std::atomic<bool> done{false};
        void setSpinner(Spinner which, bool running) override {
            if (which == Spinner::Preview && !running) done = true;
        }
    } view;
    MyDocument doc(&view);
    doc.setFieldText(QStringLiteral("prefixField"), QStringLiteral("x_"));
    doc.setSelectedTag(12);
    Heartbeat heartbeat;
    heartbeat.start();
    doc.addItemsInBackground({root});
    waitUntil("the engine's preview ends", [&] { return view.done.load(); });
    return heartbeat.longestMs();
}

// The engine alone doing what the command line does: add, preview, read.
long long engineHeapBytes(const QString& root) {
    const long long before = heapInUse();
    long long bytes = 0;
    {
        MyDocument doc;
        doc.setFieldText(QStringLiteral("prefixField"), QStringLiteral("x_"));
        doc.setSelectedTag(12);
        doc.addFileToList(root);
        doc.generatePreviewsOnThread();
        bytes = heapInUse() - before;
    }
    return bytes;
}
} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
    QTemporaryDir tmp(QDir::currentPath() + QStringLiteral("/gui-bench-XXXXXX"));
    const QString root = tmp.path();
    std::printf("building %d files under %s ...\n", kFiles, qPrintable(root));
    buildTree(root);
    QXLog::createNewLog(QStringLiteral("SeqmateBench"));
    runCli(root); // warm the file system cache for both

    std::vector<double> cli, rows, previews, stalls, baseStalls, paired, pages;
    long long heap = 0, heapBeforeScroll = 0;
    for (int r = 0; r < rounds; ++r) {
        const double c = runCli(root);
        const GuiRun g = runWindow(root, r == rounds - 1 ? &pages : nullptr);
        cli.push_back(c);
        baseStalls.push_back(heartbeatWithoutWindow(root));
        rows.push_back(g.rowsMs);
        previews.push_back(g.previewMs);
        stalls.push_back(g.stallMs);
        paired.push_back(g.previewMs / c);
        heap = g.heapBytes;
        heapBeforeScroll = g.heapBeforeScrollBytes;
        std::printf("round %d: cli %.0f ms, rows shown %.0f ms, new names shown %.0f ms, "
                    "longest stall %.1f ms (%.1f ms without a window)\n",
                    r + 1, c, g.rowsMs, g.previewMs, g.stallMs, baseStalls.back());
    }
    const long long engine = engineHeapBytes(root);

    const double mc = median(cli), mr = median(rows), mp = median(previews);
    std::printf("seqmate-cli add + preview + print: median %8.0f ms\n", mc);
    std::printf("table shows every row:             median %8.0f ms (%.2fx the command line)\n", mr,
                mr / mc);
    std::printf("table shows every new name:        median %8.0f ms (%.2fx; paired median "
                "%.2fx; target within 1.5x)\n",
                mp, mp / mc, median(paired));
    std::printf("longest main-thread stall: median %.1f ms, worst %.1f ms (target under 50 ms); "
                "without a window: median %.1f ms, worst %.1f ms\n",
                median(stalls), *std::max_element(stalls.begin(), stalls.end()), median(baseStalls),
                *std::max_element(baseStalls.begin(), baseStalls.end()));
    if (!pages.empty()) {
        const auto over =
            std::count_if(pages.begin(), pages.end(), [](double p) { return p > 16; });
        std::vector<double> sorted = pages;
        std::sort(sorted.begin(), sorted.end());
        std::printf("scrolling %d rows a page at a time: %zu pages, median %.2f ms, 99th %.2f ms, "
                    "worst %.2f ms, %lld over 16 ms (target none)\n",
                    kFiles, pages.size(), median(pages), sorted[sorted.size() * 99 / 100],
                    sorted.back(), static_cast<long long>(over));
    }
    // After scrolling, the window's caches (pixmaps, glyphs) are in the count
    // too: a fixed cost, shown here spread over the items.
    std::printf("heap per item: window %.0f bytes before scrolling and %.0f after, engine alone "
                "%.0f bytes: %.0f and %.0f bytes beyond the command line's engine\n",
                double(heapBeforeScroll) / kFiles, double(heap) / kFiles, double(engine) / kFiles,
                double(heapBeforeScroll - engine) / kFiles, double(heap - engine) / kFiles);
    return 0;
}
