#include "FileTableModel.h"
#include "AppTest.h"
#include "MyDocument.h"
#include "QXLocalPaths.h"
#include "QXLog.h"
#include "TempTree.h"

#include <QAbstractItemModelTester>
#include <QMimeData>
#include <QSettings>
#include <QSignalSpy>
#include <QThread>
#include <QUrl>

#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {
// Reloads run on the main thread, as the window's bridge runs them. Posted
// without waiting: a test that waits on a worker must not deadlock with it.
class ModelView : public NullDocumentView {
public:
    FileTableModel* model = nullptr;
    void reloadTable(bool) override {
        FileTableModel* m = model;
        if (QThread::currentThread() == m->thread()) return m->reload();
        QMetaObject::invokeMethod(
            m, [m] { m->reload(); }, Qt::QueuedConnection);
    }
};

QString column(const QAbstractItemModel& m, int col) {
    QStringList out;
    for (int r = 0; r < m.rowCount(); ++r)
        out.append(m.index(r, col).data().toString());
    return out.join(u' ');
}

std::unique_ptr<QMimeData> urls(const QList<QUrl>& list) {
    auto data = std::make_unique<QMimeData>();
    data->setUrls(list);
    return data;
}
} // namespace

class FileTableModelTest : public QObject {
    Q_OBJECT

    ModelView view;
    std::unique_ptr<MyDocument> doc;
    std::unique_ptr<FileTableModel> model;
    std::unique_ptr<QAbstractItemModelTester> tester;
    std::unique_ptr<QSignalSpy> resets;

    void add(const QStringList& paths) {
        for (const QString& p : paths)
            doc->addFileToList(p);
        model->reload();
    }

private slots:
    void initTestCase() {
        // Adds write to the log: an ordinary user's, inside the private home.
        QXLocalPaths::setUserIdForTesting(1000);
        QXLog::createNewLog(u"Seqmate"_s);
    }
    void cleanupTestCase() { QXLog::finishWriting(); }
    void init() {
        doc = std::make_unique<MyDocument>(&view);
        model = std::make_unique<FileTableModel>(*doc);
        view.model = model.get();
        tester = std::make_unique<QAbstractItemModelTester>(
            model.get(), QAbstractItemModelTester::FailureReportingMode::QtTest);
        resets =
            std::make_unique<QSignalSpy>(model.get(), &QAbstractItemModel::modelAboutToBeReset);
    }
    void cleanup() {
        doc->waitForPreviews();
        QCOMPARE(resets->count(), 0); // rows come and go, the model never resets
        tester.reset();
        model.reset();
        doc.reset();
        QSettings(u"Corvane"_s, u"Seqmate"_s).remove(u"showFullSourcePaths"_s);
    }

    void valuesIconsAndToolTips() {
        TempTree t;
        add({t.file(u"s/a.0001.exr"_s), t.file(u"s/a.0002.exr"_s), t.file(u"notes.txt"_s)});
        doc->importFolders({t.dir(u"plates"_s)});
        QCOMPARE(column(*model, 0), u"a.0001.exr a.0002.exr notes.txt plates"_s);

        // Each file shows its type's icon; a new name shows none unless it conflicts.
        auto icon = [&](int row, int col) {
            return model->index(row, col).data(Qt::DecorationRole);
        };
        QVERIFY(!icon(0, 0).value<QIcon>().isNull());
        QVERIFY(!icon(0, 1).isValid());
        QVERIFY(!model->index(0, 1).data(Qt::ToolTipRole).isValid());

        doc->itemAt(1)->previewObject()->setIsConflicting(true);
        const QImage caution = QImage(u":/caution.png"_s).convertToFormat(QImage::Format_ARGB32);
        QVERIFY(!caution.isNull());
        QCOMPARE(
            icon(1, 1).value<QIcon>().pixmap(16).toImage().convertToFormat(QImage::Format_ARGB32),
            caution);
        for (int col : {0, 1})
            QCOMPARE(model->index(1, col).data(Qt::ToolTipRole), MyDocument::conflictToolTip());
        QCOMPARE(model->index(1, 1).data(Qt::AccessibleDescriptionRole),
                 MyDocument::conflictToolTip());

        QSignalSpy changed(model.get(), &QAbstractItemModel::dataChanged);
        QSettings(u"Corvane"_s, u"Seqmate"_s).setValue(u"showFullSourcePaths"_s, 1);
        model->displayOptionsChanged();
        QCOMPARE(changed.count(), 1); // the view repaints the names
        QCOMPARE(model->index(2, 0).data().toString(), t(u"notes.txt"_s));
        model->previewsChanged();
        QCOMPARE(changed.count(), 2);
    }

