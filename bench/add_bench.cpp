// Adding a tree of 100,000 files (100 folders of 1,000-frame sequences) to a
// batch, against a plain recursive directory walk of the same tree.
#include "MyDocument.h"
#include "QXLog.h"

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <malloc.h>
#include <vector>

namespace {
using Clock = std::chrono::steady_clock;

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

void buildTree(const QString& root, int folders, int frames) {
    for (int f = 0; f < folders; ++f) {
        const std::string dir =
            QString(root + QStringLiteral("/shot%1").arg(f, 3, 10, QLatin1Char('0'))).toStdString();
        std::filesystem::create_directories(dir);
        for (int i = 1; i <= frames; ++i) {
            char name[64];
            std::snprintf(name, sizeof name, "/plate_v%02d.%04d.exr", f % 7, i);
            FILE* fp = std::fopen((dir + name).c_str(), "w");
            if (fp) std::fclose(fp);
        }
    }
}

size_t plainWalk(const std::string& root) {
    std::vector<std::string> paths;
    for (const auto& e : std::filesystem::recursive_directory_iterator(root))
        if (e.is_regular_file()) paths.push_back(e.path().string());
    return paths.size();
}

size_t heapInUse() {
    return mallinfo2().uordblks;
}
} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const int folders = 100, frames = 1000, rounds = 5;
    QTemporaryDir tmp(QDir::currentPath() + QStringLiteral("/add-bench-XXXXXX"));
    const QString root = tmp.path();
    std::printf("building %d files under %s ...\n", folders * frames, qPrintable(root));
    buildTree(root, folders, frames);
    QXLog::createNewLog(QStringLiteral("SeqmateBench"));

    std::vector<double> walk, add;
    size_t walked = 0;
    long long added = 0, extraBytes = 0, nameBytes = 0;
    plainWalk(root.toStdString()); // warm the cache once for both
    for (int r = 0; r < rounds; ++r) {
        auto t0 = Clock::now();
        walked = plainWalk(root.toStdString());
        walk.push_back(std::chrono::duration<double, std::milli>(Clock::now() - t0).count());

        malloc_trim(0);
        const size_t before = heapInUse();
        auto doc = std::make_unique<MyDocument>();
        t0 = Clock::now();
        doc->addFileToList(root);
        add.push_back(std::chrono::duration<double, std::milli>(Clock::now() - t0).count());
        const size_t after = heapInUse();
        added = doc->fileCount();
        // The names themselves: each file name's string (16-byte header, UTF-16
        // text and terminator, rounded to the allocator's 16 bytes, plus its
        // 8-byte chunk header) and each folder's, shared by its items.
        nameBytes = 0;
        for (const auto& item : doc->fileArray()) {
            const long long len = item->fileName().size();
            nameBytes += ((16 + 2 * (len + 1) + 15) / 16) * 16 + 8;
        }
        nameBytes += folders * (((16 + 2 * (root.size() + 8) + 15) / 16) * 16 + 8);
        extraBytes = static_cast<long long>(after - before) - nameBytes;
    }
    const double mw = median(walk), ma = median(add);
    std::printf("plain walk:   median %8.1f ms for %zu files\n", mw, walked);
    std::printf("add to batch: median %8.1f ms for %lld items\n", ma, added);
    std::printf("ratio add/walk: %.2f (target: within 3x)\n", ma / mw);
    std::printf("memory per item beyond the names: %.0f bytes (target: under 200); names: %.0f "
                "bytes/item\n",
                double(extraBytes) / double(added), double(nameBytes) / double(added));
    return 0;
}
