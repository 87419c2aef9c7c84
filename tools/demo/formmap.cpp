// Prints where the widgets of the dialog's form are, in pixels from the window's corner, one a
// line:
//
//     demo-form-map ROWS
//     window 0 0 543 582
//     updateButton 20 420 499 31
//     devicesList/0 12 150 517 20        a row of the list
//     tabWidget/1 90 360 70 28           a tab
//
// The unattended demo points with it: it drives the program by the mouse and the keyboard, and so
// has to know where to click whatever fonts the machine has. This shows nothing, and knows the form
// only.

#include "images.h"
#include "ui_updaterepair.h"

#include <QApplication>
#include <QTabBar>

#include <cstdlib>
#include <iostream>
#include <string>

namespace {

void print(const std::string &name, const QRect &area)
{
    std::cout << name << ' ' << area.x() << ' ' << area.y() << ' ' << area.width() << ' '
              << area.height() << '\n';
}

QRect placeOf(const QWidget &widget, const QRect &area, const QWidget &window)
{
    return {widget.mapTo(&window, area.topLeft()), area.size()};
}

void printWidgets(const QWidget &page, const QWidget &window)
{
    const QList<QWidget *> widgets = page.findChildren<QWidget *>();
    for (const QWidget *widget : widgets) {
        const QString name = widget->objectName();
        if (widget->isVisible() && !name.isEmpty() && !name.startsWith(QLatin1String("qt_"))) {
            print(name.toStdString(), placeOf(*widget, widget->rect(), window));
        }
    }
}

} // namespace

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    const int rows = argc > 1 ? std::atoi(argv[1]) : 0;

    QDialog dialog;
    Ui::UpdateRepair form;
    init_images();
    form.setupUi(&dialog);
    // As the program has them while it waits for its user.
    form.labelDoNotInterrupt->hide();
    form.updateProgress->hide();
    for (int row = 0; row < rows; ++row) {
        form.devicesList->addItem(QStringLiteral("device"));
    }
    dialog.setAttribute(Qt::WA_DontShowOnScreen);
    dialog.show();
    QApplication::processEvents();

    print("window", dialog.rect());
    for (int row = 0; row < rows; ++row) {
        const QRect area = form.devicesList->visualItemRect(form.devicesList->item(row));
        print("devicesList/" + std::to_string(row),
              placeOf(*form.devicesList->viewport(), area, dialog));
    }
    const QTabBar &tabs = *form.tabWidget->tabBar();
    for (int tab = 0; tab < form.tabWidget->count(); ++tab) {
        print("tabWidget/" + std::to_string(tab), placeOf(tabs, tabs.tabRect(tab), dialog));
        form.tabWidget->setCurrentIndex(tab);
        QApplication::processEvents();
        printWidgets(*form.tabWidget->currentWidget(), dialog);
    }
    print("rescanDevicesButton",
          placeOf(*form.rescanDevicesButton, form.rescanDevicesButton->rect(), dialog));
    return EXIT_SUCCESS;
}
