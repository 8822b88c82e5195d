// The desktop program: one untitled batch window holding the paths given on
// the command line.
#include "DocumentWindow.h"
#include "DocumentWindows.h"
#include "MyDocument.h"

#include <QApplication>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Corvane"));
    QApplication::setApplicationName(QStringLiteral("Seqmate"));
    QApplication::setApplicationDisplayName(QStringLiteral("Seqmate"));
    DocumentWindow* window = DocumentWindows::newUntitled();
    QStringList paths = QApplication::arguments();
    paths.removeFirst();
    if (!paths.isEmpty()) window->document().addItemsInBackground(paths);
    return QApplication::exec();
}
