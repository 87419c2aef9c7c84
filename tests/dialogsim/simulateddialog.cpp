#include "simulateddialog.h"

#include "devicescanner.h"

#include <QAbstractButton>
#include <QTabBar>

SimulatedDialog::SimulatedDialog() : scanner(dialog.findChild<DeviceScanner *>())
{
    QObject::connect(scanner, &DeviceScanner::scan, &dialog, [this] { ++scansAsked; });
    // Queued: the dialog is to have reacted before the scan counts as ended.
    QObject::connect(
        scanner, &DeviceScanner::complete, &dialog, [this] { ++scansEnded; }, Qt::QueuedConnection);
    QObject::connect(find<QProgressBar>("updateProgress"), &QProgressBar::valueChanged, &dialog,
                     [this](int value) { progress.append(value); });
    dialog.show();
    if (!QTest::qWaitForWindowExposed(&dialog) || !waitForScan(1)) {
        qFatal("the dialog does not start");
    }
}

int SimulatedDialog::rowOf(const QString &serial)
{
    for (int row = 0; row < list()->count(); ++row) {
        if (list()->item(row)->text().contains('(' + serial + ", ")) {
            return row;
        }
    }
    return -1;
}

void SimulatedDialog::click(const char *objectName)
{
    QTest::mouseClick(find<QWidget>(objectName), Qt::LeftButton, {}, {12, 12});
}

void SimulatedDialog::clickRow(int row)
{
    QListWidgetItem *item = list()->item(row);
    list()->scrollToItem(item);
    QTest::mouseClick(list()->viewport(), Qt::LeftButton, {},
                      list()->visualItemRect(item).center());
}

void SimulatedDialog::select(const QString &serial)
{
    const int row = rowOf(serial);
    if (row < 0) {
        qFatal("no row of %s in: %s", qPrintable(serial), qPrintable(rows().join("; ")));
    }
    clickRow(row);
}

void SimulatedDialog::clickTab(int tab)
{
    QTabBar *bar = tabs()->tabBar();
    QTest::mouseClick(bar, Qt::LeftButton, {}, bar->tabRect(tab).center());
}

void SimulatedDialog::showTab(int tab)
{
    tabs()->setCurrentIndex(tab);
}

void SimulatedDialog::typePackage(const QString &fileName)
{
    auto *edit = find<QLineEdit>("firmwareLineEdit");
    edit->clear();
    QTest::keyClicks(edit, fileName);
}

bool SimulatedDialog::waitUntil(const std::function<bool()> &condition)
{
    return QTest::qWaitFor(condition, s_patienceMs);
}

bool SimulatedDialog::openTab(int tab)
{
    clickTab(tab);
    return tabs()->currentIndex() == tab && waitUntil([this] { return isUnlocked(); });
}

bool SimulatedDialog::waitForPollUnderWay(const QString &device)
{
    const int since = simulation::mark();
    return waitUntil([&] {
        return simulation::countEvents(device, "claim", since) >
               simulation::countEvents(device, "close", since);
    });
}