    void fileDropsTakeLocalFilesOnly() {
        TempTree t;
        const QString file = t.file(u"a.0001.exr"_s);
        t.file(u"seq/b.0001.exr"_s);
        t.file(u"seq/b.0002.exr"_s);
        QVERIFY(!model->dropMimeData(urls({QUrl(u"https://example.com/c.exr"_s)}).get(),
                                     Qt::CopyAction, -1, -1, {}));
        auto mixed = urls({QUrl(u"https://example.com/c.exr"_s), QUrl::fromLocalFile(file),
                           QUrl::fromLocalFile(t(u"seq"_s))});
        QVERIFY(!model->canDropMimeData(mixed.get(), Qt::MoveAction, 0, 0, {}));
        QVERIFY(model->canDropMimeData(mixed.get(), Qt::CopyAction, 0, 0, {}));
        QVERIFY(model->dropMimeData(mixed.get(), Qt::CopyAction, 0, 0, {}));
        // Added on a thread of its own, shown through a posted reload.
        QTRY_COMPARE(model->rowCount(), 3);
        QCOMPARE(doc->itemAt(0)->fullPath(), file);
        QVERIFY(doc->fileInQueue(t(u"seq/b.0002.exr"_s)));
    }

    void rowDragsMoveThroughTheEngine_data() {
        QTest::addColumn<QList<int>>("dragged");
        QTest::addColumn<int>("row");
        QTest::addColumn<int>("onRow"); // a drop on a row's middle: parent index
        QTest::addColumn<QString>("order");
        QTest::newRow("above a row") << QList<int>{3} << 1 << -1 << u"a d b c"_s;
        QTest::newRow("below the last") << QList<int>{2, 0} << 4 << -1 << u"b d a c"_s;
        QTest::newRow("empty area") << QList<int>{1} << -1 << -1 << u"a c d b"_s;
        QTest::newRow("on a row") << QList<int>{0} << -1 << 2 << u"b a c d"_s;
        QTest::newRow("onto itself") << QList<int>{1, 2} << 2 << -1 << u"a d b c"_s;
    }
    void rowDragsMoveThroughTheEngine() {
        QFETCH(QList<int>, dragged);
        QFETCH(int, row);
        QFETCH(int, onRow);
        QFETCH(QString, order);
        add({u"/x/a"_s, u"/x/b"_s, u"/x/c"_s, u"/x/d"_s});
        QModelIndexList indexes;
        for (int r : dragged)
            indexes << model->index(r, 0) << model->index(r, 1); // a whole-row selection
        std::unique_ptr<QMimeData> data(model->mimeData(indexes));
        const QModelIndex parent = onRow >= 0 ? model->index(onRow, 0) : QModelIndex();
        QVERIFY(model->canDropMimeData(data.get(), Qt::MoveAction, row, 0, parent));
        QVERIFY(model->dropMimeData(data.get(), Qt::MoveAction, row, 0, parent));
        QCOMPARE(column(*model, 0), order);
    }

    void foreignOrMalformedRowDragsAreRefused() {
        add({u"/x/a"_s, u"/x/b"_s});
        MyDocument otherDoc;
        FileTableModel other(otherDoc);
        otherDoc.addFileToList(u"/y/z"_s);
        other.reload();
        std::unique_ptr<QMimeData> foreign(other.mimeData({other.index(0, 0)}));
        QVERIFY(!model->dropMimeData(foreign.get(), Qt::MoveAction, 0, 0, {}));

        std::unique_ptr<QMimeData> own(model->mimeData({model->index(1, 0)}));
        QByteArray payload = own->data(u"QXPboardType"_s);
        for (const QByteArray& bad :
             QList<QByteArray>{payload.left(6), payload + 'x', QByteArray("\xff\xff\xff\xff")}) {
            own->setData(u"QXPboardType"_s, bad);
            QVERIFY(!model->dropMimeData(own.get(), Qt::MoveAction, 0, 0, {}));
        }
        QCOMPARE(column(*model, 0), u"a b"_s);
    }
};

SEQMATE_APP_TEST_MAIN(FileTableModelTest)
#include "FileTableModelTest.moc"
