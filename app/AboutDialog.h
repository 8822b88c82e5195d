#pragma once

#include <QDialog>

#include <memory>

namespace Ui {
class QXAbout;
}

// The About box: the program's icon, name, version and maker.
class AboutDialog : public QDialog {
    Q_OBJECT
public:
    // The dialog from its interface file "QXAbout". The file is compiled in, so this
    // never fails today; callers still treat null as a missing interface.
    static AboutDialog* load(QWidget* parent);
    ~AboutDialog() override;

private:
    explicit AboutDialog(QWidget* parent);
    std::unique_ptr<Ui::QXAbout> m_ui;
};
