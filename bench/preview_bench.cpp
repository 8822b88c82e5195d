// Previews of 100,000 items (lowercase, pad, regex find-and-replace with
// captures, conform), each with its conflict check, against a baseline that
// applies the same edit to the bare names in the same run.
#include "MyDocument.h"
#include "QXLog.h"

#include <QCoreApplication>
#include <QRegularExpression>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <malloc.h>
#include <sys/resource.h>
#include <unicode/uregex.h>
#include <vector>

namespace {
using Clock = std::chrono::steady_clock;

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

template <class F> double timeMs(F&& f) {
    const auto t0 = Clock::now();
    f();
    return std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
}

long maxRssKb() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

// What the baselines compute, printed at the end so no loop is optimised away.
size_t sink = 0;

void baselineLower(const QStringList& names) {
    for (const QString& n : names)
        sink += n.toLower().size();
}

void baselinePad(const QStringList& names) {
    for (const QString& n : names) {
        const qsizetype dot = n.lastIndexOf(u'.');
        qsizetype start = dot;
        while (start > 0 && n[start - 1].isDigit())
            --start;
        const QString padded =
            n.left(start) + n.mid(start, dot - start).rightJustified(6, u'0') + n.mid(dot);
        sink += padded.size();
    }
}

void baselineRegex(const QStringList& names) {
    UErrorCode status = U_ZERO_ERROR;
    const std::u16string pattern = u"(\\w+)\\.(\\d+)";
    const std::u16string replacement = u"$2_$1";
    URegularExpression* re = uregex_open(pattern.data(), -1, 0, nullptr, &status);
    std::vector<UChar> out(1024);
    for (const QString& n : names) {
        status = U_ZERO_ERROR;
        uregex_setText(re, reinterpret_cast<const UChar*>(n.utf16()),
                       static_cast<int32_t>(n.size()), &status);
        const int32_t len =
            uregex_replaceAll(re, replacement.data(), -1, out.data(), 1024, &status);
        sink += static_cast<size_t>(len);
    }
    uregex_close(re);
}

void baselineConform(const QStringList& names) {
    for (const QString& n : names) {
        const QStringList parts = n.split(u'.');
        sink += parts.join(u'.').size();
    }
}

struct Case {
    const char* name;
    int tag;
    std::function<void(MyDocument&)> setUp;
    std::function<void(const QStringList&)> baseline;
};
} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QXLog::createNewLog(QStringLiteral("SeqmateBench"));
    const int folders = 100, frames = 1000, rounds = 5;
    FileList items;
    QStringList names;
    items.reserve(folders * frames);
    for (int f = 0; f < folders; ++f)
        for (int i = 1; i <= frames; ++i) {
            const QString name =
                QStringLiteral("Plate_V%1.%2.EXR").arg(f % 7).arg(i, 4, 10, QLatin1Char('0'));
            items.append(
                QXFileItem::fileItemWithFile(QStringLiteral("/bench/shot%1/").arg(f) + name));
            names.append(name);
        }

    const Case cases[] = {
        {"lowercase", 21, [](MyDocument&) {}, baselineLower},
        {"pad", 5,
         [](MyDocument& d) { d.setFieldText(Outlet::padLengthField, QStringLiteral("6")); },
         baselinePad},
        {"find-replace (regex, captures)", 1,
         [](MyDocument& d) {
             d.setFieldText(Outlet::findStringField, QStringLiteral("(\\w+)\\.(\\d+)"));
             d.setFieldText(Outlet::replaceStringField, QStringLiteral("$2_$1"));
             d.setCheckState(Outlet::findRegExCheck, 1);
             d.setCheckState(Outlet::findMatchCaseCheck, 1);
         },
         baselineRegex},
        {"conform", 2,
         [](MyDocument& d) {
             d.setTokens({QStringLiteral("@@ Filename @@"), QStringLiteral("."),
                          QStringLiteral("@@ Frame Number @@"), QStringLiteral("."),
                          QStringLiteral("@@ File Extension @@")});
         },
         baselineConform},
    };

    std::printf("%-32s %12s %12s %8s %16s\n", "preview of 100,000 items", "median ms",
                "baseline ms", "ratio", "peak RSS/item");
    for (const Case& c : cases) {
        MyDocument doc;
        doc.setFileArray(items);
        c.setUp(doc);
        doc.setSelectedTag(c.tag);
        std::vector<double> whole, base;
        const long rssBefore = maxRssKb();
        for (int r = 0; r < rounds; ++r) {
            base.push_back(timeMs([&] { c.baseline(names); }));
            whole.push_back(timeMs([&] { doc.generatePreviewsOnThread(); }));
        }
        const long rssGrowth = maxRssKb() - rssBefore;
        if (qEnvironmentVariableIsSet("SEQMATE_BENCH_DETAIL")) {
            std::printf("  conflicts %.1f ms, frame order %.1f ms, list copy %.1f ms\n",
                        timeMs([&] { doc.checkForConflicts(); }),
                        timeMs([&] { (void)doc.sortFilesByFrameOrder(); }),
                        timeMs([&] { (void)doc.fileArray(); }));
        }
        std::printf("%-32s %12.1f %12.1f %8.2f %13.0f B\n", c.name, median(whole), median(base),
                    median(whole) / median(base),
                    double(rssGrowth) * 1024.0 / double(items.size()));
    }
    std::printf("targets: each ratio within 10x; under 1 KiB of transient memory per item\n");
    std::printf("(baseline checksum %zu)\n", sink);
    return 0;
}
